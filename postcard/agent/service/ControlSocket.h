// `requestAgent`: the client's end of the agent's Unix socket, and the message format, which
// `ControlServer` follows too. Relies on nothing of the agent.
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
   int exitCode = 0; // for the client to end with
   std::string text; // for its standard output
};

// The longest request line that an agent reads, in bytes without its end.
inline constexpr std::size_t longestRequest = 4096;

// The path of an agent's socket when none is given: postcard.sock in XDG_RUNTIME_DIR or, when that
// is not set, in /run/postcard.
std::string defaultSocketPath();

// Throws ControlError, which states the longest length, when `path` does not fit the address of a
// Unix socket.
void checkSocketPath(const std::string& path);

// Sends `line` (without line end) to the agent that listens at `path` and returns its answer.
// Throws ControlError, also when all of it takes longer than `patience`.
ControlAnswer requestAgent(const std::string& path, const std::string& line,
                           std::chrono::milliseconds patience);

} // namespace Postcard::Agent::Service
