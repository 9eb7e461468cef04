#include "postcard/report/Cost.h"

#include "postcard/host/RuleNames.h"
#include "postcard/policy/Classes.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>
#include <utility>

namespace Postcard::Report {

namespace {

using Json = nlohmann::ordered_json;

// The version of the JSON document. It rises when a key changes its meaning or disappears.
constexpr int costJsonSchema = 1;

constexpr std::string_view classIndent = "   "; // sets the lines of classes off from those of ACLs

std::string aclLabel(const AclCost& acl) {
   return fmt::format("{} {}", acl.policy, familyName(acl.family));
}

// The width of the first column, in bytes: that of the longest label, so that entries line up.
std::size_t labelWidth(const Cost& cost) {
   std::size_t width = std::string_view{"total"}.size();
   for (const AclCost& acl : cost.acls) {
      width = std::max(width, aclLabel(acl).size());
      for (const ClassCost& each : acl.classes) {
         width = std::max(width, classIndent.size() + each.name.size());
      }
   }
   return width;
}

// The last line of the text; empty without a budget.
std::string budgetText(const Cost& cost) {
   if (!cost.budget) {
      return "";
   }
   return cost.fits() ? fmt::format("fits into {} entries, {} left\n", *cost.budget,
                                    *cost.budget - cost.entries)
                      : fmt::format("does not fit into {} entries, {} too many\n", *cost.budget,
                                    cost.entries - *cost.budget);
}

Json rateJson(const Policy::SamplingRate& rate) {
   Json field = nullptr;
   if (rate.field) {
      field = rate.field == Policy::SampleField::checksum ? "checksum" : "ip-id";
   }
   return {{"oneIn", rate.oneIn}, {"field", std::move(field)}, {"text", text(rate)}};
}

Json aclJson(const AclCost& acl) {
   Json classes = Json::array();
   for (const ClassCost& each : acl.classes) {
      classes.push_back(
            {{"class", each.name}, {"entries", each.entries}, {"rate", rateJson(each.rate)}});
   }
   return {{"policy", acl.policy},
           {"family", familyName(acl.family)},
           {"entries", acl.entries},
           {"classes", std::move(classes)}};
}

// "left" and "tooMany" are never negative, and at most one of them is not 0.
Json budgetJson(const Cost& cost) {
   if (!cost.budget) {
      return nullptr;
   }
   return {{"entries", *cost.budget},
           {"fits", cost.fits()},
           {"left", cost.fits() ? *cost.budget - cost.entries : 0},
           {"tooMany", cost.fits() ? 0 : cost.entries - *cost.budget}};
}

} // namespace

AclCost costOf(const Policy::Policy& policy, Policy::Family family,
               const OruPostcardTelemetry::PostcardTelemetryAclConfig& acl) {
   std::map<std::string_view, std::size_t> entries;
   // The rules of a class follow each other, so the latest class is nearly always the right one.
   auto latest = entries.end();
   // By index and not by name: a rule with two indexes takes two hardware entries.
   for (const auto& rule : acl.ruleByIndex()) {
      const std::string_view name = Host::classOfRule(rule.value()->name().view(), family);
      if (latest == entries.end() || latest->first != name) {
         latest = entries.emplace(name, 0).first;
      }
      latest->second += 1;
   }
   AclCost cost{policy.name.text, family, {}, acl.ruleByIndexs()};
   for (const Policy::Class* each : classesInOrder(policy, family)) {
      // A class without rules is not in `entries` and costs 0.
      cost.classes.push_back(
            {each->name.text, entries[each->name.text], samplingRate(*each, family)});
   }
   return cost;
}

void Cost::add(AclCost acl) {
   entries += acl.entries;
   acls.push_back(std::move(acl));
}

std::string text(const Cost& cost) {
   const std::size_t width = labelWidth(cost);
   const auto cells = [width](std::string_view label, std::size_t entries) {
      return fmt::format("{:<{}}  {:>9}", label, width, entries);
   };
   std::string text;
   for (const AclCost& acl : cost.acls) {
      text += cells(aclLabel(acl), acl.entries) + '\n';
      for (const ClassCost& each : acl.classes) {
         text += fmt::format("{}  {}\n",
                             cells(fmt::format("{}{}", classIndent, each.name), each.entries),
                             Policy::text(each.rate));
      }
   }
   return text + cells("total", cost.entries) + '\n' + budgetText(cost);
}

Json json(const Cost& cost) {
   Json acls = Json::array();
   for (const AclCost& acl : cost.acls) {
      acls.push_back(aclJson(acl));
   }
   return {{"schema", costJsonSchema},
           {"acls", std::move(acls)},
           {"refused", json(cost.refused)},
           {"totals", {{"entries", cost.entries}}},
           {"budget", budgetJson(cost)}};
}

} // namespace Postcard::Report
