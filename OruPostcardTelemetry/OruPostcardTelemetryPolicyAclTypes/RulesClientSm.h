// The two records through which the helper and the rules client talk: the request,
// `PostcardTelemetryRulesClientSmConfig`, and the answer, `PostcardTelemetryRulesClientSmStatus`.
// Each setter publishes an effective change (identifier of the attribute, old value) before it
// returns; setting an attribute to its current value publishes nothing. The other side reads a
// record when the record's counter changes, so a writer changes the counter last. Relies on
// `PostcardTelemetryAclConfig`.
//
// Counters, not flags, announce a change: a request that is equal to the one before still changes
// the record. The records carry no lock.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/Enumeration.h"
#include "Kiv/String.h"
#include "Orlix/IntfId.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfig.h"

namespace OruPostcardTelemetry {

enum PostcardTelemetryRulesClientSmStatusType : U8 {
   statusSuccess = 0, // the request has been carried out
   statusFailure = 1, // it has not; the answer's text says why
};
KIV_ENUM(PostcardTelemetryRulesClientSmStatusType, PostcardTelemetryRulesClientSmStatusTypeInstance)

enum PostcardTelemetryRulesClientSmEvent : U8 {
   policyCreate = 0,     // the ACL configuration is new to the rules client
   policyUpdate = 1,     // the rules client knows an earlier state of it
   policyDelete = 2,     // what was programmed for it is to be removed
   policyIntfUpdate = 3, // one interface joined or left it
};
KIV_ENUM(PostcardTelemetryRulesClientSmEvent, PostcardTelemetryRulesClientSmEventInstance)

// What happened to which policy, for the rules client to act on. The helper writes it. A new
// request replaces the one before, answered or not.
class PostcardTelemetryRulesClientSmConfig : public Kiv::Entity {
   KIV_ENTITY(PostcardTelemetryRulesClientSmConfig, Kiv::Entity,
              "OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig");
   KIV_PUBLISHED;
   KIV_ATTRIBUTE(130, PostcardTelemetryRulesClientSmEvent, event);
   // The configuration that the event is about; null before the first request. The record's
   // reference keeps a configuration alive that the helper has deleted. Subscribers that hear of a
   // change can still look at the old configuration.
   KIV_ATTRIBUTE(131, Pello::Ptr<const PostcardTelemetryAclConfig>, aclConfig);
   // The interface of a `policyIntfUpdate`. Other events leave the value of an earlier request
   // here, which has no meaning for them.
   KIV_ATTRIBUTE(132, Orlix::IntfId, currIntf);
   KIV_ATTRIBUTE(133, U32, kickRequest); // number of requests so far, modulo 2^32

 public:
   // Makes a record before its first request.
   PostcardTelemetryRulesClientSmConfig() = default;

   // Adds `step` to `kickRequest`, modulo 2^32, and returns the new count. A step of 0 publishes
   // nothing.
   U32 kickRequestInc(U32 step);
};

// What became of the latest request. The rules client writes it; the agent passes it on to the
// helper's `updatePolicyStatus`.
class PostcardTelemetryRulesClientSmStatus : public Kiv::Entity {
   KIV_ENTITY(PostcardTelemetryRulesClientSmStatus, Kiv::Entity,
              "OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatus");
   KIV_PUBLISHED;
   KIV_ATTRIBUTE(130, Pello::String, status); // empty, or what went wrong
   KIV_ATTRIBUTE(131, PostcardTelemetryRulesClientSmStatusType, statusType);
   // The `kickRequest` of the request that is answered, written last. The helper neither reads nor
   // writes it.
   KIV_ATTRIBUTE(132, U32, kickResponse);

 public:
   // Makes a record before its first answer.
   PostcardTelemetryRulesClientSmStatus() = default;

   // Adds `step` to `kickResponse`, modulo 2^32, and returns the new count. A step of 0 publishes
   // nothing.
   U32 kickResponseInc(U32 step);
};

// Each returns a new record; none looks anything up.
Pello::Ptr<PostcardTelemetryRulesClientSmConfig> postcardTelemetryRulesClientSmConfigFactory();
inline Pello::Ptr<PostcardTelemetryRulesClientSmConfig> PostcardTelemetryRulesClientSmConfigIs() {
   return postcardTelemetryRulesClientSmConfigFactory();
}
Pello::Ptr<PostcardTelemetryRulesClientSmStatus> postcardTelemetryRulesClientSmStatusFactory();
inline Pello::Ptr<PostcardTelemetryRulesClientSmStatus> PostcardTelemetryRulesClientSmStatusIs() {
   return postcardTelemetryRulesClientSmStatusFactory();
}

} // namespace OruPostcardTelemetry
