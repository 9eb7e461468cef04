// `OruPostcardPolicyAclHelper`: the object that a switch's policy agent talks to. It turns each
// policy, in each address family, into one ACL configuration, tells the rules client when one has
// changed, and keeps the answers. It owns every ACL configuration that it makes. Relies on the data
// model and on the platform.
//
// The sources of this folder each implement a few of its operations. A policy passes through them
// in this order: PolicyLifecycle (create, commit, delete, re-create), AclConfigs (the configuration
// and its key), InterfaceBinding, ClassMapWalk with FilterCheck; then for each class
// RuleConstruction, ProtocolExpansion and PortExpansion. RulesClientRequest posts the
// configuration, PolicyStatus takes the answer, ShowOutput prints everything.
//
// All operations run on the agent's single thread. A caller that breaks a contract ends the
// process, after a trace at level 0 where the operation has one. What an operator may have
// configured never does: it is reported as text. Counted references passed as arguments must not be
// null, unless an operation says otherwise.
#pragma once

#include "Classification/ProtoField.h"
#include "Classification/StructuredFilter.h"
#include "Kiv/HashMap2018.h"
#include "Kiv/Operation.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfig.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RulesClientSm.h"
#include "PolicyMap/PolicyMapAclHelper.h"
#include "PostcardTelemetry/HwCapability.h"
#include "TrafficPolicy/TrafficPolicyClassMapSmCommonData.h"

namespace OruPostcardTelemetry {

class PortNames;

class OruPostcardPolicyAclHelper : public PolicyMap::PolicyMapAclHelper {
   KIV_ENTITY(OruPostcardPolicyAclHelper, PolicyMap::PolicyMapAclHelper,
              "OruPostcardTelemetry::OruPostcardPolicyAclHelper");
   // The request record, which this helper writes and the rules client reads. Null: the helper has
   // none, and no operation may post a request.
   KIV_CONSTANT(258, Pello::Ptr<PostcardTelemetryRulesClientSmConfig>, clientConfig);
   // What the hardware can match. Null: it does not match TCP flags.
   KIV_CONSTANT(259, Pello::Ptr<const PostcardTelemetry::HwCapability>, hwCapability);
   // The ACL configurations by their key. `aclConfigCollIs(key)` makes one where there is none.
   // Insertions and removals are published.
   KIV_COLLECTION(260, aclConfigColl,
                  Kiv::HashMap2018<Pello::String, PostcardTelemetryAclConfig,
                                   &PostcardTelemetryAclConfig::aclConfigKey, 0xf5fef739>);

 public:
   using MatchOption = PolicyMap::ClassMapMatchOption;
   using AclConfigPtr = Pello::Ptr<PostcardTelemetryAclConfig>;
   using RulePtr = Pello::Ptr<RuleConfig>;
   using FilterPtr = Pello::Ptr<const Classification::StructuredFilter>;
   using ProtoFieldPtr = Pello::Ptr<const Classification::ProtoField>;
   using TrafficClassDataPtr = Pello::Ptr<const TrafficPolicy::TrafficPolicyClassMapSmCommonData>;

   // Takes a counted reference to each record; each may be null (see the attributes above).
   OruPostcardPolicyAclHelper(Pello::Ptr<PostcardTelemetryRulesClientSmConfig> clientConfig,
                              Pello::Ptr<const PostcardTelemetry::HwCapability> hwCapability);
   // Removes the ACL configurations one by one, each removal published.
   ~OruPostcardPolicyAclHelper() override;

   // Sets the switches of the base class.
   void hwInit() override;

   // PolicyLifecycle. Each returns the empty text on success, otherwise a message for the operator.
   // `matchOption` must be the IPv4 or the IPv6 access group; the process ends for any other.
   //
   // Builds the configuration of a policy that has none yet, with the interfaces attached to the
   // policy (at least one) and its rules. Posts nothing. After a message the configuration stays,
   // with the rules built so far.
   Kiv::String createPolicy(const PolicyDataPtr& policyData, MatchOption matchOption) override;
   // Replaces the configuration of a policy, which must exist, by a new one, which inherits the
   // flags and the history. Posts nothing.
   Kiv::String recreatePolicy(const PolicyDataPtr& policyData, MatchOption matchOption) override;
   // Removes the configuration; posts `policyDelete` before, if the rules client knows it. A policy
   // without configuration gives a message.
   Kiv::String deletePolicy(const PolicyDataPtr& policyData, MatchOption matchOption) override;
   // Posts `policyCreate`, or `policyUpdate` when the rules client knows the configuration, which
   // must exist. Without rules nothing is posted, and that is a success.
   Kiv::String commitPolicy(const PolicyDataPtr& policyData, MatchOption matchOption) override;

