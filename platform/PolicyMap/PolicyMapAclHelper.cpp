#include "PolicyMap/PolicyMapAclHelper.h"

namespace PolicyMap {

namespace {

// The texts reach the operator who configured the policy, so they name the operation or the action.
Kiv::String notSupported(std::string_view operation) {
   return Kiv::String::join({"Operation ", operation, " is not supported by this feature"});
}

Kiv::String actionNotSupported(std::string_view action) {
   return Kiv::String::join({"Action ", action, " is not supported by this feature"});
}

} // namespace

PolicyMapAclHelper::~PolicyMapAclHelper() = default;

void PolicyMapAclHelper::handleVlanTcamIdConfig() {}

void PolicyMapAclHelper::hwInit() {}

void PolicyMapAclHelper::cacheFieldSets(const PolicyDataPtr&, ClassMapMatchOption) {}

void PolicyMapAclHelper::cacheUdfs(const PolicyDataPtr&, ClassMapMatchOption) {}

void PolicyMapAclHelper::setAsyncAddRuleInProgress(bool) {}

U32 PolicyMapAclHelper::maybeAddOldRules(const PolicyDataPtr&, ClassMapMatchOption) {
   return 0;
}

Kiv::String PolicyMapAclHelper::createPolicy(const PolicyDataPtr&, ClassMapMatchOption) {
   return notSupported("createPolicy");
}

Kiv::String PolicyMapAclHelper::recreatePolicy(const PolicyDataPtr&, ClassMapMatchOption) {
   return notSupported("recreatePolicy");
}

bool PolicyMapAclHelper::initInPlaceUpdate(const PolicyDataPtr&, ClassMapMatchOption) {
   return false;
}

Kiv::String PolicyMapAclHelper::deletePolicy(const PolicyDataPtr&, ClassMapMatchOption) {
   return notSupported("deletePolicy");
}

Kiv::String PolicyMapAclHelper::commitPolicy(const PolicyDataPtr&, ClassMapMatchOption) {
   return notSupported("commitPolicy");
}

// Made of `commitPolicy`, so that only a feature that can commit several policies at once has to
// override it.
Kiv::String PolicyMapAclHelper::batchCommitPolicy(const std::vector<PolicyDataPtr>& policies,
                                                  ClassMapMatchOption matchOption) {
   for (const PolicyDataPtr& policyData : policies) {
      Kiv::String status = commitPolicy(policyData, matchOption);
      if (!status.empty()) {
         return status;
      }
   }
   return {};
}

Kiv::String PolicyMapAclHelper::addIntfToPolicy(const PolicyDataPtr&, Orlix::IntfId, Orlix::IntfId,
                                                L3::VrfName, ClassMapMatchOption) {
   return notSupported("addIntfToPolicy");
}

Kiv::String PolicyMapAclHelper::removeIntfFromPolicy(const PolicyDataPtr&, Orlix::IntfId,
                                                     Orlix::IntfId, L3::VrfName,
                                                     ClassMapMatchOption) {
   return notSupported("removeIntfFromPolicy");
}

Kiv::String PolicyMapAclHelper::addRule(const PolicyDataPtr&, const AclRuleKey&) {
   return notSupported("addRule");
}

bool PolicyMapAclHelper::tryAddRules(const PolicyDataPtr&, const std::vector<AclRuleKey>&) {
   return false;
}

bool PolicyMapAclHelper::tryMoveRules(const PolicyDataPtr&, const std::vector<AclRuleKey>&) {
   return false;
}

Kiv::String PolicyMapAclHelper::beginUpdateActions(const PolicyDataPtr&) {
   return notSupported("beginUpdateActions");
}

Kiv::String PolicyMapAclHelper::updateAction(const PolicyDataPtr&, const AclRuleKey&) {
   return notSupported("updateAction");
}

Kiv::String PolicyMapAclHelper::updateNexthopGroupMatch(const PolicyDataPtr&, const AclRuleKey&) {
   return notSupported("updateNexthopGroupMatch");
}

Kiv::String PolicyMapAclHelper::endUpdateActions(const PolicyDataPtr&) {
   return notSupported("endUpdateActions");
}

U64 PolicyMapAclHelper::getCountForRule(const PolicyDataPtr&, const AclRuleKey&) const {
   return 0;
}

U64 PolicyMapAclHelper::getCountForRulePerInterface(const PolicyDataPtr&, const AclRuleKey&,
                                                    Orlix::IntfId) const {
   return 0;
}

void PolicyMapAclHelper::showAclRule(U32, const AclRuleKey&) const {}

void PolicyMapAclHelper::showAclSummary(U32) const {}

Kiv::String PolicyMapAclHelper::handlePendingOperationTimeout(const PolicyDataPtr& policyData,
                                                              ClassMapMatchOption matchOption) {
   return Kiv::String::join({"Operation pending for policy ", policyData->key().strDesc(), ", ",
                             stringValue(matchOption), " has not been answered in time"});
}

// A feature that keeps no list of interfaces of its own must not refuse any.
bool PolicyMapAclHelper::intfExists(Orlix::IntfId) const {
   return true;
}

U32 PolicyMapAclHelper::getLastInstalledPriority(const PolicyDataPtr&) const {
   return 0;
}

bool PolicyMapAclHelper::dropActionSupported() const {
   return false;
}

Kiv::String PolicyMapAclHelper::linecardName() const {
   return {};
}

Kiv::String PolicyMapAclHelper::validPoliceAction(const ClassDataPtr&) const {
   return actionNotSupported("police");
}

Kiv::String PolicyMapAclHelper::validEgressRedirectAction(const ClassDataPtr&) const {
   return actionNotSupported("egress redirect");
}

Kiv::String PolicyMapAclHelper::validateUseVrfSecondaryAction(const ClassDataPtr&) const {
   return actionNotSupported("use VRF secondary");
}

Kiv::String PolicyMapAclHelper::validateDefaultActions(const PolicyDataPtr&) const {
   return {};
}

} // namespace PolicyMap
