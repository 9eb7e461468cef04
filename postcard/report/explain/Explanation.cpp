#include "postcard/report/explain/Explanation.h"

#include "Pello/VisibleCharacters.h"
#include "postcard/json/EntityJson.h"
#include "postcard/policy/Classes.h"
#include "postcard/report/OriginOutput.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <utility>

namespace Postcard::Report {

namespace {

using Json = nlohmann::ordered_json;

// What `acl` does with the packet. Copies all texts: the result outlives the ACL, not the policy.
AclExplanation explainIn(ExplainedAcl& acl, const Packets::Packet& packet) {
   Verdict verdict = acl.explain(packet);
   AclExplanation explanation;
   explanation.acl = acl.table().key().str();
   explanation.policy = acl.policy().name.text;
   explanation.family = acl.family();
   explanation.dscpBefore = packet.dscp;
   explanation.dscpAfter = packet.dscp;
   explanation.matched = verdict.matched;
   for (std::size_t i = 0; i < acl.classes().size(); ++i) {
      explanation.classes.push_back({acl.classes()[i]->name.text, std::move(verdict.misses[i])});
   }
   if (const auto* entry = verdict.entry) {
      explanation.rule = RuleHit{entry->index, entry->rule.str(), acl.originOf(*entry)};
      explanation.sampled = entry->sampled;
      explanation.dscpAfter = entry->dscpAfter(packet.dscp);
      const Policy::Class& matched = *acl.classes()[verdict.matched];
      if (const auto* set = actionOf(matched, Policy::ActionKind::setDscp)) {
         explanation.dscpOfClass = set->dscp;
      }
   }
   return explanation;
}

// ---- Text ----

std::string dscpText(const AclExplanation& acl) {
   return acl.dscpAfter == acl.dscpBefore
                ? fmt::format("stays {}", acl.dscpAfter)
                : fmt::format("{} becomes {}", acl.dscpBefore, acl.dscpAfter);
}

// A remark when the packet does not leave with the DSCP that its class asks for; else empty. The
// plug-in's set-DSCP rules rewrite no bits (DESIGN.md, Decisions). A reader of the policy does not
// expect that, so the text says it.
std::string markText(const AclExplanation& acl) {
   return !acl.dscpOfClass || *acl.dscpOfClass == acl.dscpAfter
                ? ""
                : fmt::format(" (the class sets {}, but its rules rewrite no bits)",
                              *acl.dscpOfClass);
}

std::string resultText(const AclExplanation& acl) {
   // Without a rule the packet keeps its DSCP, so there is nothing to say about it.
   if (!acl.rule) {
      return "not sampled: no rule matches";
   }
   return fmt::format("{}, DSCP {}{}", acl.sampled ? "sampled" : "not sampled", dscpText(acl),
                      markText(acl));
}

// How the class at the index `i` relates to the packet.
std::string classText(const AclExplanation& acl, std::size_t i) {
   if (const std::optional<Miss>& miss = acl.classes[i].miss) {
      return fmt::format("no, {}: wanted {}, found {}", fieldName(miss->field), miss->wanted,
                         miss->found);
   }
   if (acl.rule && i == acl.matched) {
      const std::string origin = acl.rule->origin ? Host::text(*acl.rule->origin) : "";
      return fmt::format("yes, rule {} {}{}{}", acl.rule->index, acl.rule->name,
                         origin.empty() ? "" : " ", origin);
   }
   return "not reached: an earlier class has the packet";
}

std::string aclText(const AclExplanation& acl) {
   std::string text = fmt::format("   {}: {}\n", acl.acl, resultText(acl));
   for (std::size_t i = 0; i < acl.classes.size(); ++i) {
      text += fmt::format("      class {}: {}\n", acl.classes[i].name, classText(acl, i));
   }
   return text;
}

// The packet, and what its text leaves out: a reader may have meant another value than 0.
std::string packetText(const PacketExplanation& packet) {
   if (packet.packet.empty()) {
      return "a frame that gives no packet";
   }
   // The name of the interface is any text, and not each is fit for a terminal.
   const std::string text = Pello::escaped(packet.packet);
   return packet.zeros.empty() ? text
                               : fmt::format("{}   (left out and taken for 0: {})", text,
                                             fmt::join(packet.zeros, ", "));
}

// ---- JSON ----

Json missJson(const std::string& className, const Miss& miss) {
   return {{"class", className},
           {"field", fieldName(miss.field)},
           {"wanted", miss.wanted},
           {"found", miss.found}};
}

Json originJson(const Host::RuleOrigin& origin) {
   return Postcard::Json::writtenJson(
         [&](Kiv::ValueVisitor& visitor) { writeOrigin(origin, visitor); });
}

Json aclJson(const AclExplanation& acl) {
   Json misses = Json::array();
   Json notReached = Json::array();
   // Every class is in one of the two lists or is the one that has the packet.
   for (std::size_t i = 0; i < acl.classes.size(); ++i) {
      if (const std::optional<Miss>& miss = acl.classes[i].miss) {
         misses.push_back(missJson(acl.classes[i].name, *miss));
      } else if (i != acl.matched) {
         notReached.push_back(acl.classes[i].name);
      }
   }
   Json json{{"acl", acl.acl},
             {"policy", acl.policy},
             {"family", familyName(acl.family)},
             {"rule", nullptr},
             {"class", nullptr},
             {"sampled", acl.sampled},
             {"dscp", acl.dscpAfter},
             {"notMatched", std::move(misses)},
             {"notReached", std::move(notReached)}};
   if (acl.rule) {
      json["rule"] = {{"index", acl.rule->index},
                      {"name", acl.rule->name},
                      {"origin", acl.rule->origin ? originJson(*acl.rule->origin) : Json(nullptr)}};
      json["class"] = acl.classes[acl.matched].name;
   }
   return json;
}

Json packetJson(const PacketExplanation& packet) {
   Json acls = Json::array();
   for (const AclExplanation& acl : packet.acls) {
      acls.push_back(aclJson(acl));
   }
   return {{"packet", packet.packet.empty() ? Json(nullptr) : Json(packet.packet)},
           {"zeros", packet.zeros},
           {"acls", std::move(acls)},
           {"noAcl", packet.noAcl ? json(*packet.noAcl) : Json(nullptr)},
           {"asExpected", packet.asExpected ? Json(*packet.asExpected) : Json(nullptr)}};
}

} // namespace

PacketExplanation explainPacket(std::vector<ExplainedAcl>& acls, const Scope& scope,
                                const Packets::Packet& packet) {
   PacketExplanation explanation;
   explanation.packet = printPacket(packet);
   for (ExplainedAcl& acl : acls) {
      if (acl.concerns(packet)) {
         explanation.acls.push_back(explainIn(acl, packet));
      }
   }
   if (explanation.acls.empty()) {
      explanation.noAcl = whyNoAcl(scope, packet);
   }
   return explanation;
}

PacketExplanation explainUndecodable(Packets::Undecodable reason) {
   PacketExplanation explanation;
   explanation.noAcl = whyNoAcl(reason);
   return explanation;
}

std::string text(const Explanation& explanation) {
   std::string text;
   for (const PacketExplanation& packet : explanation.packets) {
      text += packetText(packet) + '\n';
      for (const AclExplanation& acl : packet.acls) {
         text += aclText(acl);
      }
      // Said in words, because a packet line with nothing below it would look like a defect.
      if (packet.noAcl) {
         text += fmt::format("   no ACL is asked about this packet: {}\n",
                             Report::text(*packet.noAcl));
      }
   }
   return text;
}

Json json(const Explanation& explanation) {
   Json packets = Json::array();
   for (const PacketExplanation& packet : explanation.packets) {
      packets.push_back(packetJson(packet));
   }
   return {{"schema", explainJsonSchema},
           {"packets", std::move(packets)},
           {"refused", json(explanation.refused)},
           {"expected", explanation.expected.empty() ? Json(nullptr) : Json(explanation.expected)}};
}

} // namespace Postcard::Report
