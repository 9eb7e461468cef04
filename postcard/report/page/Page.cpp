#include "postcard/report/page/Page.h"

#include "postcard/report/explain/Explanation.h"
#include "postcard/report/page/ClassJson.h"
#include "postcard/report/page/Template.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <limits>
#include <string_view>
#include <utility>

namespace Postcard::Report {

namespace {

using Json = nlohmann::ordered_json;

// Rises when an older script would misread a page. Script and data stand in the same file, so the
// number is for other programs that read the data.
constexpr int pageJsonSchema = 1;

Json namesJson(const std::vector<Policy::Name>& names) {
   Json list = Json::array();
   for (const Policy::Name& name : names) {
      list.push_back(name.text);
   }
   return list;
}

// Needed to say why no ACL is asked about a packet.
Json scopeJson(const Scope& scope) {
   Json policies = Json::array();
   for (const Policy::Policy* policy : scope.policies) {
      policies.push_back({{"name", policy->name.text},
                          {"ipv4", namesJson(policy->ipv4Interfaces)},
                          {"ipv6", namesJson(policy->ipv6Interfaces)}});
   }
   return {{"family", scope.family ? Json(familyName(*scope.family)) : Json(nullptr)},
           {"policies", std::move(policies)}};
}

Json aclJson(const PageAcl& acl) {
   Json names = Json::object();
   for (const auto& [place, name] : acl.oddNames) {
      names[std::to_string(place)] = name;
   }
   return {{"key", acl.key},
           {"policy", acl.policy->name.text},
           {"family", familyName(acl.family)},
           {"interfaces", namesJson(acl.policy->interfaces(acl.family))},
           {"names", std::move(names)},
           {"classes", classesJson(*acl.policy, acl.family)}};
}

// The rules are left out: their hits are a column.
Json captureJson(const CaptureTotals& totals) {
   Json capture = json(totals)["capture"];
   for (Json& acl : capture["acls"]) {
      acl.erase("rules");
   }
   return capture;
}

std::string sizeBytes(std::size_t size) {
   std::string bytes;
   for (unsigned shift = 0; shift < 32; shift += 8) {
      bytes += static_cast<char>(size >> shift & 0xff);
   }
   return bytes;
}

} // namespace

Page::Page(std::string program, std::string fileName, const Policy::PolicyFile& file, Scope scope)
   : program_{std::move(program)},
     fileName_{std::move(fileName)},
     file_{&file},
     scope_{std::move(scope)} {}

void Page::add(Analysis::PacketSpace& space, const Host::CompiledPolicy& compiled,
               const Classifier::AclTable& table) {
   const Policy::Policy& policy = compiled.policy;
   if (acls_.empty() || acls_.back().policy != &policy) {
      warnings_.add(Analysis::warningsOf(policy));
   }
   warnings_.add(Analysis::warningsOf(
         space, policy,
         {compiled.family, compiled.tcpFlags, file_->collector ? &*file_->collector : nullptr}));
   std::ranges::move(Advice::mergesOf(policy, compiled.family, compiled.tcpFlags),
                     std::back_inserter(merges_));
   cost_.add(costOf(policy, compiled.family, compiled.acl));
   acls_.push_back({table.key().str(), &policy, compiled.family, rules_.add(compiled, table)});
}

void Page::captureIs(CaptureTotals totals) {
   constexpr U64 mostHits = std::numeric_limits<U32>::max(); // a column holds no more
   for (std::size_t i = 0; i < acls_.size(); ++i) {
      std::vector<U32> hits(cost_.acls[i].entries);
      for (const RuleTotals& rule : totals.acls[i].rules) {
         hits.at(rule.index) = static_cast<U32>(std::min(rule.packets, mostHits));
      }
      for (const U32 each : hits) {
         hits_.add(each);
      }
   }
   capture_ = std::move(totals);
}

std::vector<std::pair<std::string_view, std::string_view>> Page::columns() const {
   std::vector<std::pair<std::string_view, std::string_view>> columns;
   for (std::size_t i = 0; i < RuleColumns::columns; ++i) {
      const auto which = static_cast<RuleColumns::Column>(i);
      columns.emplace_back(columnName(which), rules_.bytes(which));
   }
   if (capture_) {
      columns.emplace_back("hits", hits_.bytes());
   }
   return columns;
}

Json Page::document() const {
   Json acls = Json::array();
   for (const PageAcl& acl : acls_) {
      acls.push_back(aclJson(acl));
   }
   Json columnSizes = Json::array();
   for (const auto& [name, bytes] : columns()) {
      columnSizes.push_back({{"name", name}, {"bytes", bytes.size()}});
   }
   return {{"schema", pageJsonSchema},
           {"program", program_},
           {"file", fileName_},
           {"tcpFlags", file_->hardware.tcpFlags},
           {"explainSchema", explainJsonSchema},
           {"scope", scopeJson(scope_)},
           {"cost", json(cost_)},
           {"warnings", json(warnings_)},
           {"moreOverlaps", warnings_.moreOverlaps},
           {"notDecided", notDecidedJson(warnings_)},
           {"advice", json(Advice::adviceOf(merges_, warnings_))},
           {"capture", capture_ ? captureJson(*capture_) : Json(nullptr)},
           {"acls", std::move(acls)},
           {"rules", rules_.rules()},
           {"columns", std::move(columnSizes)}};
}

std::string Page::data() const {
   // Names of files may hold bytes that are not UTF-8, which JSON cannot express.
   const std::string text = document().dump(-1, ' ', false, Json::error_handler_t::replace);
   std::string data = sizeBytes(text.size()) + text;
   for (const auto& [name, bytes] : columns()) {
      data += bytes;
   }
   return data;
}

// Compressed and in base64, the data hold no character that HTML would read as markup, whatever the
// names in a policy are.
std::string html(const Page& page) {
   return std::string{pageBegin} + base64(deflated(page.data())) + std::string{pageEnd};
}

} // namespace Postcard::Report
