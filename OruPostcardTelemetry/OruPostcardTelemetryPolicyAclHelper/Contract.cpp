#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Contract.h"

namespace OruPostcardTelemetry {

void contractBroken(std::string_view function, std::string_view expression,
                    std::string_view message, std::source_location where) {
   Pello::assertionFailed(
         {"OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper", where.line(), function},
         expression, message);
}

} // namespace OruPostcardTelemetry
