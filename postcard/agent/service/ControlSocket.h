// The agent's Unix socket as both ends see it: `requestAgent` is the client; the message format
// serves the server too.
//
// A client connects, sends one line and closes its writing side. The line is a JSON object with
// "command". The agent answers with one line, a JSON object with "exit" (the exit code for the
// client's user), followed by the text for standard output, and closes.
#pragma once

#include <chrono>
#include <stdexcept>
#include <string>

namespace Postcard::Agent::Service {

// The agent cannot be reached or does not answer; the text says which socket and why.
class ControlError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

struct ControlAnswer {
   int exitCode = 0;
   std::string text;
};

// The longest request line that an agent reads, in bytes.
inline constexpr std::size_t longestRequest = 4096;

// Where an agent listens when it is not told otherwise: postcard.sock in XDG_RUNTIME_DIR, or, for a
// service of the whole machine, in /run/postcard.
std::string defaultSocketPath();

// Whether `path` fits the address of a Unix socket; throws ControlError that says how long it may
// be.
void checkSocketPath(const std::string& path);

// Sends `line` (without line end) to the agent that listens at `path` and returns its answer.
// Throws ControlError, also when all of it takes longer than `patience`.
ControlAnswer requestAgent(const std::string& path, const std::string& line,
                           std::chrono::milliseconds patience);

} // namespace Postcard::Agent::Service
