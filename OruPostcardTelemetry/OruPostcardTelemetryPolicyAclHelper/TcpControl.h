// TCP control: whether rules match TCP flags. The hardware can or cannot (`tcpFlagsSupported`); the
// feature toggle says what kind of filter the producers of policies write. Relies on the
// feature-toggle library.
#pragma once

#include "Pello/Ptr.h"
#include "PostcardTelemetry/HwCapability.h"

#include <cstddef>
#include <string>

namespace OruPostcardTelemetry {

// Whether the hardware matches TCP flags. Without a capability record (null) it does not.
bool tcpFlagsSupported(const Pello::Ptr<const PostcardTelemetry::HwCapability>& hwCapability);

// Whether the feature toggle FeaturePostcardTelemetryTcpControl is on, which it is by default. The
// toggle is read once; the first answer holds for the life of the process.
bool toggleFeaturePostcardTelemetryTcpControlEnabled();

// The message of the assertion on protocol fields: "Expected ports() to be 1, got 2". Producers
// that do not know TCP control give each protocol field exactly one port entry.
std::string portCountMessage(std::size_t ports);

} // namespace OruPostcardTelemetry