   // InterfaceBinding, with results as above; the configuration must exist. Enters the interface
   // into the configuration, or removes it. Posts `policyIntfUpdate` when the policy is programmed;
   // otherwise returns the latest text of the history or, without one, a message that the policy is
   // not committed. A configuration without rules is left as it is.
   Kiv::String addIntfToPolicy(const PolicyDataPtr& policyData, Orlix::IntfId intf,
                               Orlix::IntfId logicalIntf, L3::VrfName vrfName,
                               MatchOption matchOption) override;
   Kiv::String removeIntfFromPolicy(const PolicyDataPtr& policyData, Orlix::IntfId intf,
                                    Orlix::IntfId logicalIntf, L3::VrfName vrfName,
                                    MatchOption matchOption) override;

   // The operations below follow those of the base class in the table of virtual operations, in
   // this order, on which agents built elsewhere rely: new ones are added at the end.

   // RuleConstruction: adds the actions of the class to those of the rule. A set-DSCP action must
   // be a `PolicyMap::SetDscpAction`, else the process ends; its DSCP is entered with the mask
   // 0x3f. Actions that rules cannot carry out are passed over.
   virtual void updateRuleAction(const ClassDataPtr& classData, const RulePtr& ruleConfig);
   // RuleConstruction: whether rules go without the class's sample match. They do unless the class
   // has the plain sample action, which alone asks for a share of the packets.
   virtual bool ignoreSampleData(const ClassDataPtr& classData);
   // PortExpansion: makes a copy of `ruleConfig` with the valid ones of the two port matches, at
   // `nextRuleIndex`; with `tcpFlagAvailable`, one such rule for each TCP-flag match of the
   // protocol field instead. Returns the next free index.
   virtual U32 addRulesL4PortDataMask(const ProtoFieldPtr& protoField, const RulePtr& ruleConfig,
                                      const AclConfigPtr& aclConfig, bool sportDataMaskValid,
                                      L4PortDataMask sportDataMask, bool dportDataMaskValid,
                                      L4PortDataMask dportDataMask, bool tcpFlagAvailable,
                                      U32 nextRuleIndex);
   // ProtocolExpansion: makes the rules of the filter `sf` in one protocol, as copies of the
   // template `ruleConfig`, from `nextRuleIndex` on. `proto` is 6 (TCP) or 17 (UDP). Returns the
   // next free index.
   virtual U32 addRulesProtoField(const AclConfigPtr& aclConfig, const RulePtr& ruleConfig,
                                  const FilterPtr& sf, U8 proto, U32 nextRuleIndex);
   // RuleConstruction: makes all rules of one class, from `nextRuleIndex` on. `key` must be among
   // the policy's rule priorities, and the class must have the filter that `key` names, with a
   // sample mask other than 0 where it has a sample match. Returns the next free index.
   virtual U32 addRules(const PolicyMap::AclRuleKey& key, const PolicyDataPtr& policyData,
                        const TrafficClassDataPtr& classMapData, const AclConfigPtr& aclConfig,
                        U32 nextRuleIndex);
   // AclConfigs: makes the ACL configuration of the policy, which must not exist yet, with its
   // family and an empty history.
   virtual AclConfigPtr createAclConfig(const PolicyDataPtr& policyData, MatchOption matchOption);
   // AclConfigs: removes the ACL configuration of the policy, which must exist.
   virtual void deleteAclConfig(const PolicyDataPtr& policyData, MatchOption matchOption);
   // AclConfigs: returns the key of the policy's configuration, whether or not there is one. The
   // key depends on the policy's name and the family alone. Two policies that differ in their
   // scopes only have the same key, so they cannot both have a configuration.
   virtual Pello::String getAclConfigKey(const PolicyDataPtr& policyData, MatchOption matchOption);
   // ClassMapWalk: fills the ACL configuration of the policy, which must exist, with the rules of
   // all classes, in the order of their priorities. Returns the empty text, or why a class cannot
   // be expressed; the rules of the classes before it stay. When the rule priorities are empty,
   // returns a text that begins with "No rules configured in policy".
   //
   // The policy must have a `RulePriorityData` for the family. Each key in it must name a class of
   // the policy that is a `TrafficPolicyClassMapSmCommonData`, and the filter collection that the
   // key names must hold exactly one filter, with the identifier 0.
   virtual Kiv::String updateRulesInAclConfig(const PolicyDataPtr& policyData,
                                              MatchOption matchOption);
   // InterfaceBinding: enters the interface into the configuration, or removes it. Posts nothing.
   virtual void updateIntfInAclConfig(const AclConfigPtr& aclConfig, Orlix::IntfId intf,
                                      bool remove);
   // PolicyStatus: records the rules client's answer in the configuration that the latest request
   // was about, which must still be here. Returns the text to show to the operator: empty for a
   // success, otherwise `statusString`.
   virtual Kiv::String updatePolicyStatus(PostcardTelemetryRulesClientSmStatusType policyStatus,
                                          const Pello::String& statusString);
   // ShowOutput: writes all ACL configurations as text to the file descriptor `socket`, which stays
   // open. Errors of writing are ignored.
   virtual void showPostcardAcl(U32 socket) const;

