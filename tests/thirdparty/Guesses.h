#pragma once

// Set-up calls of the platform around the library: what the agent does before it calls the helper,
// how one listens to a record, how the framework's texts look. Each spelling stands here once, so
// that a correction is a correction of one line; the sources beside this one use these functions.

#include "Acl/AclType.h"
#include "Classification/NumericalRange.h"
#include "Classification/ProtoField.h"
#include "Classification/StructuredFilter.h"
#include "Classification/TcpFlagAndMask.h"
#include "Classification/TcpUdpCheckSumOrIpId.h"
#include "Kiv/String.h"
#include "L3/VrfName.h"
#include "Orlix/DscpValue.h"
#include "Orlix/IntfId.h"
#include "Orlix/IpGenPrefix.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes.h"
#include "Pello/Ptr.h"
#include "Pello/Publisher.h"
#include "Pello/String.h"
#include "PolicyMap/AclRuleKey.h"
#include "PolicyMap/Action.h"
#include "PolicyMap/ActionType.h"
#include "PolicyMap/AsyncOperationResult.h"
#include "PolicyMap/ClassMapMatchOption.h"
#include "PolicyMap/ClassMapSmCommonData.h"
#include "PolicyMap/PolicyMapSmCommonData.h"
#include "PolicyMap/PolicyMapSmKey.h"
#include "PolicyMap/RulePriorityData.h"
#include "PolicyMap/SetDscpAction.h"
#include "PostcardTelemetry/HwCapability.h"
#include "TrafficPolicy/TrafficPolicyClassMapSmCommonData.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>

