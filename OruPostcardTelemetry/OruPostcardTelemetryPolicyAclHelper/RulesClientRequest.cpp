// `updateRulesClientConfig`: the only function that posts a request to the rules client. The rules
// client acts as soon as the request counter changes, so the counter is written after everything
// else.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Helper.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TraceSource.h"

namespace OruPostcardTelemetry {

using HelperTrace::traceSource;

void OruPostcardPolicyAclHelper::updateRulesClientConfig(PostcardTelemetryRulesClientSmEvent event,
                                                         const AclConfigPtr& aclConfig,
                                                         Orlix::IntfId intf) {
   RINGLOG_ENTRY();
   RINGLOG_TRACE(5, "Acl Config Key : {}, Event : {}, Current Interface : {}",
                 aclConfig->aclConfigKey(), static_cast<U8>(event), intf.stringValue());
   clientConfig()->eventIs(event);
   clientConfig()->aclConfigIs(aclConfig);
   // A request without an interface leaves that of an earlier request in the record. The rules
   // client reads the interface for `policyIntfUpdate` only.
   if (intf != Orlix::IntfId{}) {
      RINGLOG_TRACE(5, "Updating clientConfig()->currIntf() with {}", intf.stringValue());
      clientConfig()->currIntfIs(intf);
   }
   // Before the counter changes: its subscribers are called while it is set, and may look at the
   // flag.
   aclConfig->rulesClientUpdatedIs(true);
   RINGLOG_TRACE(5, "Rules Client Updated : {}", aclConfig->rulesClientUpdated());
   clientConfig()->kickRequestInc(1);
}

} // namespace OruPostcardTelemetry
