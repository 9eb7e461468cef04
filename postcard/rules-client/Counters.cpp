#include "postcard/rules-client/Counters.h"

#include "postcard/json/Document.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace Postcard::RulesClient {

namespace {

using Json = nlohmann::ordered_json;

void addText(std::string& text, const AclCounters& acl) {
   text += fmt::format("{}: {} samples, {} lost\n", acl.acl, acl.samples, acl.lostSamples);
   for (const auto& [name, state] : acl.interfaces) {
      text += fmt::format("   interface {}: {}\n", name, state);
   }
   std::size_t silent = 0;
   for (const RuleCounter& rule : acl.rules) {
      if (rule.packets == 0) {
         silent += 1;
         continue;
      }
      text += fmt::format("   {} {}: {} packets, {} bytes{}\n", rule.index, rule.rule, rule.packets,
                          rule.bytes, rule.sampled ? ", sampled" : "");
   }
   text += fmt::format("   {} of {} rules have matched no packet\n", silent, acl.rules.size());
}

Json jsonOf(const AclCounters& acl) {
   Json interfaces = Json::array();
   for (const auto& [name, state] : acl.interfaces) {
      interfaces.push_back({{"interface", name}, {"state", state}});
   }
   Json rules = Json::array();
   for (const RuleCounter& rule : acl.rules) {
      rules.push_back({{"index", rule.index},
                       {"rule", rule.rule},
                       {"sampled", rule.sampled},
                       {"packets", rule.packets},
                       {"bytes", rule.bytes}});
   }
   return {{"acl", acl.acl},
           {"samples", acl.samples},
           {"lostSamples", acl.lostSamples},
           {"interfaces", std::move(interfaces)},
           {"rules", std::move(rules)}};
}

} // namespace

std::string countersText(const std::vector<AclCounters>& acls) {
   std::string text;
   for (const AclCounters& acl : acls) {
      addText(text, acl);
   }
   return text;
}

std::string countersJson(const std::vector<AclCounters>& acls) {
   Json list = Json::array();
   for (const AclCounters& acl : acls) {
      list.push_back(jsonOf(acl));
   }
   return Postcard::Json::documentText({{"schema", countersJsonSchema}, {"acls", std::move(list)}});
}

} // namespace Postcard::RulesClient
