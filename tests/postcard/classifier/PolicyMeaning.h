// `meaning`: what a policy says should happen to a packet, read from its structured filters: the
// first class, in order of priorities, that the packet belongs to. Knows nothing of rules. Where
// the helper is bound to build an ACL that does something else, the difference has a name here and
// can be switched on.
#pragma once

#include "PolicyMap/PolicyMapSmCommonData.h"
#include "PolicyMap/SetDscpAction.h"
#include "TrafficPolicy/TrafficPolicyClassMapSmCommonData.h"
#include "postcard/classifier/RuleOracle.h"

#include <optional>
#include <string>

namespace RulesClientTest {

// How an ACL departs from the meaning.
struct Differences {
   bool noProtocolMeansTcpAndUdp = false; // instead of every protocol
   bool tcpFlagsAreIgnored = false;       // the hardware cannot match them
   bool dscpIsNotRewritten = false;       // the rules' DSCP mask is 0
};

struct Fate {
   std::string className;
   bool sampled;
   U8 dscp;

   friend bool operator==(const Fate&, const Fate&) = default;
};

class PolicyMeaning {
 public:
   PolicyMeaning(const PolicyMap::PolicyMapSmCommonData& policy, Differences differences)
      : policy_{policy}, differences_{differences} {}

   std::optional<Fate> meaning(const Packet& packet) const {
      const bool ipv4 = packet.family == Orlix::AddressFamily::ipv4;
      const auto rules = policy_.rulePriority(ipv4 ? Acl::AclType::ipv4 : Acl::AclType::ipv6);
      for (const auto& rule : rules->rule()) {
         const PolicyMap::AclRuleKey& key = rule.value();
         const auto classMap =
               Pello::dynamicCast<const TrafficPolicy::TrafficPolicyClassMapSmCommonData>(
                     policy_.classData(key.className()));
         const auto filter = classMap->aclStructuredFilter(key.aclName())->filter(0);
         if (belongs(*classMap, *filter, packet)) {
            return fate(*classMap, packet);
         }
      }
      return std::nullopt;
   }

 private:
   using ActionType = PolicyMap::ActionType;

   bool belongs(const PolicyMap::ClassMapSmCommonData& classMap,
                const Classification::StructuredFilter& filter, const Packet& packet) const {
      if (!inAnyPrefix(filter.source(), packet.sourceAddress()) ||
          !inAnyPrefix(filter.destination(), packet.destinationAddress()) ||
          !protocolsMatch(filter, packet)) {
         return false;
      }
      const auto sample = filter.tcpUdpCheckSumOrIpId();
      return sample == nullptr || !classMap.actionHas(ActionType::sample) ||
             sampleMatches(*sample, packet);
   }

   template <class Prefixes>
   static bool inAnyPrefix(const Prefixes& prefixes, std::span<const U8> address) {
      bool empty = true;
      for (const auto& prefix : prefixes) {
         if (inPrefix(prefix, address)) {
            return true;
         }
         empty = false;
      }
      return empty;
   }

   bool protocolsMatch(const Classification::StructuredFilter& filter, const Packet& packet) const {
      if (filter.protoFields() == 0) {
         return !differences_.noProtocolMeansTcpAndUdp || packet.protocol == 6 ||
                packet.protocol == 17;
      }
      for (const auto& field : filter.protoField()) {
         if (inRange(field.key(), packet.protocol) && fieldMatches(*field.value(), packet)) {
            return true;
         }
      }
      return false;
   }

   bool fieldMatches(const Classification::ProtoField& field, const Packet& packet) const {
      bool flags = field.tcpFlags() == 0 || differences_.tcpFlagsAreIgnored;
      for (const auto& match : field.tcpFlag()) {
         flags = flags || flagsMatch(match, packet.tcpFlags);
      }
      bool ports = field.ports() == 0;
      for (const auto& entry : field.port()) {
         ports = ports || entryMatches(*entry.value(), packet);
      }
      return flags && ports;
   }

   static bool entryMatches(const Classification::PortField& entry, const Packet& packet) {
      return (entry.sports() != 0 || entry.dports() != 0) && // without any range: nothing
             inAnyRange(entry.sport(), packet.sourcePort) &&
             inAnyRange(entry.dport(), packet.destinationPort);
   }

   // A side without ranges matches every port.
   template <class Ranges>
   static bool inAnyRange(const Ranges& ranges, const std::optional<U16>& port) {
      bool matches = ranges.begin() == ranges.end();
      for (const auto& range : ranges) {
         matches = matches || (port && inRange(range, *port));
      }
      return matches;
   }

   static bool inRange(const Classification::NumericalRange& range, U32 number) {
      return number >= range.low() && number <= range.high();
   }

   Fate fate(const PolicyMap::ClassMapSmCommonData& classMap, const Packet& packet) const {
      const bool sampled =
            classMap.actionHas(ActionType::sample) || classMap.actionHas(ActionType::sampleAll);
      Fate fate{classMap.name().str(), sampled, packet.dscp};
      if (classMap.actionHas(ActionType::setDscp) && !differences_.dscpIsNotRewritten) {
         const auto action = Pello::dynamicCast<const PolicyMap::SetDscpAction>(
               Pello::Ptr<const PolicyMap::Action>{classMap.action(ActionType::setDscp)});
         fate.dscp = action->dscp().value();
      }
      return fate;
   }

   const PolicyMap::PolicyMapSmCommonData& policy_;
   Differences differences_;
};

} // namespace RulesClientTest
