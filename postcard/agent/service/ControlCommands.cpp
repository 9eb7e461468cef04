#include "postcard/agent/service/ControlCommands.h"

#include "Pello/TextTrace.h"
#include "Pello/VisibleCharacters.h"
#include "postcard/agent/service/StatusLog.h"
#include "postcard/agent/service/StatusText.h"
#include "postcard/json/Document.h"
#include "postcard/json/EntityJson.h"
#include "postcard/json/Writer.h"
#include "postcard/report/Compilation.h"
#include "postcard/report/Memory.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <unistd.h>

namespace Postcard::Agent::Service {

namespace {

using Json = nlohmann::ordered_json;

// The version of the JSON document. It rises when a key changes its meaning or disappears.
constexpr int reloadJsonSchema = 2;
// The exit codes of `postcard`, which stand in cli/shared/Command.h: this room must not include
// that one.
constexpr int exitDone = 0;
constexpr int exitRefused = 1;
constexpr int exitUsage = 2;
constexpr int exitEnvironment = 3;
// With more policies, their states are written by a child process. A thousand take some 10 ms.
constexpr std::size_t mostAtOnce = 500;

// An answer in the format of ControlSocket.h.
Answer answer(int exitCode, std::string_view text) {
   return {Json{{"exit", exitCode}}.dump() + "\n" + std::string{text}, nullptr};
}

// An answer whose text follows its header, with a mark at the end: see ControlSocket.h.
Answer longAnswer(int exitCode, WriteAnswer write) {
   return {Json{{"exit", exitCode}, {"marked", true}}.dump() + "\n", std::move(write)};
}

// Writes all of `text` to the pipe `fd`. Throws std::system_error.
void writeAll(int fd, std::string_view text) {
   while (!text.empty()) {
      const ssize_t size = ::write(fd, text.data(), text.size());
      if (size < 0) {
         throw std::system_error{errno, std::generic_category(), "pipe"};
      }
      text.remove_prefix(static_cast<std::size_t>(size));
   }
}

// ---- The states ----

Answer answerStatus(int exitCode, const PolicyAgent& agent, const Process& process, bool json,
                    bool withHistory) {
   const auto all = [=, &agent, &process] {
      return json ? statusJson(agent, process) : statusText(agent, process, withHistory);
   };
   if (agent.size() <= mostAtOnce) {
      return answer(exitCode, all());
   }
   return longAnswer(exitCode, [all](int fd) { writeAll(fd, all()); });
}

Answer answerWait(WaitEnd end, const PolicyAgent& agent, const Process& process, bool json,
                  bool withHistory) {
   switch (end) {
   case WaitEnd::programmed:
   case WaitEnd::failed:
      return answerStatus(end == WaitEnd::programmed ? exitDone : exitRefused, agent, process, json,
                          withHistory);
   case WaitEnd::late:
      return answer(exitEnvironment, "the time is up, and not all policies are programmed\n");
   case WaitEnd::refused:
      break;
   }
   return answer(exitEnvironment, "too many clients wait already\n");
}

// ---- The other commands ----

// With the origins of the rules, or null in place of them when the rules are not those of the
// version that the helper was given last: a guess would mislead, and the rules are worth showing.
void writeAcl(const OruPostcardTelemetry::PostcardTelemetryAclConfig& config,
              const Host::CompiledPolicy* compiled, Postcard::Json::Writer& writer) {
   if (compiled != nullptr) {
      try {
         return Report::writeAcl(*compiled, writer);
      } catch (const Host::OriginError&) { // before anything was written
      }
   }
   Report::writeAcl(config, writer);
}

// Piece by piece: the whole document takes several times the memory of the ACLs.
void writeShowJson(int fd, const PolicyAgent& agent) {
   Postcard::Json::Writer writer{[fd](std::string_view piece) { writeAll(fd, piece); }};
   writer.beginObject();
   writer.member("schema");
   writer.number(Postcard::Json::aclJsonSchema);
   writer.member("acls");
   writer.beginList();
   agent.forEachAcl(
         [&](const OruPostcardTelemetry::PostcardTelemetryAclConfig& config,
             const Host::CompiledPolicy* compiled) { writeAcl(config, compiled, writer); });
   writer.endList();
   writer.endObject();
   writer.finish();
}

// The states that are not what the file asks for.
Json unsettledJson(const PolicyAgent& agent) {
   auto lines = Json::array();
   for (const PolicyReport& report : agent.report()) {
      if (report.state != PolicyState::programmed && report.state != PolicyState::empty &&
          report.state != PolicyState::removed) {
         lines.push_back(statusLine(report));
      }
   }
   return lines;
}

// As RunningFile.h describes it.
void writeFile(int fd, const PolicyAgent& agent, const Process& process) {
   std::error_code error;
   const auto path = std::filesystem::absolute(process.policyFile, error);
   const Json header{{"path", error ? process.policyFile : path.string()},
                     {"unsettled", unsettledJson(agent)}};
   using Handler = Json::error_handler_t;
   writeAll(fd, header.dump(-1, ' ', false, Handler::replace) + "\n");
   writeAll(fd, process.policyText());
}

std::string reloadJson(const ReloadResult& result) {
   return Postcard::Json::documentText(Json{{"schema", reloadJsonSchema},
                                            {"accepted", result.accepted},
                                            {"operations", result.operations},
                                            {"findings", findingsJson(result.findings)},
                                            {"omitted", result.omittedFindings}});
}

Answer answerReload(const ReloadResult& result, bool json) {
   const int refused = result.unusableFile ? exitUsage : exitRefused;
   return answer(result.accepted ? exitDone : refused, json ? reloadJson(result) : result.text());
}

// Sets the levels of the text trace when the request names some, and answers with those in force.
Answer answerTraceLevels(const nlohmann::json& request) {
   // Levels that are no string, or that cannot be read, are the mistake of the client.
   try {
      if (request.contains("levels")) {
         Pello::traceLevelsIs(request["levels"].get<std::string>());
      }
      return answer(exitDone, Pello::traceLevels() + "\n");
   } catch (const std::exception& error) {
      return answer(exitUsage, Pello::escaped(error.what()) + "\n");
   }
}

bool isSet(const nlohmann::json& request, const char* member) {
   return request.value(member, nlohmann::json(false)) == true;
}

// The time of "wait"; absent when there is none. A client cannot make the agent wait for more than
// a day.
std::optional<std::chrono::milliseconds> waitOf(const nlohmann::json& request) {
   const auto seconds = request.value("wait", nlohmann::json());
   if (!seconds.is_number()) {
      return std::nullopt;
   }
   return std::chrono::milliseconds{
         static_cast<long>(std::clamp(seconds.get<double>(), 0.0, 86400.0) * 1000)};
}

} // namespace

void answerRequest(std::string_view line, const PolicyAgent& agent, const Process& process,
                   const Respond& respond) {
   // Without exceptions: a text that is no JSON becomes a value that is no object.
   const auto request = nlohmann::json::parse(line, nullptr, false);
   if (!request.is_object() || !request.contains("command") || !request["command"].is_string()) {
      return respond(answer(exitUsage, "a request is a JSON object with \"command\"\n"));
   }
   const std::string command = request["command"];
   const bool json = request.value("format", nlohmann::json("text")) == "json";
   if (command == "show") {
      return respond(longAnswer(exitDone, [json, &agent](int fd) {
         json ? writeShowJson(fd, agent) : agent.show(static_cast<U32>(fd));
      }));
   }
   if (command == "status") {
      const bool withHistory = isSet(request, "history");
      if (const auto time = waitOf(request)) {
         return process.wait(*time, [=, &agent, &process](WaitEnd end) {
            respond(answerWait(end, agent, process, json, withHistory));
         });
      }
      return respond(answerStatus(exitDone, agent, process, json, withHistory));
   }
   if (command == "file") {
      return respond(
            longAnswer(exitDone, [&agent, &process](int fd) { writeFile(fd, agent, process); }));
   }
   if (command == "counters") {
      if (!process.counters) {
         return respond(answer(exitRefused, "the rules client counts no packets\n"));
      }
      return respond(longAnswer(exitDone, [json, &process](int fd) {
         const auto counters = process.counters();
         writeAll(fd, json ? countersJson(counters) : countersText(counters));
      }));
   }
   if (command == "memory") {
      const Report::Memory memory = Report::processMemory();
      return respond(answer(exitDone, json ? Postcard::Json::documentText(Report::json(memory))
                                           : Report::text(memory)));
   }
   if (command == "trace-levels") {
      return respond(answerTraceLevels(request));
   }
   if (command == "reload") {
      return process.reload(
            {isSet(request, "allow-empty"), isSet(request, "partial")},
            [=](const ReloadResult& result) { respond(answerReload(result, json)); });
   }
   // Terminals obey control characters, and show others as nothing.
   respond(answer(exitUsage, "unknown command '" + Pello::escaped(command) + "'\n"));
}

} // namespace Postcard::Agent::Service
