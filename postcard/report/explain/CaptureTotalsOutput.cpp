// How `CaptureTotals` are printed, as text and as JSON.
#include "Pello/VisibleCharacters.h"
#include "postcard/report/explain/CaptureTotals.h"
#include "postcard/report/explain/Explanation.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <string_view>
#include <utility>

namespace Postcard::Report {

namespace {

using Json = nlohmann::ordered_json;

// ---- Text ----

// "1 in N", where N has one decimal, or none if it is a whole number, as the shares of masks are.
std::string shareText(const Share& share) {
   if (!share) {
      return "none";
   }
   return *share == static_cast<double>(static_cast<U64>(*share))
                ? fmt::format("1 in {:.0f}", *share)
                : fmt::format("1 in {:.1f}", *share);
}

// The width of the first column, in bytes. For names with characters beyond ASCII the column is
// wider than needed, which costs less than a table of character widths.
std::size_t nameWidth(const AclTotals& acl) {
   std::size_t width = std::string_view{"class"}.size();
   for (const ClassTotals& each : acl.classes) {
      width = std::max(width, each.name.size());
   }
   return width;
}

std::string classesText(const AclTotals& acl) {
   // The header and the rows share one format, so that their columns agree.
   constexpr const char* line = "   {:<{}}  {:>10}  {:>10}  {:>10}  {:>12}  {:>12}\n";
   const std::size_t width = nameWidth(acl);
   std::string text = fmt::format(line, "class", width, "candidates", "matched", "sampled",
                                  "observed", "expected");
   for (const ClassTotals& each : acl.classes) {
      text += fmt::format(line, each.name, width, each.candidates, each.matched, each.sampled,
                          shareText(each.observed()), shareText(each.expected));
   }
   return text;
}

std::string aclText(const AclTotals& acl) {
   std::string text = fmt::format("\n{}: {} packets, {} match a rule, {} sampled\n", acl.acl,
                                  acl.packets, acl.matched, acl.sampled);
   text += classesText(acl);
   for (const RuleTotals& rule : acl.rules) {
      text += fmt::format("   rule {} {}: {}\n", rule.index, rule.name, rule.packets);
   }
   return text;
}

// ---- JSON ----

// The number N of "1 in N", not rounded, for programs.
Json shareJson(const Share& share) {
   return share ? Json(*share) : Json(nullptr);
}

Json classesJson(const AclTotals& acl) {
   Json list = Json::array();
   for (const ClassTotals& each : acl.classes) {
      list.push_back({{"class", each.name},
                      {"candidates", each.candidates},
                      {"matched", each.matched},
                      {"sampled", each.sampled},
                      {"observedOneIn", shareJson(each.observed())},
                      {"expectedOneIn", shareJson(each.expected)}});
   }
   return list;
}

Json rulesJson(const AclTotals& acl) {
   Json list = Json::array();
   for (const RuleTotals& rule : acl.rules) {
      list.push_back({{"index", rule.index}, {"name", rule.name}, {"packets", rule.packets}});
   }
   return list;
}

Json aclsJson(const CaptureTotals& totals) {
   Json list = Json::array();
   for (const AclTotals& acl : totals.acls) {
      list.push_back({{"acl", acl.acl},
                      {"policy", acl.policy},
                      {"family", familyName(acl.family)},
                      {"packets", acl.packets},
                      {"matched", acl.matched},
                      {"sampled", acl.sampled},
                      {"classes", classesJson(acl)},
                      {"rules", rulesJson(acl)}});
   }
   return list;
}

// An object with a member for each reason that occurred; empty when every frame could be decoded.
Json undecodableJson(const CaptureTotals& totals) {
   Json counts = Json::object();
   for (std::size_t reason = 0; reason < totals.undecodable.size(); ++reason) {
      if (totals.undecodable[reason] != 0) {
         counts[std::string{undecodableText(static_cast<Packets::Undecodable>(reason))}] =
               totals.undecodable[reason];
      }
   }
   return counts;
}

Json withoutAclJson(const CaptureTotals& totals) {
   Json list = Json::array();
   for (const PacketsWithoutAcl& each : totals.withoutAclBy) {
      Json one{{"family", familyName(each.family)}, {"packets", each.packets}};
      one.update(json(each.reason));
      list.push_back(std::move(one));
   }
   return list;
}

} // namespace

std::string text(const CaptureTotals& totals) {
   std::string text =
         fmt::format("{}: {} frames, {} packets, {} undecodable\n", Pello::escaped(totals.file),
                     totals.frames, totals.packets, totals.frames - totals.packets);
   for (std::size_t reason = 0; reason < totals.undecodable.size(); ++reason) {
      if (totals.undecodable[reason] != 0) {
         text += fmt::format("   {}: {}\n",
                             undecodableText(static_cast<Packets::Undecodable>(reason)),
                             totals.undecodable[reason]);
      }
   }
   if (totals.cutHeaders != 0) {
      text += fmt::format("   TCP or UDP header cut off: {} of the packets\n", totals.cutHeaders);
   }
   if (totals.withoutAcl != 0) {
      text += fmt::format("   no ACL is asked about: {}\n", totals.withoutAcl);
   }
   for (const PacketsWithoutAcl& each : totals.withoutAclBy) {
      text += fmt::format("      {} {}: {}\n", each.packets, familyName(each.family),
                          Report::text(each.reason));
   }
   for (const AclTotals& acl : totals.acls) {
      text += aclText(acl);
   }
   return text;
}

Json json(const CaptureTotals& totals) {
   return {{"schema", explainJsonSchema},
           {"capture",
            {{"file", totals.file},
             {"frames", totals.frames},
             {"packets", totals.packets},
             {"cutHeaders", totals.cutHeaders},
             {"withoutAcl", totals.withoutAcl},
             {"withoutAclBy", withoutAclJson(totals)},
             {"undecodable", undecodableJson(totals)},
             {"acls", aclsJson(totals)}}},
           {"refused", json(totals.refused)}};
}

} // namespace Postcard::Report
