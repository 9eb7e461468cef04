// `require`: what a fuzz target asserts. Relies on nothing; a failure ends the process, which is
// how a target tells the fuzzer that it found something.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace Fuzz {

// Ends the process unless `holds`; `what` says what should hold, `detail` about which text.
inline void require(bool holds, std::string_view what, std::string_view detail = {}) {
   if (!holds) {
      std::fprintf(stderr, "does not hold: %.*s: %.*s\n", static_cast<int>(what.size()),
                   what.data(), static_cast<int>(detail.size()), detail.data());
      std::abort();
   }
}

} // namespace Fuzz
