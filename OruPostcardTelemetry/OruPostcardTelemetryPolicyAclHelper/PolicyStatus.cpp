// `updatePolicyStatus`: records the rules client's answer in the ACL configuration that the latest
// request was about. The configuration is found by its key, so a configuration that has replaced it
// since gets the answer.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Contract.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Helper.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TraceSource.h"

namespace OruPostcardTelemetry {

using HelperTrace::traceSource;

namespace {

// The ACL configuration that the request is about; null before the first request, and for a helper
// without a request record.
Pello::Ptr<const PostcardTelemetryAclConfig>
requestedConfig(const Pello::Ptr<PostcardTelemetryRulesClientSmConfig>& request) {
   return request == nullptr ? nullptr : request->aclConfig();
}

// Appends `text` to the history.
void record(PostcardTelemetryAclConfigStatus& status, const Pello::String& text) {
   const U32 index = status.currentIndex();
   status.statusInOrderIs(index, text);
   status.currentIndexIs(index + 1);
}

} // namespace

Kiv::String OruPostcardPolicyAclHelper::updatePolicyStatus(
      PostcardTelemetryRulesClientSmStatusType policyStatus, const Pello::String& statusString) {
   RINGLOG_ENTRY();
   RINGLOG_TRACE(9, "Status Type : {} Event Type : {}, Status String : {}", policyStatus,
                 clientConfig() == nullptr ? policyCreate : clientConfig()->event(), statusString);
   // The record's reference may be the only one to a configuration that has been deleted since.
   // Therefore the configuration is looked up by its key and not taken from the record.
   const Pello::Ptr<const PostcardTelemetryAclConfig> requested = requestedConfig(clientConfig());
   const Pello::String key = requested == nullptr ? Pello::String{} : requested->aclConfigKey();
   RINGLOG_TRACE(5, "Acl Config Key : {}", key);
   const AclConfigPtr aclConfig = requested == nullptr ? nullptr : aclConfigColl(key);
   if (aclConfig == nullptr) {
      RINGLOG_TRACE(0, "Acl Config not found for policy, Policy Key : {}", key);
      contractBroken(FunctionText::updatePolicyStatus, "0");
   }
   const Pello::Ptr<PostcardTelemetryAclConfigStatus> status = aclConfig->aclConfigStatusIs();
   RINGLOG_TRACE(5, "Current Index : {}", status->currentIndex());
   record(*status, statusString);
   const bool programmed = policyStatus == statusSuccess;
   RINGLOG_TRACE(5, "Programmed Policy : {}", programmed);
   aclConfig->programmedPolicyIs(programmed);
   return programmed ? Kiv::String{} : statusString;
}

} // namespace OruPostcardTelemetry
