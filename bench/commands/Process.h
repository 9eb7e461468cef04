// `run`: runs a program to its end and says what it took. Relies on POSIX.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace Bench {

// What a process took, as the kernel accounts for it.
struct Cost {
   double ms = 0;         // of processor time, of the process and of its threads
   double peakMiB = 0;    // of resident memory, no less than this process had when it forked
   std::size_t bytes = 0; // written to standard output
};

// Runs a program, with its path first in `command`, and reads all that it writes to standard
// output, through a pipe and without looking at it. Standard error goes to the null device. Throws
// std::runtime_error when the program ends with another exit code than `exitCode`.
Cost run(const std::vector<std::string>& command, int exitCode = 0);

// Does `work` in a child process. What it throws ends the child, and throws here.
Cost inChild(const std::function<void()>& work);

} // namespace Bench
