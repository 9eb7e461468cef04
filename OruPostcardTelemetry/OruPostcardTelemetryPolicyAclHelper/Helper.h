// `OruPostcardPolicyAclHelper`: the object that a switch's policy agent talks to. It turns each
// policy, in each address family, into one ACL configuration, tells the rules client when one has
// changed, and keeps the answers. Relies on the data model and on the platform; owns every ACL
// configuration it makes.
//
// One policy goes through the rooms of this folder in this order: PolicyLifecycle (create, commit,
// delete, re-create), Naming (its key), InterfaceBinding, ClassMapWalk with FilterCheck, then per
// class RuleConstruction, ProtocolExpansion and PortExpansion; RulesClientRequest posts it,
// PolicyStatus takes the answer, ShowOutput prints it.
//
// Everything runs on the agent's one thread. A broken contract of the caller ends the process after
// a trace at level 0; whatever a policy can contain is reported as text instead.
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

class OruPostcardPolicyAclHelper : public PolicyMap::PolicyMapAclHelper {
   KIV_ENTITY(OruPostcardPolicyAclHelper, PolicyMap::PolicyMapAclHelper,
              "OruPostcardTelemetry::OruPostcardPolicyAclHelper");
   // The request record, written by this helper and read by the rules client.
   KIV_CONSTANT(258, Pello::Ptr<PostcardTelemetryRulesClientSmConfig>, clientConfig);
   KIV_CONSTANT(259, Pello::Ptr<const PostcardTelemetry::HwCapability>, hwCapability);
   // The ACL configurations by their key. Insertions and removals are published.
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

   // Takes a reference to each record. Null is taken as it is; the operations that read the record
   // require it.
   OruPostcardPolicyAclHelper(Pello::Ptr<PostcardTelemetryRulesClientSmConfig> clientConfig,
                              Pello::Ptr<const PostcardTelemetry::HwCapability> hwCapability);
   // Removes the ACL configurations one by one, each removal published.
   ~OruPostcardPolicyAclHelper() override;

   void hwInit() override;

   // PolicyLifecycle. Each returns the empty text on success, else a message for the operator.
   Kiv::String createPolicy(const PolicyDataPtr& policyData, MatchOption matchOption) override;
   Kiv::String recreatePolicy(const PolicyDataPtr& policyData, MatchOption matchOption) override;
   Kiv::String deletePolicy(const PolicyDataPtr& policyData, MatchOption matchOption) override;
   Kiv::String commitPolicy(const PolicyDataPtr& policyData, MatchOption matchOption) override;

   // InterfaceBinding, with results as above.
   Kiv::String addIntfToPolicy(const PolicyDataPtr& policyData, Orlix::IntfId intf,
                               Orlix::IntfId logicalIntf, L3::VrfName vrfName,
                               MatchOption matchOption) override;
   Kiv::String removeIntfFromPolicy(const PolicyDataPtr& policyData, Orlix::IntfId intf,
                                    Orlix::IntfId logicalIntf, L3::VrfName vrfName,
                                    MatchOption matchOption) override;

   // The operations below follow those of the base class in the table of virtual operations, in
   // this order; like there, new ones are added at the end.

   // RuleConstruction: gives the rule the actions of the class.
   virtual void updateRuleAction(const ClassDataPtr& classData, const RulePtr& ruleConfig);
   // RuleConstruction: whether the class's sample match is dropped, because no action asks for it.
   virtual bool ignoreSampleData(const ClassDataPtr& classData);
   // PortExpansion: makes the rule of one pair of port matches. Returns the next free index.
   virtual U32 addRulesL4PortDataMask(const ProtoFieldPtr& protoField, const RulePtr& ruleConfig,
                                      const AclConfigPtr& aclConfig, bool sportDataMaskValid,
                                      L4PortDataMask sportDataMask, bool dportDataMaskValid,
                                      L4PortDataMask dportDataMask, bool tcpFlagAvailable,
                                      U32 nextRuleIndex);
   // ProtocolExpansion: makes the rules of one protocol from a template. Returns the next free
   // index.
   virtual U32 addRulesProtoField(const AclConfigPtr& aclConfig, const RulePtr& ruleConfig,
                                  const FilterPtr& sf, U8 proto, U32 nextRuleIndex);
   // RuleConstruction: makes all rules of one class. Returns the next free index.
   virtual U32 addRules(const PolicyMap::AclRuleKey& key, const PolicyDataPtr& policyData,
                        const TrafficClassDataPtr& classMapData, const AclConfigPtr& aclConfig,
                        U32 nextRuleIndex);
   // Naming: makes the ACL configuration of a policy, which must not exist yet; removes it; its
   // key.
   virtual AclConfigPtr createAclConfig(const PolicyDataPtr& policyData, MatchOption matchOption);
   virtual void deleteAclConfig(const PolicyDataPtr& policyData, MatchOption matchOption);
   virtual Pello::String getAclConfigKey(const PolicyDataPtr& policyData, MatchOption matchOption);
   // ClassMapWalk: fills the ACL configuration of the policy, which must exist, with rules. Returns
   // the empty text, or why the policy cannot be expressed.
   virtual Kiv::String updateRulesInAclConfig(const PolicyDataPtr& policyData,
                                              MatchOption matchOption);
   // InterfaceBinding: enters the interface into the configuration, or removes it.
   virtual void updateIntfInAclConfig(const AclConfigPtr& aclConfig, Orlix::IntfId intf,
                                      bool remove);
   // PolicyStatus: records the rules client's answer to the latest request. Returns the text to
   // show: empty for success.
   virtual Kiv::String updatePolicyStatus(PostcardTelemetryRulesClientSmStatusType policyStatus,
                                          const Pello::String& statusString);
   // ShowOutput: writes all ACL configurations to the open file descriptor `socket`.
   virtual void showPostcardAcl(U32 socket) const;

   // RulesClientRequest: posts a request. The counter changes last.
   void updateRulesClientConfig(PostcardTelemetryRulesClientSmEvent event,
                                const AclConfigPtr& aclConfig, Orlix::IntfId intf);

   // PortExpansion: the rules of a protocol's port entries, and of its TCP flags. Return the next
   // free index.
   U32 addRulesPortField(const ProtoFieldPtr& protoField, const RulePtr& ruleConfig,
                         const AclConfigPtr& aclConfig, bool expandTcpFlags, U32 nextRuleIndex);
   U32 addRulesTcpFlagField(const ProtoFieldPtr& protoField, const RulePtr& ruleConfig,
                            const AclConfigPtr& aclConfig, U32 nextRuleIndex);

   // The new operations by name.
   using KivOperationsOf = OruPostcardPolicyAclHelper;
   static constexpr auto kivOperations();

 private:
   // What these do is traced as the work of the operation that needs it. Where two operations share
   // one, the template argument tells them apart.
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

// Makes a new helper. The records may be null (see the constructor).
Pello::Ptr<OruPostcardPolicyAclHelper> oruPostcardPolicyAclHelperFactory(
      const Pello::Ptr<PostcardTelemetryRulesClientSmConfig>& clientConfig,
      const Pello::Ptr<const PostcardTelemetry::HwCapability>& hwCapability);
inline Pello::Ptr<OruPostcardPolicyAclHelper> OruPostcardPolicyAclHelperIs(
      const Pello::Ptr<PostcardTelemetryRulesClientSmConfig>& clientConfig,
      const Pello::Ptr<const PostcardTelemetry::HwCapability>& hwCapability) {
   return oruPostcardPolicyAclHelperFactory(clientConfig, hwCapability);
}

} // namespace OruPostcardTelemetry
