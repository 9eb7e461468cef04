// The two records through which the helper and the rules client talk: the request,
// `PostcardTelemetryRulesClientSmConfig`, and the answer, `PostcardTelemetryRulesClientSmStatus`.
// Every effective change is published. A request is complete when its counter changes, an answer
// likewise, so the counter is written last.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/Enumeration.h"
#include "Kiv/String.h"
#include "Orlix/IntfId.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfig.h"

namespace OruPostcardTelemetry {

enum PostcardTelemetryRulesClientSmStatusType : U8 {
   statusSuccess = 0,
   statusFailure = 1,
};
KIV_ENUM(PostcardTelemetryRulesClientSmStatusType, PostcardTelemetryRulesClientSmStatusTypeInstance)

enum PostcardTelemetryRulesClientSmEvent : U8 {
   policyCreate = 0,
   policyUpdate = 1,
   policyDelete = 2,
   policyIntfUpdate = 3,
};
KIV_ENUM(PostcardTelemetryRulesClientSmEvent, PostcardTelemetryRulesClientSmEventInstance)

// The request. Written by the helper, read by the rules client.
class PostcardTelemetryRulesClientSmConfig : public Kiv::Entity {
   KIV_ENTITY(PostcardTelemetryRulesClientSmConfig, Kiv::Entity,
              "OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig");
   KIV_PUBLISHED;
   KIV_ATTRIBUTE(130, PostcardTelemetryRulesClientSmEvent, event);
   // The ACL that the event is about; null before the first request. Kept alive by this reference,
   // also when the helper has dropped it.
   KIV_ATTRIBUTE(131, Pello::Ptr<const PostcardTelemetryAclConfig>, aclConfig);
   // The interface of a `policyIntfUpdate`; for other events it is left from an earlier request.
   KIV_ATTRIBUTE(132, Orlix::IntfId, currIntf);
   KIV_ATTRIBUTE(133, U32, kickRequest); // counts requests, wraps after 4294967295

 public:
   PostcardTelemetryRulesClientSmConfig() = default;

   // Adds `step` and returns the new count. A step of 0 changes nothing.
   U32 kickRequestInc(U32 step);
};

// The answer. Written by the rules client.
class PostcardTelemetryRulesClientSmStatus : public Kiv::Entity {
   KIV_ENTITY(PostcardTelemetryRulesClientSmStatus, Kiv::Entity,
              "OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatus");
   KIV_PUBLISHED;
   KIV_ATTRIBUTE(130, Pello::String, status); // empty, or what went wrong
   KIV_ATTRIBUTE(131, PostcardTelemetryRulesClientSmStatusType, statusType);
   KIV_ATTRIBUTE(132, U32, kickResponse); // the request that is answered; the rules client's own

 public:
   PostcardTelemetryRulesClientSmStatus() = default;

   // Adds `step` and returns the new count. A step of 0 changes nothing.
   U32 kickResponseInc(U32 step);
};

// Make new records with the defaults.
Pello::Ptr<PostcardTelemetryRulesClientSmConfig> postcardTelemetryRulesClientSmConfigFactory();
inline Pello::Ptr<PostcardTelemetryRulesClientSmConfig> PostcardTelemetryRulesClientSmConfigIs() {
   return postcardTelemetryRulesClientSmConfigFactory();
}
Pello::Ptr<PostcardTelemetryRulesClientSmStatus> postcardTelemetryRulesClientSmStatusFactory();
inline Pello::Ptr<PostcardTelemetryRulesClientSmStatus> PostcardTelemetryRulesClientSmStatusIs() {
   return postcardTelemetryRulesClientSmStatusFactory();
}

} // namespace OruPostcardTelemetry
