#include "postcard/report/ExplainedAcl.h"

#include "postcard/host/RuleNames.h"
#include "postcard/policy/Classes.h"

#include <algorithm>
#include <stdexcept>

namespace Postcard::Report {

ExplainedAcl::ExplainedAcl(const Policy::Policy& policy, Policy::Family family,
                           const Policy::Hardware& hardware,
                           const OruPostcardTelemetry::PostcardTelemetryAclConfig& acl)
   : policy_{&policy},
     family_{family},
     hardware_{&hardware},
     table_{acl},
     classes_{classesInOrder(policy, family)} {}

bool ExplainedAcl::concerns(const Packets::Packet& packet) const {
   return packet.family == table_.family() && table_.attachedTo(packet.intf);
}

Verdict ExplainedAcl::explain(const Packets::Packet& packet) {
   Verdict verdict;
   verdict.entry = table_.hit(packet);
   for (const Policy::Class* each : classes_) {
      verdict.misses.push_back(firstMiss(*each, *hardware_, packet));
   }
   const auto matched = std::ranges::find_if(verdict.misses,
                                             [](const std::optional<Miss>& miss) { return !miss; });
   verdict.matched = static_cast<std::size_t>(matched - verdict.misses.begin());
   // The rules and the classes describe the same policy and were evaluated independently. When they
   // disagree, an explanation from the classes would be wrong about what the rules do.
   const bool agreed = verdict.entry == nullptr
                             ? verdict.matched == classes_.size()
                             : verdict.matched < classes_.size() &&
                                     Host::classOfRule(verdict.entry->rule.view(), family_) ==
                                           classes_[verdict.matched]->name.text;
   if (!agreed) {
      throw std::logic_error{table_.key().str() +
                             " does something else than its classes say with " +
                             printPacket(packet)};
   }
   return verdict;
}

} // namespace Postcard::Report
