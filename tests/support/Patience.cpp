#include "support/Sanitized.h"

namespace TestSupport {

// This source is compiled with the flags of the libraries that are tested. The tests themselves are
// never optimised, so the compiler's macro would say nothing in them.
#if defined(__OPTIMIZE__)
const double patience = sanitized ? 10 : 1;
#else
const double patience = 10;
#endif

} // namespace TestSupport
