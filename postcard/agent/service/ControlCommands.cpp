#include "postcard/agent/service/ControlCommands.h"

#include "Pello/FileDescriptor.h"
#include "Pello/TextTrace.h"
#include "postcard/json/EntityJson.h"
#include "postcard/report/Memory.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cerrno>
#include <ctime>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>

namespace Postcard::Agent::Service {

namespace {

using Json = nlohmann::ordered_json;

// The versions of the JSON documents. One rises when a key of its document changes its meaning or
// disappears.
constexpr int statusJsonSchema = 1;
constexpr int reloadJsonSchema = 1;
// The exit codes of `postcard`, which stand in cli/Command.h: this room must not include that one.
constexpr int exitDone = 0;
constexpr int exitRefused = 1;
constexpr int exitUsage = 2;

// An answer in the format of ControlSocket.h.
std::string answer(int exitCode, std::string_view text) {
   return Json{{"exit", exitCode}}.dump() + "\n" + std::string{text};
}

// Texts of a rules client, and paths, may hold bytes that are not UTF-8. JSON cannot hold them, so
// each becomes U+FFFD; `dump` would throw otherwise.
std::string text(const Json& document) {
   return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

// UTC, to the second, as RFC 3339 writes it.
std::string timeText(double seconds) {
   const auto time = static_cast<std::time_t>(seconds);
   std::tm utc{};
   ::gmtime_r(&time, &utc);
   char text[32];
   std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
   return text;
}

Json statusJson(const PolicyReport& report) {
   return {{"policy", report.name},
           {"family", familyName(report.family)},
           {"state", policyStateName(report.state)},
           {"text", report.text},
           {"generation", report.generation},
           {"since", timeText(report.since)},
           {"overdue", report.overdue},
           {"history", report.history}};
}

std::string allStatusJson(const PolicyAgent& agent) {
   Json policies = Json::array();
   for (const PolicyReport& report : agent.report()) {
      policies.push_back(statusJson(report));
   }
   return text(Json{{"schema", statusJsonSchema}, {"policies", std::move(policies)}});
}

// The helper writes the show text to a descriptor. A file in memory takes a text of any size; a
// pipe would block the event loop as soon as it is full.
std::string showText(const PolicyAgent& agent) {
   const Pello::FileDescriptor memory{::memfd_create("postcard-show", MFD_CLOEXEC)};
   if (memory.get() < 0) {
      throw std::system_error{errno, std::generic_category(), "no memory for the show text"};
   }
   agent.show(static_cast<U32>(memory.get()));
   std::string text(static_cast<std::size_t>(::lseek(memory.get(), 0, SEEK_END)), '\0');
   const ssize_t size = ::pread(memory.get(), text.data(), text.size(), 0);
   text.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
   return text;
}

std::string showJson(const PolicyAgent& agent) {
   Json acls = Json::array();
   agent.forEachAclConfig([&](const OruPostcardTelemetry::PostcardTelemetryAclConfig& config) {
      acls.push_back(Postcard::Json::entityJson(config));
   });
   return text(Json{{"schema", Postcard::Json::aclJsonSchema}, {"acls", std::move(acls)}});
}

std::string reloadJson(const ReloadResult& result) {
   return text(Json{{"schema", reloadJsonSchema},
                    {"accepted", result.accepted},
                    {"operations", result.operations},
                    {"findings", result.findings}});
}

std::string answerReload(const Reload& reload, bool json) {
   const ReloadResult result = reload();
   const int refused = result.unusableFile ? exitUsage : exitRefused;
   return answer(result.accepted ? exitDone : refused, json ? reloadJson(result) : result.text());
}

// Sets the levels of the text trace when the request names some, and answers with those in force.
std::string answerTraceLevels(const nlohmann::json& request) {
   // Levels that are no string, or that cannot be read, are the mistake of the client.
   try {
      if (request.contains("levels")) {
         Pello::traceLevelsIs(request["levels"].get<std::string>());
      }
      return answer(exitDone, Pello::traceLevels() + "\n");
   } catch (const std::exception& error) {
      return answer(exitUsage, std::string{error.what()} + "\n");
   }
}

} // namespace

std::string statusText(const std::vector<PolicyReport>& reports) {
   std::string text;
   for (const PolicyReport& report : reports) {
      text += fmt::format("{:<24} {:<6} {:<12} {:>8}  {}", report.name, familyName(report.family),
                          policyStateName(report.state), report.generation, timeText(report.since));
      text += report.overdue ? "  overdue" : "";
      text += report.text.empty() ? "\n" : "  " + report.text + "\n";
   }
   return text;
}

std::string answerRequest(std::string_view line, const PolicyAgent& agent, const Reload& reload) {
   // Without exceptions: a text that is no JSON becomes a value that is no object.
   const auto request = nlohmann::json::parse(line, nullptr, false);
   if (!request.is_object() || !request.contains("command") || !request["command"].is_string()) {
      return answer(exitUsage, "a request is a JSON object with \"command\"\n");
   }
   const std::string command = request["command"];
   const bool json = request.value("format", nlohmann::json("text")) == "json";
   if (command == "show") {
      return answer(exitDone, json ? showJson(agent) : showText(agent));
   }
   if (command == "status") {
      return answer(exitDone, json ? allStatusJson(agent) : statusText(agent.report()));
   }
   if (command == "memory") {
      const Report::Memory memory = Report::processMemory();
      return answer(exitDone, json ? text(Report::json(memory)) : Report::text(memory));
   }
   if (command == "trace-levels") {
      return answerTraceLevels(request);
   }
   if (command == "reload") {
      return answerReload(reload, json);
   }
   return answer(exitUsage, "unknown command '" + command + "'\n");
}

} // namespace Postcard::Agent::Service
