// Linked into every library and program of a coverage build. Each has line counts of its own, which
// the compiler's run-time library writes at a normal end of the process only. Many tests look at
// processes that end otherwise: here the counts are also written when `quick_exit` runs.
#include <cstdlib>

extern "C" void __gcov_dump();

namespace {

[[gnu::constructor]] void enlist() {
   ::at_quick_exit(&__gcov_dump);
}

} // namespace
