#include "Pello/ThreadSafety.h"

namespace Pello {

constinit bool Detail::threadSafe = false;

void threadSafeIs(bool on) noexcept {
   Detail::threadSafe = on;
}

} // namespace Pello
