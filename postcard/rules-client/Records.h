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

// Writes text and type, and then the counter, because readers act when the counter changes. When
// the record shows the same counter already, the counter first takes the number before it: a record
// publishes no equal value, so a repeated answer would pass unheard. Readers of the counter may
// post the next request, or destroy what the caller belongs to, before this function returns.
void writeAnswer(const Pello::Ptr<StatusRecord>& status, const Answer& answer);

// The outcome that the record tells now.
Outcome outcomeOf(const StatusRecord& status);

} // namespace Postcard::RulesClient
