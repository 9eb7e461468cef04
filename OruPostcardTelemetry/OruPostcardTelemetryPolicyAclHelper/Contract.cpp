#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Contract.h"

namespace OruPostcardTelemetry {

void contractBroken(std::string_view function, std::string_view expression,
                    std::string_view message, std::source_location where) {
   // The folder stands for the source file: its sources may be renamed, the line that tools search
   // for may not.
   Pello::assertionFailed(
         {"OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper", where.line(), function},
         expression, message);
}

} // namespace OruPostcardTelemetry
