#include "cli/ExplainAcl.h"

#include <stdexcept>

namespace Cli {

ExplainedAcl::ExplainedAcl(const Agent::Policy& policy, Agent::Family family,
                           const Agent::Hardware& hardware, const PolicyCompiler::AclConfig& acl)
   : policy_{&policy},
     family_{family},
     hardware_{&hardware},
     table_{acl},
     classes_{classesInOrder(policy, family)} {}

bool ExplainedAcl::concerns(const RulesClient::Packet& packet) const {
   return packet.family == table_.family() && table_.attachedTo(packet.intf);
}

Explanation ExplainedAcl::explain(const RulesClient::Packet& packet) {
   Explanation explanation;
   explanation.entry = table_.hit(packet);
   std::string_view expected;
   if (explanation.entry != nullptr) {
      expected = classOfRule(explanation.entry->rule.view(), family_);
   }
   for (const Agent::Class* each : classes_) {
      std::optional<Miss> miss = firstMiss(*each, *hardware_, packet);
      if (!miss) {
         explanation.matched = each;
         break;
      }
      explanation.misses.emplace_back(each, std::move(*miss));
   }
   const bool agreed =
         explanation.matched == nullptr
               ? explanation.entry == nullptr
               : explanation.entry != nullptr && expected == explanation.matched->name.text;
   if (!agreed) {
      throw std::logic_error{table_.key().str() +
                             " does something else than its classes say with " +
                             printPacket(packet)};
   }
   return explanation;
}

} // namespace Cli
