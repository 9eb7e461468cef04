#include "Kiv/Exception.h"

namespace Kiv {

// Defined here, so that every library throws and catches the same types.
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
