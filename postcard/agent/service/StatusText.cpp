#include "postcard/agent/service/StatusText.h"

#include "postcard/json/Document.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <ctime>

namespace Postcard::Agent::Service {

namespace {

using Json = nlohmann::ordered_json;

// Rises when a key of the document changes its meaning or disappears.
constexpr int statusJsonSchema = 1;

// UTC, to the second, as RFC 3339 writes it.
std::string timeText(double seconds) {
   const auto time = static_cast<std::time_t>(seconds);
   std::tm utc{};
   ::gmtime_r(&time, &utc);
   char text[32];
   std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
   return text;
}

Json answersJson(const PolicyReport& report) {
   Json answers = Json::array();
   for (const AnsweredRequest& answer : report.answers) {
      answers.push_back({{"generation", answer.generation},
                         {"time", timeText(answer.when)},
                         {"succeeded", answer.succeeded},
                         {"text", answer.text}});
   }
   return answers;
}

Json policyJson(const PolicyReport& report, const std::string& file) {
   return {{"policy", report.name},
           {"family", familyName(report.family)},
           {"state", policyStateName(report.state)},
           {"text", report.text},
           {"generation", report.generation},
           {"entries", report.entries},
           {"since", timeText(report.since)},
           {"overdue", report.overdue},
           {"history", report.history},
           {"answers", answersJson(report)},
           {"classes", Report::json(report.refusedKeys, file)}};
}

Json refusedJson(const std::optional<RefusedReload>& refused) {
   return refused ? Json{{"time", timeText(refused->when)},
                         {"findings", findingsJson(refused->findings)}}
                  : Json(nullptr);
}

Json capacityJson(const std::optional<Capacity>& capacity) {
   return capacity ? Json{{"total", capacity->total},
                          {"used", capacity->used},
                          {"free", capacity->total - capacity->used}}
                   : Json(nullptr);
}

// The line of a report, the places of what the plug-in cannot express of the policy in `file`, and
// the history if that is asked for.
std::string policyText(const PolicyReport& report, const std::string& file, bool withHistory) {
   std::string text = fmt::format("{:<24} {:<6} {:<12} {:>8} {:>8}  {}", report.name,
                                  familyName(report.family), policyStateName(report.state),
                                  report.generation, report.entries, timeText(report.since));
   text += report.overdue ? "  overdue" : "";
   text += report.text.empty() ? "\n" : "  " + report.text + "\n";
   text += Report::text(report.refusedKeys, file, "      ");
   for (std::size_t i = 0; withHistory && i < report.answers.size(); ++i) {
      const AnsweredRequest& answer = report.answers[i];
      const bool silent = answer.text.empty();
      text += fmt::format("{:>52} {:>8}  {}  {}\n", answer.generation, "", timeText(answer.when),
                          !silent            ? answer.text
                          : answer.succeeded ? "programmed"
                                             : "failed");
   }
   return text;
}

std::string refusedText(const RefusedReload& refused) {
   std::string text =
         fmt::format("\nreload refused at {}, the policies are those of the file before:\n",
                     timeText(refused.when));
   for (const ReloadFinding& finding : refused.findings) {
      text += finding.lines("  ");
   }
   return text;
}

} // namespace

nlohmann::ordered_json findingsJson(const std::vector<ReloadFinding>& findings) {
   Json list = Json::array();
   for (const ReloadFinding& finding : findings) {
      const bool placed = finding.location.line != 0;
      Json one{{"file", finding.file},
               {"line", placed ? Json(finding.location.line) : Json(nullptr)},
               {"column", placed ? Json(finding.location.column) : Json(nullptr)}};
      if (finding.family) {
         one["policy"] = finding.policy;
         one["family"] = familyName(*finding.family);
      }
      one["code"] = finding.code;
      one["text"] = finding.text;
      if (finding.family) {
         one["classes"] = Report::json(finding.keys, finding.file);
      }
      list.push_back(std::move(one));
   }
   return list;
}

std::string statusJson(const PolicyAgent& agent, const Process& process) {
   Json policies = Json::array();
   for (const PolicyReport& report : agent.report()) {
      policies.push_back(policyJson(report, process.policyFile));
   }
   return Postcard::Json::documentText(Json{{"schema", statusJsonSchema},
                                            {"refusedReload", refusedJson(process.refused())},
                                            {"capacity", capacityJson(process.capacity())},
                                            {"policies", std::move(policies)}});
}

std::string statusText(const PolicyAgent& agent, const Process& process, bool withHistory) {
   std::string text = fmt::format("{:<24} {:<6} {:<12} {:>8} {:>8}  {}\n", "POLICY", "FAMILY",
                                  "STATE", "REQUEST", "ENTRIES", "SINCE");
   for (const PolicyReport& report : agent.report()) {
      text += policyText(report, process.policyFile, withHistory);
   }
   if (const auto capacity = process.capacity()) {
      text += fmt::format("\n{} of {} entries used, {} free\n", capacity->used, capacity->total,
                          capacity->total - capacity->used);
   }
   if (const auto& refused = process.refused()) {
      text += refusedText(*refused);
   }
   return text;
}

} // namespace Postcard::Agent::Service