namespace thirdparty {

namespace Oru = OruPostcardTelemetry;

using PolicyData = PolicyMap::PolicyMapSmCommonData;
using ClassData = TrafficPolicy::TrafficPolicyClassMapSmCommonData;
using Capability = PostcardTelemetry::HwCapability;
using Filter = Classification::StructuredFilter;
using ProtoField = Classification::ProtoField;
using MatchOption = PolicyMap::ClassMapMatchOption;

// ---- Texts -------------------------------------------------------------------------------------

template <typename String>
std::string text(const String& value) {
   std::string out = value;
   return out;
}

template <typename Value>
std::string streamed(const Value& value) {
   std::ostringstream out{};
   out << value;
   return out.str();
}

// The framework's text of a boolean.
inline std::string boolText(bool value) {
   return value ? "true" : "false";
}

// What the show command prints for a prefix that nobody has set.
inline std::string unsetPrefixText() {
   return "0.0.0.0/0";
}

// The message of the exception that the action raises; empty when it raises none.
template <typename Action>
std::string raised(Action action) {
   try {
      action();
   } catch (const std::exception& error) {
      return error.what();
   }
   return "";
}

// Reads an enumerator's name from a range of characters.
template <typename Enumeration>
Enumeration fromName(std::string_view name) {
   Enumeration value{};
   sequenceToValue(name, value);
   return value;
}

// ---- Values of the platform ---------------------------------------------------------------------

inline Orlix::IntfId intf(const char* name) {
   return Orlix::IntfId{Pello::String{name}};
}

inline Orlix::IpGenPrefix prefix(const char* spelled) {
   return Orlix::IpGenPrefix{Pello::String{spelled}};
}

inline L3::VrfName vrf(const char* name) {
   return L3::VrfName{name};
}

inline Classification::TcpFlagAndMask tcpFlags(std::uint8_t flag, std::uint8_t mask) {
   return Classification::TcpFlagAndMask{flag, mask};
}

inline Classification::NumericalRange range(std::uint32_t low, std::uint32_t high) {
   return Classification::NumericalRange{low, high};
}

inline MatchOption ipv4() {
   return PolicyMap::matchIpAccessGroup();
}
inline MatchOption ipv6() {
   return PolicyMap::matchIpv6AccessGroup();
}
inline MatchOption unsupportedOption() {
   return static_cast<MatchOption>(7);
}

inline Acl::AclType aclType(unsigned number) {
   return static_cast<Acl::AclType>(number);
}

// ---- References and creators --------------------------------------------------------------------

// Takes a new object into a counted reference.
template <typename Entity>
Pello::Ptr<Entity> adopt(Entity* object) {
   return Pello::Ptr<Entity>{object};
}

// The creators stand beside the type they create.
inline auto createdRule(const char* name) {
   return Oru::RuleConfigIs(name);
}
inline auto createdFilter() {
   return Oru::RuleFilterIs();
}
inline auto createdAction() {
   return Oru::RuleActionIs();
}
inline auto createdConfig(const char* key) {
   return Oru::PostcardTelemetryAclConfigIs(key);
}
inline auto createdStatus() {
   return Oru::PostcardTelemetryAclConfigStatusIs();
}
inline auto createdRequest() {
   return Oru::PostcardTelemetryRulesClientSmConfigIs();
}
inline auto createdAnswer() {
   return Oru::PostcardTelemetryRulesClientSmStatusIs();
}
inline auto createdHelper(const Pello::Ptr<Oru::PostcardTelemetryRulesClientSmConfig>& request,
                          const Pello::Ptr<const Capability>& capability) {
   return Oru::OruPostcardPolicyAclHelperIs(request, capability);
}

// ---- Collections: the whole one behind the lookup by key ----------------------------------------

inline decltype(auto) rulesByName(const Oru::PostcardTelemetryAclConfig& config) {
   return config.ruleByName();
}
inline decltype(auto) rulesByIndex(const Oru::PostcardTelemetryAclConfig& config) {
   return config.ruleByIndex();
}
inline decltype(auto) interfaces(const Oru::PostcardTelemetryAclConfig& config) {
   return config.policyIntf();
}
inline decltype(auto) texts(const Oru::PostcardTelemetryAclConfigStatus& status) {
   return status.statusInOrder();
}
inline decltype(auto) actions(const Oru::RuleAction& action) {
   return action.action();
}
inline decltype(auto) configs(const Oru::OruPostcardPolicyAclHelper& helper) {
   return helper.aclConfigColl();
}

template <typename Collection>
std::size_t count(const Collection& collection) {
   return collection.size();
}

// ---- Listening to a record ----------------------------------------------------------------------

struct Change {
   unsigned identifier{0};
   std::string key{};
   std::string oldValue{};
};

// The text of the value behind a view, which is of one of `Types`; empty for an empty view and for
// counted references, which have no text.
template <typename... Types>
std::string viewed(const Pello::ValueView& view) {
   std::string out{};
   ((view.as<Types>() != nullptr ? void(out = streamed(*view.as<Types>())) : void()), ...);
   return out;
}

// Calls the watcher once per published change for as long as the returned subscription is kept.
inline auto subscribe(Pello::Publisher* publisher, std::function<void(const Change&)> watcher) {
   return publisher->subscribe([watcher](const Pello::Change& change) {
      watcher(Change{change.attribute, viewed<Pello::String>(change.key),
                     viewed<Pello::String, std::uint32_t, Orlix::IntfId,
                            Oru::PostcardTelemetryRulesClientSmEvent,
                            Oru::PostcardTelemetryRulesClientSmStatusType>(change.oldValue)});
   });
}

// ---- The agent's records ------------------------------------------------------------------------

inline Pello::Ptr<const Capability> capability(bool tcpFlagsSupported) {
   const Pello::Ptr<Capability> record{new Capability{}};
   record->tcpFlagsSupportedIs(tcpFlagsSupported);
   return record;
}

inline Pello::Ptr<PolicyData> makePolicy(const char* name, const char* group = "") {
   return new PolicyData{PolicyMap::PolicyMapSmKey{Pello::String{name}, Pello::String{group}}};
}

inline PolicyMap::PolicyMapSmKey keyOf(const Pello::Ptr<PolicyData>& policy) {
   return policy->key();
}

inline std::string description(const Pello::Ptr<PolicyData>& policy) {
   return text(keyOf(policy).strDesc());
}

inline void attachIntf4(const Pello::Ptr<PolicyData>& policy, const char* name) {
   policy->intf4Is(intf(name));
}

inline void attachIntf6(const Pello::Ptr<PolicyData>& policy, const char* name) {
   policy->intf6Is(intf(name));
}

inline std::size_t intf4Count(const Pello::Ptr<PolicyData>& policy) {
   return policy->intf4s();
}
inline std::size_t intf6Count(const Pello::Ptr<PolicyData>& policy) {
   return policy->intf6s();
}

// Makes the policy's table of rule priorities for the family, which may stay without entries.
inline void addPriorityTable(const Pello::Ptr<PolicyData>& policy, MatchOption option) {
   policy->rulePriorityIs(Oru::matchOptionToAclType(option));
}

// The name under which the classes made here keep their filters.
inline constexpr const char* filterName{"filters"};

inline PolicyMap::AclRuleKey ruleKey(const Pello::Ptr<PolicyData>& policy, const char* className,
                                     MatchOption option) {
   return PolicyMap::AclRuleKey{keyOf(policy), className, filterName, 0, option};
}

struct Class {
   Pello::Ptr<ClassData> data{};
   Pello::Ptr<Filter> filter{};
};

// Adds a class with one filter that matches everything, at a place in the order of priorities.
inline Class addClass(const Pello::Ptr<PolicyData>& policy, MatchOption option, unsigned priority,
                      const char* name) {
   Class made{};
   made.data = new ClassData{name};
   made.filter = made.data->aclStructuredFilterIs(filterName)->filterIs(0);
   policy->classDataIs(made.data);
   policy->rulePriorityIs(Oru::matchOptionToAclType(option))
         ->entryIs(PolicyMap::RulePriority{priority}, ruleKey(policy, name, option));
   return made;
}

inline void addSecondFilter(const Class& made) {
   made.data->aclStructuredFilterIs(filterName)->filterIs(1);
}

// ---- A class's actions --------------------------------------------------------------------------

inline constexpr unsigned setDscp{7};
inline constexpr unsigned sample{18};
inline constexpr unsigned sampleAll{19};

inline void addAction(const Class& made, unsigned number) {
   made.data->actionIs(new PolicyMap::Action{static_cast<PolicyMap::ActionType>(number)});
}

inline void addSetDscp(const Class& made, std::uint8_t value) {
   made.data->actionIs(new PolicyMap::SetDscpAction{Orlix::DscpValue{value}});
}

// ---- A filter's matches -------------------------------------------------------------------------

inline void addSource(const Class& made, const char* spelled) {
   made.filter->sourceIs(prefix(spelled));
}
inline void addDestination(const Class& made, const char* spelled) {
   made.filter->destinationIs(prefix(spelled));
}
inline void addFragments(const Class& made) {
   made.filter->fragmentsIs();
}
inline void addIpOptions(const Class& made) {
   made.filter->ipOptionsIs(true);
}

inline void addSampleMatch(const Class& made, std::uint32_t data, std::uint32_t mask,
                           std::uint32_t version) {
   const auto match = made.filter->tcpUdpCheckSumOrIpIdIs("match");
   match->dataIs(data);
   match->maskIs(mask);
   match->versionIs(version);
}

inline Pello::Ptr<ProtoField> addProtocols(const Class& made, unsigned low, unsigned high) {
   return made.filter->protoFieldIs(range(low, high));
}

inline void addIcmpType(const Pello::Ptr<ProtoField>& field, unsigned type) {
   field->icmpTypeIs(static_cast<std::uint8_t>(type));
}

inline void addTcpFlags(const Pello::Ptr<ProtoField>& field, std::uint8_t flag, std::uint8_t mask) {
   field->tcpFlagIs(tcpFlags(flag, mask));
}

// Port entries are told apart by a number; ranges go to one entry until another number is used.
inline void addPortEntry(const Pello::Ptr<ProtoField>& field, unsigned entry) {
   field->portIs(entry);
}
inline void addSourcePorts(const Pello::Ptr<ProtoField>& field, unsigned entry, unsigned low,
                           unsigned high) {
   field->portIs(entry)->sportIs(range(low, high));
}
inline void addDestinationPorts(const Pello::Ptr<ProtoField>& field, unsigned entry, unsigned low,
                                unsigned high) {
   field->portIs(entry)->dportIs(range(low, high));
}
inline void nameSourcePortSet(const Pello::Ptr<ProtoField>& field, unsigned entry) {
   field->portIs(entry)->sportFieldSetIs("well-known");
}
inline void nameDestinationPortSet(const Pello::Ptr<ProtoField>& field, unsigned entry) {
   field->portIs(entry)->dportFieldSetIs("well-known");
}

// ---- What the helper told the agent -------------------------------------------------------------

inline std::string asyncStatus(const Oru::OruPostcardPolicyAclHelper& helper) {
   return text(helper.asyncOperationResult().status());
}

inline void asyncStatusIs(Oru::OruPostcardPolicyAclHelper& helper, const char* status) {
   helper.asyncOperationResultIs(PolicyMap::AsyncOperationResult{status, 0.0});
}

} // namespace thirdparty
