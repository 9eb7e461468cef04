#include "Kiv/Exception.h"

namespace Kiv {

// Destructors are defined here, so that type information stands in this library alone, and all
// libraries throw and catch the same types.
Exception::~Exception() = default;
RangeError::~RangeError() = default;
NotHashable::~NotHashable() = default;
NameError::~NameError() = default;
ParseError::~ParseError() = default;

ParseError::ParseError(const std::string& reason, std::size_t position)
   : Exception{reason + " at position " + std::to_string(position)},
     reason_{reason},
     position_{position} {}

} // namespace Kiv
