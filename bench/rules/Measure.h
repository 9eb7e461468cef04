// `measure`: what one contender costs on one workload, found out in a process of its own, so that
// no contender meets memory that another one has left. Relies on Linux: fork, the thread's
// processor time, and the kernel's account of resident memory.
#pragma once

#include "Contender.h"

#include <cstddef>
#include <string>

namespace Bench {

// One contender in one process. Times are processor time of the thread, kernel included, so that
// other processes on the machine disturb less; creation only, without removal.
struct Sample {
   double firstNs;       // per rule, the first creation: every byte is memory fresh from the kernel
   double againNs;       // per rule, the fastest creation after a removal: memory used before
   double residentBytes; // per rule, growth of resident memory during the first creation
};

// Creates at least twice, and again until `budgetMs` milliseconds are spent in creation. Throws
// std::runtime_error when the child fails, or has made another number of rules than expected.
Sample measure(ContenderFactory factory, const Workload& workload, double budgetMs);

// Compares the rules of all three contenders, in a process of its own: count, order, values, the
// names of ours and R, and that both tables hold the same objects. Throws std::runtime_error with
// the first difference.
void requireSameRules(const Workload& workload);

} // namespace Bench
