// `fetchRunningFile`: the policy file that a running agent has taken over. Relies on the agent's
// control socket.
//
// The file on disk may be a newer one, so the agent keeps the text that it was given. It answers
// the command "file" with one line, a JSON object with the members "path" and "unsettled", and then
// the text.
#pragma once

#include "postcard/policy/file/PolicyFile.h"

#include <string>
#include <vector>

namespace Postcard::Cli {

struct RunningFile {
   std::string path; // of the file that the agent reads at a reload; absolute
   std::string text; // of the file that the agent took over last
   // The policies that are not programmed as that file says, a line each, such as "web ipv4:
   // failed, full: …". The rules client may hold older rules of them, or none.
   std::vector<std::string> unsettled;
};

// Asks the agent that listens at the socket `path`. Throws Agent::Service::ControlError when no
// agent answers, or when it does not know the question.
RunningFile fetchRunningFile(const std::string& path);

// The policies of a running file, read anew. Writes a warning for each policy that is not settled
// to `messages`.
Policy::File::LoadResult loadRunning(const RunningFile& running);

} // namespace Postcard::Cli
