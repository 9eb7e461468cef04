#include "postcard/rules-client/Records.h"

namespace Postcard::RulesClient {

void writeAnswer(const Pello::Ptr<StatusRecord>& status, const Answer& answer) {
   // Copies, because a subscriber may destroy the caller, and with it what the parameters refer to.
   const Pello::Ptr<StatusRecord> record = status;
   const U32 request = answer.request;
   const bool isRepeated = record->kickResponse() == request;
   record->statusIs(Pello::String{textOf(answer.outcome)});
   record->statusTypeIs(answer.outcome.succeeded() ? OruPostcardTelemetry::statusSuccess
                                                   : OruPostcardTelemetry::statusFailure);
   if (isRepeated) {
      record->kickResponseIs(request - 1);
   }
   record->kickResponseIs(request);
}

Outcome outcomeOf(const StatusRecord& status) {
   return outcomeOf(status.statusType() == OruPostcardTelemetry::statusSuccess,
                    status.status().view());
}

} // namespace Postcard::RulesClient
