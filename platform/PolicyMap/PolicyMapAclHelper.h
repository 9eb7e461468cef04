// `PolicyMapAclHelper`: the base class of a feature's helper, which turns policies into ACLs. The
// agent calls the virtual operations; a feature overrides those that it supports. Relies on the
// policy records.
//
// The order of the virtual operations is the order of their slots in the virtual table. An agent
// and a helper that were built separately rely on it: a new operation is added at the end, none is
// moved.
//
// This class implements each operation for a helper that does not support it:
//
//   orders          return a text that says that the operation is not supported
//   questions       are answered false, 0 or the empty text, where a comment says nothing else
//   notifications   are ignored
//
// An operation that returns `Kiv::String` returns the empty text for success, otherwise a message
// for the operator. Counted references that are passed to an operation are not null. All operations
// are called by the agent's one thread; none is synchronised.
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
   // Attributes 130 to 134 are switches that tell the agent what the helper supports. A helper sets
   // them in `hwInit`; each is shown with its initial value.
   //
   // Actions of a programmed rule can be changed in place.
   KIV_ATTRIBUTE(130, bool, updateActionSupported, true);
   // A port channel that is attached to a policy stands for its member ports.
   KIV_ATTRIBUTE(131, bool, expandPortChannels, false);
   // A match on established TCP connections is supported.
   KIV_ATTRIBUTE(132, bool, establishedSupported, true);
   // The agent must cut layer-4 port ranges into rules. False: the helper does it.
   KIV_ATTRIBUTE(133, bool, subRulesForL4Ports, true);
   // An operation that returns the empty text may still be under way. Its outcome is published
   // later through `asyncOperationResult`.
   KIV_ATTRIBUTE(134, bool, asyncOperations, false);
   // The outcome of the latest operation that finished asynchronously, with the time at which it
   // did.
   KIV_RULED_ATTRIBUTE(135, AsyncOperationResult, asyncOperationResult);

 public:
   using PolicyDataPtr = Pello::Ptr<const PolicyMapSmCommonData>;
   using ClassDataPtr = Pello::Ptr<const ClassMapSmCommonData>;

   // Takes a reference, unlike other setters: helpers built elsewhere rely on the type.
   void asyncOperationResultIs(const AsyncOperationResult& result) {
      Kiv::setAttribute<asyncOperationResultId>(*this, asyncOperationResult_, result);
   }

   PolicyMapAclHelper() = default;
   ~PolicyMapAclHelper() override;

   // Notification: the hardware tables that map VLANs to ACLs have been configured anew.
   virtual void handleVlanTcamIdConfig();
   // Notification: the hardware layer starts. Called once, before any order; a helper sets its
   // switches here.
   virtual void hwInit();
   // Notifications: the helper should read the field sets, or the user-defined fields, that the
   // policy refers to.
   virtual void cacheFieldSets(const PolicyDataPtr& policyData, ClassMapMatchOption matchOption);
   virtual void cacheUdfs(const PolicyDataPtr& policyData, ClassMapMatchOption matchOption);
   // Notification: the agent begins (`true`) or ends (`false`) to add rules piece by piece.
   virtual void setAsyncAddRuleInProgress(bool inProgress);
   // Adds the rules of an earlier version of the policy that are still in hardware. Returns how
   // many.
   virtual U32 maybeAddOldRules(const PolicyDataPtr& policyData, ClassMapMatchOption matchOption);

   // Builds what hardware needs for a policy in one address family.
   virtual Kiv::String createPolicy(const PolicyDataPtr& policyData,
                                    ClassMapMatchOption matchOption);
   // Builds the same anew for a policy that has been created before and has changed since.
   virtual Kiv::String recreatePolicy(const PolicyDataPtr& policyData,
                                      ClassMapMatchOption matchOption);
   // Whether the change of a policy can be made in place. If true, the helper has begun the change;
   // if false, nothing has happened.
   virtual bool initInPlaceUpdate(const PolicyDataPtr& policyData, ClassMapMatchOption matchOption);
   // Removes what was built for the policy, from hardware too.
   virtual Kiv::String deletePolicy(const PolicyDataPtr& policyData,
                                    ClassMapMatchOption matchOption);
   // Hands what was built for the policy to hardware.
   virtual Kiv::String commitPolicy(const PolicyDataPtr& policyData,
                                    ClassMapMatchOption matchOption);
   // Commits policies in the given order. Here: calls `commitPolicy` for each, stops at the first
   // that fails and returns its text; the policies before it stay committed.
   virtual Kiv::String batchCommitPolicy(const std::vector<PolicyDataPtr>& policies,
                                         ClassMapMatchOption matchOption);
   // An interface joins or leaves the policy. `intf` is the interface that the hardware knows.
   // `logicalIntf` is the one that the operator configured, such as a port channel of which `intf`
   // is a member. `vrfName` is the routing instance of the interface; empty: none.
   virtual Kiv::String addIntfToPolicy(const PolicyDataPtr& policyData, Orlix::IntfId intf,
                                       Orlix::IntfId logicalIntf, L3::VrfName vrfName,
                                       ClassMapMatchOption matchOption);
   virtual Kiv::String removeIntfFromPolicy(const PolicyDataPtr& policyData, Orlix::IntfId intf,
                                            Orlix::IntfId logicalIntf, L3::VrfName vrfName,
                                            ClassMapMatchOption matchOption);

   // Orders and questions rule by rule, for helpers that leave the cutting into rules to the agent.
   //
   // Adds the rule `key` of the policy.
   virtual Kiv::String addRule(const PolicyDataPtr& policyData, const AclRuleKey& key);
   // Whether all the rules would fit, without adding them.
   virtual bool tryAddRules(const PolicyDataPtr& policyData, const std::vector<AclRuleKey>& keys);
   // Whether the rules can take new priorities without being written anew.
   virtual bool tryMoveRules(const PolicyDataPtr& policyData, const std::vector<AclRuleKey>& keys);
   // Change the actions of rules in place: one call to begin, one call per rule (`updateAction`, or
   // `updateNexthopGroupMatch` for a rule that matches on a group of next hops), one call to end.
   virtual Kiv::String beginUpdateActions(const PolicyDataPtr& policyData);
   virtual Kiv::String updateAction(const PolicyDataPtr& policyData, const AclRuleKey& key);
   virtual Kiv::String updateNexthopGroupMatch(const PolicyDataPtr& policyData,
                                               const AclRuleKey& key);
   virtual Kiv::String endUpdateActions(const PolicyDataPtr& policyData);

   // The number of packets that matched a rule, on all interfaces and on one.
   virtual U64 getCountForRule(const PolicyDataPtr& policyData, const AclRuleKey& key) const;
   virtual U64 getCountForRulePerInterface(const PolicyDataPtr& policyData, const AclRuleKey& key,
                                           Orlix::IntfId intf) const;
   // Write diagnostics to the open file descriptor `fd`, which stays open. Here: write nothing.
   virtual void showAclRule(U32 fd, const AclRuleKey& key) const;
   virtual void showAclSummary(U32 fd) const;

   // Notification: the latest operation for the policy has not finished in time. Returns the
   // message for the operator, which is never empty here.
   virtual Kiv::String handlePendingOperationTimeout(const PolicyDataPtr& policyData,
                                                     ClassMapMatchOption matchOption);
   // Whether the helper can use the interface. Here: always.
   virtual bool intfExists(Orlix::IntfId intf) const;
   // The largest priority among the policy's rules in hardware; 0 when there is none.
   virtual U32 getLastInstalledPriority(const PolicyDataPtr& policyData) const;
   // Whether a class may have the drop action.
   virtual bool dropActionSupported() const;
   // The line card for which the helper works; empty: the whole switch.
   virtual Kiv::String linecardName() const;
   // Check the actions of a class, or the default actions of a policy, before the configuration is
   // accepted. Here: no such action of a class is accepted, and all default actions are.
   virtual Kiv::String validPoliceAction(const ClassDataPtr& classData) const;
   virtual Kiv::String validEgressRedirectAction(const ClassDataPtr& classData) const;
   virtual Kiv::String validateUseVrfSecondaryAction(const ClassDataPtr& classData) const;
   virtual Kiv::String validateDefaultActions(const PolicyDataPtr& policyData) const;
};

} // namespace PolicyMap
