// `updateRulesClientConfig`: the one place that posts a request to the rules client. The rules
// client acts when the request counter changes, so everything else is written before it.
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
   // A request about no single interface leaves the record naming that of an earlier one; the rules
   // client does not read it then.
   if (intf != Orlix::IntfId{}) {
      RINGLOG_TRACE(5, "Updating clientConfig()->currIntf() with {}", intf.stringValue());
      clientConfig()->currIntfIs(intf);
   }
   aclConfig->rulesClientUpdatedIs(true);
   RINGLOG_TRACE(5, "Rules Client Updated : {}", aclConfig->rulesClientUpdated());
   clientConfig()->kickRequestInc(1);
}

} // namespace OruPostcardTelemetry
