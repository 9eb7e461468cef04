// The two records through which a rules client is spoken to, under short names, and `writeAnswer`,
// the only writer of the status record. Relies on the data model.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RulesClientSm.h"
#include "postcard/rules-client/Outcome.h"

namespace Postcard::RulesClient {

using AclConfig = OruPostcardTelemetry::PostcardTelemetryAclConfig;
using RequestRecord = OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig;
using StatusRecord = OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatus;

// The answer to one request.
struct Answer {
   U32 request = 0; // `kickRequest` of the request
   Outcome outcome;
};

// Writes `answer` into `status`, which must not be null: text and type first and the counter last,
// because readers act when the counter changes. When the counter has its value already, it is set
// to the number before and then back: a record publishes no equal value, so nobody would notice a
// repeated answer. Subscribers may post the next request, or destroy the caller, before this
// function returns.
void writeAnswer(Pello::Ptr<StatusRecord> status, Answer answer);

// The outcome that the present content of the record stands for.
Outcome outcomeOf(const StatusRecord& status);

} // namespace Postcard::RulesClient
