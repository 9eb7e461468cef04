#include "PolicyMap/PolicyMapAclHelper.h"

namespace PolicyMap {

namespace {

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

void PolicyMapAclHelper::cacheFieldSets(const PolicyData&, ClassMapMatchOption) {}

void PolicyMapAclHelper::cacheUdfs(const PolicyData&, ClassMapMatchOption) {}

void PolicyMapAclHelper::setAsyncAddRuleInProgress(bool) {}

U32 PolicyMapAclHelper::maybeAddOldRules(const PolicyData&, ClassMapMatchOption) {
   return 0;
}

Kiv::String PolicyMapAclHelper::createPolicy(const PolicyData&, ClassMapMatchOption) {
   return notSupported("createPolicy");
}

Kiv::String PolicyMapAclHelper::recreatePolicy(const PolicyData&, ClassMapMatchOption) {
   return notSupported("recreatePolicy");
}

bool PolicyMapAclHelper::initInPlaceUpdate(const PolicyData&, ClassMapMatchOption) {
   return false;
}

Kiv::String PolicyMapAclHelper::deletePolicy(const PolicyData&, ClassMapMatchOption) {
   return notSupported("deletePolicy");
}

Kiv::String PolicyMapAclHelper::commitPolicy(const PolicyData&, ClassMapMatchOption) {
   return notSupported("commitPolicy");
}

Kiv::String PolicyMapAclHelper::batchCommitPolicy(const std::vector<PolicyData>& policies,
                                                  ClassMapMatchOption matchOption) {
   for (const PolicyData& policyData : policies) {
      Kiv::String status = commitPolicy(policyData, matchOption);
      if (!status.empty()) {
         return status;
      }
   }
   return {};
}

Kiv::String PolicyMapAclHelper::addIntfToPolicy(const PolicyData&, Orlix::IntfId, Orlix::IntfId,
                                                L3::VrfName, ClassMapMatchOption) {
   return notSupported("addIntfToPolicy");
}

Kiv::String PolicyMapAclHelper::removeIntfFromPolicy(const PolicyData&, Orlix::IntfId,
                                                     Orlix::IntfId, L3::VrfName,
                                                     ClassMapMatchOption) {
   return notSupported("removeIntfFromPolicy");
}

Kiv::String PolicyMapAclHelper::addRule(const PolicyData&, const AclRuleKey&) {
   return notSupported("addRule");
}

bool PolicyMapAclHelper::tryAddRules(const PolicyData&, const std::vector<AclRuleKey>&) {
   return false;
}

bool PolicyMapAclHelper::tryMoveRules(const PolicyData&, const std::vector<AclRuleKey>&) {
   return false;
}

Kiv::String PolicyMapAclHelper::beginUpdateActions(const PolicyData&) {
   return notSupported("beginUpdateActions");
}

Kiv::String PolicyMapAclHelper::updateAction(const PolicyData&, const AclRuleKey&) {
   return notSupported("updateAction");
}

Kiv::String PolicyMapAclHelper::updateNexthopGroupMatch(const PolicyData&, const AclRuleKey&) {
   return notSupported("updateNexthopGroupMatch");
}

Kiv::String PolicyMapAclHelper::endUpdateActions(const PolicyData&) {
   return notSupported("endUpdateActions");
}

U64 PolicyMapAclHelper::getCountForRule(const PolicyData&, const AclRuleKey&) const {
   return 0;
}

U64 PolicyMapAclHelper::getCountForRulePerInterface(const PolicyData&, const AclRuleKey&,
                                                    Orlix::IntfId) const {
   return 0;
}

void PolicyMapAclHelper::showAclRule(U32, const AclRuleKey&) const {}

void PolicyMapAclHelper::showAclSummary(U32) const {}

Kiv::String PolicyMapAclHelper::handlePendingOperationTimeout(const PolicyData& policyData,
                                                              ClassMapMatchOption matchOption) {
   return Kiv::String::join({"Operation pending for policy ", policyData->key().strDesc(), ", ",
                             stringValue(matchOption), " has not been answered in time"});
}

bool PolicyMapAclHelper::intfExists(Orlix::IntfId) const {
   return true;
}

U32 PolicyMapAclHelper::getLastInstalledPriority(const PolicyData&) const {
   return 0;
}

bool PolicyMapAclHelper::dropActionSupported() const {
   return false;
}

Kiv::String PolicyMapAclHelper::linecardName() const {
   return {};
}

Kiv::String PolicyMapAclHelper::validPoliceAction(const ClassData&) const {
   return actionNotSupported("police");
}

Kiv::String PolicyMapAclHelper::validEgressRedirectAction(const ClassData&) const {
   return actionNotSupported("egress redirect");
}

Kiv::String PolicyMapAclHelper::validateUseVrfSecondaryAction(const ClassData&) const {
   return actionNotSupported("use VRF secondary");
}

Kiv::String PolicyMapAclHelper::validateDefaultActions(const PolicyData&) const {
   return {};
}

} // namespace PolicyMap