   // RulesClientRequest: writes a request into the request record, which must not be null. An empty
   // `intf` leaves the record's interface as it is. The request counter changes last.
   void updateRulesClientConfig(PostcardTelemetryRulesClientSmEvent event,
                                const AclConfigPtr& aclConfig, Orlix::IntfId intf);

   // PortExpansion: makes the rules of the protocol field's port entries, as copies of
   // `ruleConfig`; with `expandTcpFlags`, one for each TCP-flag match too. Returns the next free
   // index.
   U32 addRulesPortField(const ProtoFieldPtr& protoField, const RulePtr& ruleConfig,
                         const AclConfigPtr& aclConfig, bool expandTcpFlags, U32 nextRuleIndex);
   // PortExpansion: makes one copy of `ruleConfig` for each TCP-flag match of the protocol field,
   // none of which may have the mask 0, and removes the name of `ruleConfig`. Returns the next free
   // index.
   U32 addRulesTcpFlagField(const ProtoFieldPtr& protoField, const RulePtr& ruleConfig,
                            const AclConfigPtr& aclConfig, U32 nextRuleIndex);

   // The table of the operations that can be called by name.
   using KivOperationsOf = OruPostcardPolicyAclHelper;
   static constexpr auto kivOperations();

 private:
   // Steps of the operations above. The traces of a step name the operation and not the step. Where
   // two operations share a step, the template argument says which one it is.
   //
   // PolicyLifecycle.
   template <class Operation>
   void addAttachedInterfaces(const PolicyDataPtr& policyData, MatchOption matchOption,
                              const AclConfigPtr& aclConfig);
   void carryHistoryOver(const PostcardTelemetryAclConfig& oldConfig,
                         PostcardTelemetryAclConfig& newConfig);
   template <class Operation>
   Kiv::String finishRuleGeneration(const Kiv::String& status);
   void asyncOutcome(const Kiv::String& status);
   // InterfaceBinding.
   template <class Change>
   Kiv::String changeIntf(const PolicyDataPtr& policyData, Orlix::IntfId intf,
                          Orlix::IntfId logicalIntf, const L3::VrfName& vrfName,
                          MatchOption matchOption);
   template <class Change>
   Kiv::String uncommittedIntfChange(const PolicyDataPtr& policyData, MatchOption matchOption,
                                     const AclConfigPtr& aclConfig);
   // ClassMapWalk.
   Kiv::String walkClasses(const PolicyMap::RulePriorityData& rules,
                           const PolicyDataPtr& policyData, Acl::AclType aclType,
                           const AclConfigPtr& aclConfig);
   // RuleConstruction.
   static void setDscp(RuleAction& ruleAction, const Pello::Ptr<PolicyMap::Action>& action);
   void setSampleMatch(const Classification::StructuredFilter& filter,
                       const ClassDataPtr& classData, RuleFilter& ruleFilter);
   U32 addRulesOfProtocols(const AclConfigPtr& aclConfig, const RulePtr& rule, const FilterPtr& sf,
                           U32 nextRuleIndex);
   // PortExpansion.
   U32 addRulesPortEntry(const Classification::PortField& entry, const ProtoFieldPtr& protoField,
                         const RulePtr& ruleConfig, const AclConfigPtr& aclConfig,
                         bool expandTcpFlags, U32 nextRuleIndex);
   U32 addLoneRule(const ProtoFieldPtr& protoField, const RulePtr& ruleConfig,
                   const AclConfigPtr& aclConfig, bool sportDataMaskValid,
                   L4PortDataMask sportDataMask, bool dportDataMaskValid,
                   L4PortDataMask dportDataMask, bool tcpFlagAvailable, U32 nextRuleIndex);

