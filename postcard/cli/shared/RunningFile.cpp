#include "postcard/cli/shared/RunningFile.h"

#include "Pello/VisibleCharacters.h"
#include "postcard/agent/service/ControlSocket.h"
#include "postcard/cli/shared/Command.h"
#include "postcard/cli/shared/Work.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <ostream>

namespace Postcard::Cli {

namespace {

using Agent::Service::ControlError;

constexpr std::chrono::seconds patience{30};

// Takes the answer apart. Throws nlohmann::json::exception when it has another form.
RunningFile parse(const std::string& answer) {
   const std::size_t end = answer.find('\n');
   const auto header = nlohmann::json::parse(answer.substr(0, end));
   RunningFile running;
   running.path = header.at("path").get<std::string>();
   running.text = answer.substr(end + 1); // the header was read, so there is a line end
   header.at("unsettled").get_to(running.unsettled);
   return running;
}

} // namespace

RunningFile fetchRunningFile(const std::string& path) {
   workIs(fmt::format("asking the agent at {} for its policies", Pello::escaped(path)));
   const Agent::Service::ControlAnswer answer =
         Agent::Service::requestAgent(path, R"({"command":"file"})", patience);
   if (answer.exitCode != exitDone) {
      throw ControlError{fmt::format("{}: the agent does not tell its policies: {}", path,
                                     answer.text.substr(0, answer.text.find('\n')))};
   }
   try {
      return parse(answer.text);
   } catch (const nlohmann::json::exception&) {
      throw ControlError{fmt::format("{}: the agent's answer has another form", path)};
   }
}

Policy::File::LoadResult loadRunning(const RunningFile& running) {
   for (const std::string& line : running.unsettled) {
      messages() << "not in force as the file says: " << Pello::escaped(line) << '\n';
   }
   return Policy::File::parsePolicyText(running.text, running.path);
}

} // namespace Postcard::Cli
