// `requestAgent`: the client's end of the agent's Unix socket. Relies on nothing of the agent.
//
// The format of the messages, for both ends: a client connects, sends one line and closes its
// writing side. The line is a JSON object with the member "command"; ControlCommands.h lists the
// commands. The agent answers with one line, a JSON object with the member "exit", which is the
// exit code that the client should end with. Behind that line comes the text for the user. Then the
// agent closes the connection. A long text is written while the agent does other things, and may be
// cut when something goes wrong. Therefore the line before it has the member "marked", and
// `endMark` follows a text that is whole.
#pragma once

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Postcard::Agent::Service {

// The agent cannot be reached or does not answer; the text says which socket and why.
class ControlError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

struct ControlAnswer {
   int exitCode = 0; // for the client to end with
   std::string text; // for the user: the result, or why the request failed
};

// The longest request line that an agent reads, in bytes without its end.
inline constexpr std::size_t longestRequest = 4096;

// The path of an agent's socket when none is given: postcard.sock in the folder XDG_RUNTIME_DIR or,
// when that is empty or not set, in /run/postcard. Whether there is a socket is not checked.
std::string defaultSocketPath();

// Throws ControlError, which states the longest length, when `path` does not fit the address of a
// Unix socket.
void checkSocketPath(const std::string& path);

// Follows a whole text whose header says "marked". No text contains it.
inline constexpr char endMark = '\0';

// Sends `line` (without line end) to the agent that listens at `path` and returns its answer.
// Blocks until then, at most for `patience` in all. Throws ControlError when the path is bad, no
// agent answers, it does not answer in time, or the answer has another format.
ControlAnswer requestAgent(const std::string& path, const std::string& line,
                           std::chrono::milliseconds patience);

// The same for an answer of any size: calls `take` with the exit code and each part of the text as
// it comes, at least once, and returns the exit code. `patience` is for each part, because a large
// answer may take minutes. Throws what `take` throws, too.
using TakeAnswer = std::function<void(int exitCode, std::string_view part)>;
int requestAgent(const std::string& path, const std::string& line,
                 std::chrono::milliseconds patience, const TakeAnswer& take);

} // namespace Postcard::Agent::Service
