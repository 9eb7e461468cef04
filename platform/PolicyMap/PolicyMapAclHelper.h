// `PolicyMapAclHelper`: the base of a feature's helper, which turns policies into ACLs. The agent
// calls the virtual operations; a feature overrides those it has. Relies on the policy records.
//
// The order of the virtual operations is the order of their slots and part of the interface between
// an agent and a helper that was built elsewhere: new ones are added at the end, none is moved.
//
// What an operation does here is what a helper needs that has no such feature: questions are
// answered "no" or "none", orders that cannot be carried out return a text that says so, and
// notifications are ignored. An operation's text is empty when it succeeded.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/String.h"
#include "L3/VrfName.h"
#include "Orlix/IntfId.h"
#include "PolicyMap/AsyncOperationResult.h"
#include "PolicyMap/ClassMapMatchOption.h"
#include "PolicyMap/PolicyMapSmCommonData.h"

#include <vector>

namespace PolicyMap {

class PolicyMapAclHelper : public Kiv::Entity {
   KIV_ENTITY(PolicyMapAclHelper, Kiv::Entity, "PolicyMap::PolicyMapAclHelper");
   KIV_PUBLISHED;
   // Switches that `hwInit` sets. Actions of a programmed rule can be changed in place.
   KIV_ATTRIBUTE(130, bool, updateActionSupported, true);
   // An attached port channel stands for its member ports.
   KIV_ATTRIBUTE(131, bool, expandPortChannels, false);
   // A match on established TCP connections is supported.
   KIV_ATTRIBUTE(132, bool, establishedSupported, true);
   // The agent cuts layer-4 port ranges into rules of their own.
   KIV_ATTRIBUTE(133, bool, subRulesForL4Ports, true);
   // Operations finish later, and say so through `asyncOperationResult`.
   KIV_ATTRIBUTE(134, bool, asyncOperations, false);
   // The outcome of the latest operation that has one.
   KIV_ATTRIBUTE(135, AsyncOperationResult, asyncOperationResult);

 public:
   using PolicyDataPtr = Pello::Ptr<const PolicyMapSmCommonData>;
   using ClassDataPtr = Pello::Ptr<const ClassMapSmCommonData>;

   PolicyMapAclHelper() = default;
   ~PolicyMapAclHelper() override;

   // The hardware tables that map VLANs to ACLs were configured anew.
   virtual void handleVlanTcamIdConfig();
   // The hardware layer starts: time to set the switches.
   virtual void hwInit();
   // Field sets, or user-defined fields, that the policy refers to should be read now.
   virtual void cacheFieldSets(const PolicyDataPtr& policyData, ClassMapMatchOption matchOption);
   virtual void cacheUdfs(const PolicyDataPtr& policyData, ClassMapMatchOption matchOption);
   // The agent begins (`true`) or ends adding rules piece by piece.
   virtual void setAsyncAddRuleInProgress(bool inProgress);
   // Adds rules of an earlier version that still stand in hardware; returns how many.
   virtual U32 maybeAddOldRules(const PolicyDataPtr& policyData, ClassMapMatchOption matchOption);

   // Builds what hardware needs for a policy in one address family.
   virtual Kiv::String createPolicy(const PolicyDataPtr& policyData,
                                    ClassMapMatchOption matchOption);
   // Builds it anew for a policy that exists.
   virtual Kiv::String recreatePolicy(const PolicyDataPtr& policyData,
                                      ClassMapMatchOption matchOption);
   // Whether a change of the policy can be made in place; begins it if so.
   virtual bool initInPlaceUpdate(const PolicyDataPtr& policyData, ClassMapMatchOption matchOption);
   // Removes the policy.
   virtual Kiv::String deletePolicy(const PolicyDataPtr& policyData,
                                    ClassMapMatchOption matchOption);
   // Hands what was built to hardware.
   virtual Kiv::String commitPolicy(const PolicyDataPtr& policyData,
                                    ClassMapMatchOption matchOption);
   // Commits several policies in order; stops at the first that fails and returns its text.
   virtual Kiv::String batchCommitPolicy(const std::vector<PolicyDataPtr>& policies,
                                         ClassMapMatchOption matchOption);
   // An interface joins or leaves the policy. `logicalIntf` is the interface as the operator knows
   // it, when `intf` is a part of it.
   virtual Kiv::String addIntfToPolicy(const PolicyDataPtr& policyData, Orlix::IntfId intf,
                                       Orlix::IntfId logicalIntf, L3::VrfName vrfName,
                                       ClassMapMatchOption matchOption);
   virtual Kiv::String removeIntfFromPolicy(const PolicyDataPtr& policyData, Orlix::IntfId intf,
                                            Orlix::IntfId logicalIntf, L3::VrfName vrfName,
                                            ClassMapMatchOption matchOption);

   // Rule by rule, for helpers whose agent cuts policies into rules.
   virtual Kiv::String addRule(const PolicyDataPtr& policyData, const AclRuleKey& key);
   // Whether all the rules would fit, without adding them.
   virtual bool tryAddRules(const PolicyDataPtr& policyData, const std::vector<AclRuleKey>& keys);
   // Whether the rules can take new priorities without being written anew.
   virtual bool tryMoveRules(const PolicyDataPtr& policyData, const std::vector<AclRuleKey>& keys);
   // A change of actions: begin, one call per rule, end.
   virtual Kiv::String beginUpdateActions(const PolicyDataPtr& policyData);
   virtual Kiv::String updateAction(const PolicyDataPtr& policyData, const AclRuleKey& key);
   virtual Kiv::String updateNexthopGroupMatch(const PolicyDataPtr& policyData,
                                               const AclRuleKey& key);
   virtual Kiv::String endUpdateActions(const PolicyDataPtr& policyData);

   // Packets counted by a rule, in all and on one interface.
   virtual U64 getCountForRule(const PolicyDataPtr& policyData, const AclRuleKey& key) const;
   virtual U64 getCountForRulePerInterface(const PolicyDataPtr& policyData, const AclRuleKey& key,
                                           Orlix::IntfId intf) const;
   // Diagnostics, written to the open file descriptor `fd`.
   virtual void showAclRule(U32 fd, const AclRuleKey& key) const;
   virtual void showAclSummary(U32 fd) const;

   // An operation has not ended in time. Returns the text for the operator.
   virtual Kiv::String handlePendingOperationTimeout(const PolicyDataPtr& policyData,
                                                     ClassMapMatchOption matchOption);
   // Whether the helper has use for the interface.
   virtual bool intfExists(Orlix::IntfId intf) const;
   // The largest priority in hardware; 0 when there is none.
   virtual U32 getLastInstalledPriority(const PolicyDataPtr& policyData) const;
   virtual bool dropActionSupported() const;
   // The line card on which the helper works; empty for the whole switch.
   virtual Kiv::String linecardName() const;
   // Checks of actions before they are accepted: empty, or why not.
   virtual Kiv::String validPoliceAction(const ClassDataPtr& classData) const;
   virtual Kiv::String validEgressRedirectAction(const ClassDataPtr& classData) const;
   virtual Kiv::String validateUseVrfSecondaryAction(const ClassDataPtr& classData) const;
   virtual Kiv::String validateDefaultActions(const PolicyDataPtr& policyData) const;
};

} // namespace PolicyMap
