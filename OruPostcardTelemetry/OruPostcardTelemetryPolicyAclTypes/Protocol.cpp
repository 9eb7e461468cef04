#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/Protocol.h"

#include "Kiv/Exception.h"

namespace OruPostcardTelemetry {

void Protocol::refuse() {
   throw Kiv::RangeError{"OruPostcardTelemetry::Protocol::value < "
                         "OruPostcardTelemetry::Protocol::minProto or > "
                         "OruPostcardTelemetry::Protocol::maxProto not allowed"};
}

} // namespace OruPostcardTelemetry