   // PortExpansion: what the names of the rules being made have in common. Not owned; null while no
   // port entry is being expanded. Not an argument, because `addRulesL4PortDataMask` is a virtual
   // operation whose arguments others know.
   PortNames* portNames_ = nullptr;
};

constexpr auto OruPostcardPolicyAclHelper::kivOperations() {
   using Self = OruPostcardPolicyAclHelper;
   return std::tuple{
         Kiv::operation("updateRuleAction", &Self::updateRuleAction, {"classData", "ruleConfig"}),
         Kiv::operation("ignoreSampleData", &Self::ignoreSampleData, {"classData"}),
         Kiv::operation("addRulesL4PortDataMask", &Self::addRulesL4PortDataMask,
                        {"protoField", "ruleConfig", "aclConfig", "sportDataMaskValid",
                         "sportDataMask", "dportDataMaskValid", "dportDataMask", "tcpFlagAvailable",
                         "nextRuleIndex"}),
         Kiv::operation("addRulesProtoField", &Self::addRulesProtoField,
                        {"aclConfig", "ruleConfig", "sf", "proto", "nextRuleIndex"}),
         Kiv::operation("addRules", &Self::addRules,
                        {"key", "policyData", "classMapData", "aclConfig", "nextRuleIndex"}),
         Kiv::operation("createAclConfig", &Self::createAclConfig, {"policyData", "matchOption"}),
         Kiv::operation("deleteAclConfig", &Self::deleteAclConfig, {"policyData", "matchOption"}),
         Kiv::operation("getAclConfigKey", &Self::getAclConfigKey, {"policyData", "matchOption"}),
         Kiv::operation("updateRulesInAclConfig", &Self::updateRulesInAclConfig,
                        {"policyData", "matchOption"}),
         Kiv::operation("updateIntfInAclConfig", &Self::updateIntfInAclConfig,
                        {"aclConfig", "intf", "remove"}),
         Kiv::operation("updatePolicyStatus", &Self::updatePolicyStatus,
                        {"policyStatus", "statusString"}),
         Kiv::operation("showPostcardAcl", &Self::showPostcardAcl, {"socket"}),
   };
}

// Both return a new helper. The records may be null (see the class's attributes).
Pello::Ptr<OruPostcardPolicyAclHelper> oruPostcardPolicyAclHelperFactory(
      const Pello::Ptr<PostcardTelemetryRulesClientSmConfig>& clientConfig,
      const Pello::Ptr<const PostcardTelemetry::HwCapability>& hwCapability);
inline Pello::Ptr<OruPostcardPolicyAclHelper> OruPostcardPolicyAclHelperIs(
      const Pello::Ptr<PostcardTelemetryRulesClientSmConfig>& clientConfig,
      const Pello::Ptr<const PostcardTelemetry::HwCapability>& hwCapability) {
   return oruPostcardPolicyAclHelperFactory(clientConfig, hwCapability);
}

} // namespace OruPostcardTelemetry
