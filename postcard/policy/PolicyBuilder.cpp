#include "postcard/policy/PolicyBuilder.h"

#include "Classification/StructuredFilter.h"
#include "PolicyMap/SetDscpAction.h"
#include "TrafficPolicy/TrafficPolicyClassMapSmCommonData.h"

#include <algorithm>
#include <utility>

namespace Postcard::Policy {

namespace {

using Classification::NumericalRange;
using PolicyMap::ActionType;
using PolicyMap::PolicyMapSmCommonData;
using TrafficPolicy::TrafficPolicyClassMapSmCommonData;

// The plain values have kinds of their own, because the numbers of `ActionType` belong to the
// platform and have gaps.
constexpr std::pair<ActionKind, ActionType> actionTypes[] = {
      {ActionKind::sample, ActionType::sample},
      {ActionKind::sampleAll, ActionType::sampleAll},
      {ActionKind::setDscp, ActionType::setDscp},
      {ActionKind::permit, ActionType::permit},
      {ActionKind::drop, ActionType::drop},
      {ActionKind::count, ActionType::count},
      {ActionKind::police, ActionType::police},
      {ActionKind::redirect, ActionType::redirect},
      {ActionKind::mirror, ActionType::mirror},
      {ActionKind::setTrafficClass, ActionType::setTrafficClass},
      {ActionKind::setVlan, ActionType::setVlan},
      {ActionKind::log, ActionType::log},
      {ActionKind::nat, ActionType::nat},
};
// A kind without a row would make `actionTypeOf` read past the table.
static_assert(std::size(actionTypes) == static_cast<std::size_t>(ActionKind::nat) + 1);

ActionType actionTypeOf(ActionKind kind) {
   return std::ranges::find(actionTypes, kind, &std::pair<ActionKind, ActionType>::first)->second;
}

Pello::Ptr<PolicyMap::Action> buildAction(const Action& action) {
   // The helper asserts that an action of this type is a `SetDscpAction`.
   if (action.kind == ActionKind::setDscp) {
      return new PolicyMap::SetDscpAction{Orlix::DscpValue{action.dscp}};
   }
   return new PolicyMap::Action{actionTypeOf(action.kind)};
}

NumericalRange buildRange(const NumberRange& range) {
   return {range.low, range.high};
}

// In the records the empty name stands for no set.
Pello::String nameOf(const std::optional<Name>& name) {
   return name ? Pello::String{name->text} : Pello::String{};
}

void buildPortEntry(Classification::PortField& field, const PortEntry& entry) {
   for (const NumberRange& range : entry.source) {
      field.sportIs(buildRange(range));
   }
   for (const NumberRange& range : entry.destination) {
      field.dportIs(buildRange(range));
   }
   field.sportFieldSetIs(nameOf(entry.sourceSet));
   field.dportFieldSetIs(nameOf(entry.destinationSet));
}

// Port entries are numbered in file order, because the helper makes rules in the order of the
// numbers.
void buildProtocol(Classification::StructuredFilter& filter, const ProtocolMatch& match) {
   const auto field = filter.protoFieldIs(NumericalRange{match.low, match.high});
   U32 id = 0;
   for (const PortEntry& entry : match.ports) {
      buildPortEntry(*field->portIs(id++), entry);
   }
   for (const TcpFlagMatch& flags : match.tcpFlags) {
      field->tcpFlagIs(Classification::TcpFlagAndMask{flags.flags, flags.mask});
   }
   for (const IcmpType& icmp : match.icmpTypes) {
      field->icmpTypeIs(icmp.type);
   }
}

void buildSample(Classification::StructuredFilter& filter, const SampleMatch& match) {
   // The name is required and carries no meaning.
   const auto sample = filter.tcpUdpCheckSumOrIpIdIs("sample");
   sample->dataIs(match.data);
   sample->maskIs(match.mask);
   sample->versionIs(match.field == SampleField::ipId ? Classification::sampleVersionIpId
                                                      : Classification::sampleVersionChecksum);
}

void buildAddresses(Classification::StructuredFilter& filter, const Filter& from) {
   for (const Prefix& prefix : from.source) {
      filter.sourceIs(prefix.value);
   }
   for (const Prefix& prefix : from.destination) {
      filter.destinationIs(prefix.value);
   }
   for (const Prefix& prefix : from.sourceExcept) {
      filter.sourceExceptIs(prefix.value);
   }
   for (const Prefix& prefix : from.destinationExcept) {
      filter.destinationExceptIs(prefix.value);
   }
   filter.sourcePrefixSetIs(nameOf(from.sourcePrefixSet));
   filter.destinationPrefixSetIs(nameOf(from.destinationPrefixSet));
}

void buildFilter(Classification::StructuredFilter& filter, const Filter& from) {
   buildAddresses(filter, from);
   if (from.payloadLength) {
      filter.payloadLengthIs(buildRange(*from.payloadLength));
   }
   if (from.ipTtl) {
      filter.ipTtlIs(buildRange(*from.ipTtl));
   }
   if (from.fragments) {
      filter.fragmentsIs();
   }
   filter.ipOptionsIs(from.ipOptions);
   filter.protocolIs(from.protocol);
   filter.protocolNeighborIs(from.protocolNeighbor);
   if (from.sample) {
      buildSample(filter, *from.sample);
   }
   for (const ProtocolMatch& match : from.protocols) {
      buildProtocol(filter, match);
   }
}

// Adds the filter and the priority of `from` to the records, when it takes part in `family`.
//
// The helper finds the filter through the key in the priorities: it looks up the filter collection
// that the key names, asserts that it holds exactly one filter, and reads the one with number 0.
void buildFamily(PolicyMapSmCommonData& policy, TrafficPolicyClassMapSmCommonData& classData,
                 const Class& from, Family family) {
   const Filter* filter = from.filter(family);
   if (filter == nullptr) {
      return;
   }
   const Pello::String collection{familyName(family)};
   buildFilter(*classData.aclStructuredFilterIs(collection)->filterIs(0), *filter);
   const PolicyMap::AclRuleKey key{policy.key(), classData.name(), collection, 0,
                                   matchOptionOf(family)};
   policy.rulePriorityIs(static_cast<Acl::AclType>(family))
         ->entryIs(PolicyMap::RulePriority{from.priority}, key);
}

void buildClass(PolicyMapSmCommonData& policy, const Class& from) {
   const Pello::Ptr<TrafficPolicyClassMapSmCommonData> classData{
         new TrafficPolicyClassMapSmCommonData{from.name.text}};
   for (const Action& action : from.actions) {
      classData->actionIs(buildAction(action));
   }
   buildFamily(policy, *classData, from, Family::ipv4);
   buildFamily(policy, *classData, from, Family::ipv6);
   policy.classDataIs(classData);
}

} // namespace

PolicyMap::ClassMapMatchOption matchOptionOf(Family family) {
   return family == Family::ipv4 ? PolicyMap::matchIpAccessGroup()
                                 : PolicyMap::matchIpv6AccessGroup();
}

Pello::Ptr<PolicyMapSmCommonData> buildPolicy(const Policy& policy) {
   Pello::Ptr<PolicyMapSmCommonData> data{
         new PolicyMapSmCommonData{PolicyMap::PolicyMapSmKey{policy.name.text, policy.scope}}};
   // Priority data is made for each family with interfaces, even when no class takes part in it:
   // the helper asserts that the data is there when it creates the policy for the family.
   for (const Name& intf : policy.ipv4Interfaces) {
      data->intf4Is(Orlix::IntfId{intf.text});
      data->rulePriorityIs(Acl::AclType::ipv4);
   }
   for (const Name& intf : policy.ipv6Interfaces) {
      data->intf6Is(Orlix::IntfId{intf.text});
      data->rulePriorityIs(Acl::AclType::ipv6);
   }
   for (const Class& from : policy.classes) {
      buildClass(*data, from);
   }
   return data;
}

Pello::Ptr<PostcardTelemetry::HwCapability> buildHwCapability(const Hardware& hardware) {
   Pello::Ptr<PostcardTelemetry::HwCapability> capability{new PostcardTelemetry::HwCapability};
   capability->tcpFlagsSupportedIs(hardware.tcpFlags);
   return capability;
}

} // namespace Postcard::Policy
