#include "postcard/policy/PolicyBuilder.h"

#include "Classification/StructuredFilter.h"
#include "FeatureToggle/FeatureToggle.h"
#include "PolicyMap/SetDscpAction.h"
#include "TrafficPolicy/TrafficPolicyClassMapSmCommonData.h"

#include <span>

namespace Postcard::Policy {

namespace {

using Classification::NumericalRange;
using PolicyMap::ActionType;
using PolicyMap::PolicyMapSmCommonData;
using TrafficPolicy::TrafficPolicyClassMapSmCommonData;

ActionType actionTypeOf(ActionKind kind) {
   switch (kind) {
   case ActionKind::sample:
      return ActionType::sample;
   case ActionKind::sampleAll:
      return ActionType::sampleAll;
   case ActionKind::setDscp:
      return ActionType::setDscp;
   case ActionKind::permit:
      return ActionType::permit;
   case ActionKind::drop:
      return ActionType::drop;
   case ActionKind::count:
      return ActionType::count;
   case ActionKind::police:
      return ActionType::police;
   case ActionKind::redirect:
      return ActionType::redirect;
   case ActionKind::mirror:
      return ActionType::mirror;
   case ActionKind::setTrafficClass:
      return ActionType::setTrafficClass;
   case ActionKind::setVlan:
      return ActionType::setVlan;
   case ActionKind::log:
      return ActionType::log;
   case ActionKind::nat:
      return ActionType::nat;
   }
   return ActionType::permit; // not reached: every kind is listed
}

Pello::Ptr<PolicyMap::Action> buildAction(const Action& action) {
   if (action.kind == ActionKind::setDscp) {
      return new PolicyMap::SetDscpAction{Orlix::DscpValue{action.dscp}};
   }
   return new PolicyMap::Action{actionTypeOf(action.kind)};
}

Orlix::IpGenPrefix buildPrefix(const Prefix& prefix) {
   const bool isIpv4 = prefix.family == Family::ipv4;
   const auto family = isIpv4 ? Orlix::AddressFamily::ipv4 : Orlix::AddressFamily::ipv6;
   return {family, std::span{prefix.address}.first(isIpv4 ? 4 : 16), prefix.length};
}

NumericalRange buildRange(const NumberRange& range) {
   return {range.low, range.high};
}

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
   const auto sample = filter.tcpUdpCheckSumOrIpIdIs("sample");
   sample->dataIs(match.data);
   sample->maskIs(match.mask);
   sample->versionIs(match.field == SampleField::ipId ? Classification::sampleVersionIpId
                                                      : Classification::sampleVersionChecksum);
}

void buildAddresses(Classification::StructuredFilter& filter, const Filter& from) {
   for (const Prefix& prefix : from.source) {
      filter.sourceIs(buildPrefix(prefix));
   }
   for (const Prefix& prefix : from.destination) {
      filter.destinationIs(buildPrefix(prefix));
   }
   for (const Prefix& prefix : from.sourceExcept) {
      filter.sourceExceptIs(buildPrefix(prefix));
   }
   for (const Prefix& prefix : from.destinationExcept) {
      filter.destinationExceptIs(buildPrefix(prefix));
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

// The class's filter and its place among the others, in one family.
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

void applyFeatureToggles(const ToggleMap& toggles) {
   for (const auto& [name, on] : toggles) {
      FeatureToggle::toggleOverrideIs(name, on);
   }
}

} // namespace Postcard::Policy
