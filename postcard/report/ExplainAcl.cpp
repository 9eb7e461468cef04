#include "postcard/report/ExplainAcl.h"

#include "postcard/host/RuleNames.h"
#include "postcard/policy/Classes.h"

#include <algorithm>
#include <stdexcept>

namespace Postcard::Report {

ExplainedAcl::ExplainedAcl(const Policy::Policy& policy, Policy::Family family,
                           const Policy::Hardware& hardware,
                           const Host::PolicyCompiler::AclConfig& acl)
   : policy_{&policy},
     family_{family},
     hardware_{&hardware},
     table_{acl},
     classes_{Policy::classesInOrder(policy, family)} {}

bool ExplainedAcl::concerns(const Packets::Packet& packet) const {
   return packet.family == table_.family() && table_.attachedTo(packet.intf);
}

Explanation ExplainedAcl::explain(const Packets::Packet& packet) {
   Explanation explanation;
   explanation.entry = table_.hit(packet);
   for (const Policy::Class* each : classes_) {
      explanation.misses.push_back(firstMiss(*each, *hardware_, packet));
   }
   const auto matched = std::ranges::find_if(explanation.misses,
                                             [](const std::optional<Miss>& miss) { return !miss; });
   explanation.matched = static_cast<std::size_t>(matched - explanation.misses.begin());
   const bool agreed = explanation.entry == nullptr
                             ? explanation.matched == classes_.size()
                             : explanation.matched < classes_.size() &&
                                     Host::classOfRule(explanation.entry->rule.view(), family_) ==
                                           classes_[explanation.matched]->name.text;
   if (!agreed) {
      throw std::logic_error{table_.key().str() +
                             " does something else than its classes say with " +
                             printPacket(packet)};
   }
   return explanation;
}

} // namespace Postcard::Report
