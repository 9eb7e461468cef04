#include "postcard/rules-client/Records.h"

namespace Postcard::RulesClient {

// By value, because a subscriber may destroy the caller, and with it what references would refer
// to.
void writeAnswer(Pello::Ptr<StatusRecord> status, Answer answer) {
   const U32 request = answer.request;
   const bool isRepeated = status->kickResponse() == request;
   status->statusIs(Pello::String{textOf(answer.outcome)});
   status->statusTypeIs(answer.outcome.succeeded() ? OruPostcardTelemetry::statusSuccess
                                                   : OruPostcardTelemetry::statusFailure);
   if (isRepeated) {
      status->kickResponseIs(request - 1);
   }
   status->kickResponseIs(request);
}

Outcome outcomeOf(const StatusRecord& status) {
   return outcomeOf(status.statusType() == OruPostcardTelemetry::statusSuccess,
                    status.status().view());
}

} // namespace Postcard::RulesClient
