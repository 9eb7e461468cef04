#include "postcard/report/ExplainPacket.h"

#include <fmt/format.h>

#include <algorithm>

namespace Postcard::Report {

namespace {

using Packets::Packet;
using Json = nlohmann::ordered_json;

// What to say when the packet does not leave with the DSCP that its class sets.
std::string markText(const Policy::Class& matched, U8 dscp) {
   const auto set =
         std::ranges::find(matched.actions, Policy::ActionKind::setDscp, &Policy::Action::kind);
   return set == matched.actions.end() || set->dscp == dscp
                ? ""
                : fmt::format(" (the class sets {}, but its rules rewrite no bits)", set->dscp);
}

std::string resultText(const ExplainedAcl& acl, const Explanation& explanation,
                       const Packets::Packet& packet) {
   if (explanation.entry == nullptr) {
      return "not sampled: no rule matches";
   }
   const U8 dscp = explanation.entry->dscpAfter(packet.dscp);
   return fmt::format("{}, DSCP {}{}", explanation.entry->sampled ? "sampled" : "not sampled",
                      dscp == packet.dscp ? fmt::format("stays {}", dscp)
                                          : fmt::format("{} becomes {}", packet.dscp, dscp),
                      markText(*acl.classes()[explanation.matched], dscp));
}

// What the packet and the class at the index `i` have to do with each other.
std::string classText(const Explanation& explanation, std::size_t i) {
   if (const std::optional<Miss>& miss = explanation.misses[i]) {
      return fmt::format("no, {}: wanted {}, found {}", fieldName(miss->field), miss->wanted,
                         miss->found);
   }
   return i == explanation.matched ? fmt::format("yes, rule {} {}", explanation.entry->index,
                                                 explanation.entry->rule.view())
                                   : "not reached: an earlier class has the packet";
}

std::string aclText(ExplainedAcl& acl, const Packets::Packet& packet) {
   const Explanation explanation = acl.explain(packet);
   std::string text =
         fmt::format("   {}: {}\n", acl.table().key().view(), resultText(acl, explanation, packet));
   for (std::size_t i = 0; i < acl.classes().size(); ++i) {
      text += fmt::format("      class {}: {}\n", acl.classes()[i]->name.text,
                          classText(explanation, i));
   }
   return text;
}

Json aclJson(ExplainedAcl& acl, const Packets::Packet& packet) {
   const Explanation explanation = acl.explain(packet);
   const auto* entry = explanation.entry;
   Json misses = Json::array();
   Json notReached = Json::array();
   for (std::size_t i = 0; i < acl.classes().size(); ++i) {
      const std::string& name = acl.classes()[i]->name.text;
      if (const std::optional<Miss>& miss = explanation.misses[i]) {
         misses.push_back({{"class", name},
                           {"field", fieldName(miss->field)},
                           {"wanted", miss->wanted},
                           {"found", miss->found}});
      } else if (i != explanation.matched) {
         notReached.push_back(name);
      }
   }
   Json json{{"acl", acl.table().key().view()},
             {"policy", acl.policy().name.text},
             {"family", familyName(acl.family())},
             {"rule", nullptr},
             {"class", nullptr},
             {"sampled", entry != nullptr && entry->sampled},
             {"dscp", entry == nullptr ? packet.dscp : entry->dscpAfter(packet.dscp)},
             {"notMatched", std::move(misses)},
             {"notReached", std::move(notReached)}};
   if (entry != nullptr) {
      json["rule"] = {{"index", entry->index}, {"name", entry->rule.view()}};
      json["class"] = acl.classes()[explanation.matched]->name.text;
   }
   return json;
}

} // namespace

std::string explainPacketsText(std::vector<ExplainedAcl>& acls,
                               const std::vector<Packets::Packet>& packets) {
   std::string text;
   for (const Packets::Packet& packet : packets) {
      text += printPacket(packet) + '\n';
      bool concerned = false;
      for (ExplainedAcl& acl : acls) {
         if (acl.concerns(packet)) {
            concerned = true;
            text += aclText(acl, packet);
         }
      }
      text += concerned ? "" : "   no ACL is asked about this packet\n";
   }
   return text;
}

Json explainPacketsJson(std::vector<ExplainedAcl>& acls,
                        const std::vector<Packets::Packet>& packets) {
   Json list = Json::array();
   for (const Packets::Packet& packet : packets) {
      Json asked = Json::array();
      for (ExplainedAcl& acl : acls) {
         if (acl.concerns(packet)) {
            asked.push_back(aclJson(acl, packet));
         }
      }
      list.push_back({{"packet", printPacket(packet)}, {"acls", std::move(asked)}});
   }
   return list;
}

} // namespace Postcard::Report
