#include "postcard/cli/shared/PolicyChoice.h"

#include "Pello/VisibleCharacters.h"
#include "postcard/agent/service/ControlSocket.h"
#include "postcard/cli/shared/Command.h"
#include "postcard/cli/shared/RunningFile.h"
#include "postcard/json/Document.h"
#include "postcard/policy/file/PolicyFile.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <iostream>
#include <new>
#include <utility>

namespace Postcard::Cli {

void PolicyChoice::declare(CLI::App& parser) {
   parser.add_option("FILE", file_, "policy file (YAML or JSON); - is standard input")->required();
   declareChoice(parser);
}

void PolicyChoice::declareWithSocket(CLI::App& parser) {
   auto* const file =
         parser.add_option("FILE", file_, "policy file (YAML or JSON); - is standard input");
   parser.add_option("--socket", socket_,
                     "in place of FILE: the policies of the agent at this Unix socket")
         ->type_name("PATH")
         ->excludes(file);
   command_ = parser.get_name();
   declareChoice(parser);
}

void PolicyChoice::declareChoice(CLI::App& parser) {
   parser.add_option("--policy", policies_, "only this policy; may be given several times")
         ->type_name("NAME")
         ->expected(1)
         ->allow_extra_args(false) // otherwise a FILE behind a name would count as another name
         ->take_all();
   parser.add_option("--family", family_, "only this address family")
         ->check(CLI::IsMember({"ipv4", "ipv6"}));
   progress_.declare(parser);
}

bool isStandardInput(std::string_view path) {
   return path == "-" || path == "/dev/stdin";
}

namespace {

// The version of the JSON document of findings. It rises when a key changes its meaning or
// disappears.
constexpr int findingsJsonSchema = 1;

using Json = nlohmann::ordered_json;
using Postcard::Json::documentText;

Json findingJson(const std::string& file, const Policy::Location& location, std::string_view code,
                 std::string_view text) {
   const bool placed = location.line > 0;
   return {{"file", file},
           {"line", placed ? Json(location.line) : Json(nullptr)},
           {"column", placed ? Json(location.column) : Json(nullptr)},
           {"code", code},
           {"text", text}};
}

void printFindings(Json findings, std::size_t omitted) {
   std::cout << documentText(
         {{"schema", findingsJsonSchema}, {"findings", std::move(findings)}, {"omitted", omitted}});
}

int reportMissing(const std::string& file, const std::vector<std::string_view>& missing,
                  const Format& format) {
   auto findings = Json::array();
   for (const std::string_view name : missing) {
      const std::string text = "there is no policy " + quotedWord(name);
      messages() << Pello::escaped(file) << ": " << text << '\n';
      findings.push_back(findingJson(file, {}, "unknown-policy", text));
   }
   if (format.isJson()) {
      printFindings(std::move(findings), 0);
   }
   return exitUsage;
}

} // namespace

int reportUnusable(const std::vector<Policy::File::LoadResult>& loaded, const Format& format) {
   auto findings = Json::array();
   std::size_t omitted = 0;
   for (const Policy::File::LoadResult& each : loaded) {
      messages() << formatFindings(each);
      omitted += each.omittedFindings;
      for (const Policy::Finding& finding : each.findings) {
         findings.push_back(findingJson(each.fileName, finding.location, codeName(finding.code),
                                        finding.message));
      }
   }
   if (format.isJson()) {
      printFindings(std::move(findings), omitted);
   }
   return exitUsage;
}

// The names behind --policy that no policy of the file has.
std::vector<std::string_view>
PolicyChoice::missingPolicies(const Policy::PolicyFile& policyFile) const {
   std::vector<std::string_view> missing;
   for (const std::string& name : policies_) {
      if (std::ranges::none_of(policyFile.policies, [&](const Policy::Policy& policy) {
             return policy.name.text == name;
          })) {
         missing.push_back(name);
      }
   }
   return missing;
}

int PolicyChoice::run(const Format& format,
                      const std::function<int(const Policy::PolicyFile&)>& work) const {
   // Not by the exception alone: it cannot leave functions that must not throw, and would end the
   // process without saying why.
   std::set_new_handler(endForShortMemory);
   // Not by the parser: a group of which one is required takes no FILE behind an option.
   if (file_.empty() && socket_.empty()) {
      messages() << fmt::format("postcard {0}: FILE or --socket is required\n"
                                "Run 'postcard {0} --help' for what it takes.\n",
                                command_);
      return exitUsage;
   }
   const Progress progress{progress_.isWanted()};
   try {
      return runLoaded(load(), format, work);
   } catch (const Agent::Service::ControlError& error) {
      messages() << error.what() << '\n';
      return exitEnvironment;
   }
}

std::string PolicyChoice::fileName() const {
   if (!running_.empty()) {
      return running_;
   }
   return file_ == "-" ? "<stdin>" : file_;
}

Policy::File::LoadResult PolicyChoice::load() const {
   if (socket_.empty()) {
      workIs("reading policy file " + Pello::escaped(fileName()));
      return Policy::File::loadPolicyFile(file_);
   }
   const RunningFile running = fetchRunningFile(socket_);
   running_ = running.path;
   return loadRunning(running);
}

int PolicyChoice::runLoaded(const Policy::File::LoadResult& loaded, const Format& format,
                            const std::function<int(const Policy::PolicyFile&)>& work) const {
   if (!loaded.policyFile) {
      return reportUnusable({loaded}, format);
   }
   if (const auto missing = missingPolicies(*loaded.policyFile); !missing.empty()) {
      return reportMissing(fileName(), missing, format);
   }
   try {
      return work(*loaded.policyFile);
   } catch (const Host::PluginError& error) {
      messages() << error.what() << '\n';
      return exitEnvironment;
   }
}

bool PolicyChoice::chooses(const Policy::Policy& policy) const {
   return policies_.empty() || std::ranges::find(policies_, policy.name.text) != policies_.end();
}

bool PolicyChoice::chooses(const Policy::Policy& policy, Policy::Family family) const {
   const bool ofFamily = family_.empty() || family_ == familyName(family);
   // The helper ends the process when it is given a family without interfaces.
   return chooses(policy) && ofFamily && !policy.interfaces(family).empty();
}

Report::Scope PolicyChoice::scope(const Policy::PolicyFile& policyFile) const {
   Report::Scope scope;
   for (const Policy::Policy& policy : policyFile.policies) {
      if (chooses(policy)) {
         scope.policies.push_back(&policy);
      }
   }
   if (!family_.empty()) {
      scope.family = family_ == familyName(Policy::Family::ipv4) ? Policy::Family::ipv4
                                                                 : Policy::Family::ipv6;
   }
   return scope;
}

// The number of ACLs that the chosen policies become.
std::size_t PolicyChoice::aclsOf(const Policy::PolicyFile& policyFile) const {
   std::size_t count = 0;
   for (const Policy::Policy& policy : policyFile.policies) {
      for (const Policy::Family family : {Policy::Family::ipv4, Policy::Family::ipv6}) {
         if (chooses(policy, family)) {
            ++count;
         }
      }
   }
   return count;
}

std::vector<Report::Refusal> PolicyChoice::compile(const Policy::PolicyFile& policyFile,
                                                   const Visit& visit) const {
   const Host::PolicyCompiler compiler{policyFile};
   const std::size_t acls = aclsOf(policyFile);
   std::size_t number = 0;
   std::vector<Report::Refusal> refused;
   for (const Policy::Policy& policy : policyFile.policies) {
      for (const Policy::Family family : {Policy::Family::ipv4, Policy::Family::ipv6}) {
         if (!chooses(policy, family)) {
            continue;
         }
         workIs(fmt::format("compiling policy {}, {}, of {} ({} of {})",
                            quotedWord(policy.name.text), familyName(family),
                            Pello::escaped(fileName()), ++number, acls));
         const Host::PolicyCompiler::Result result = compiler.compile(policy, family);
         if (result.acl != nullptr) {
            visit(policy, family, result);
         } else {
            refused.push_back(Report::refusalOf(policy, family, policyFile.hardware, fileName(),
                                                result.message));
            // At once and not at the end: on a terminal the message then stands between the ACLs of
            // the policies before and behind.
            messages() << text(refused.back());
         }
      }
   }
   return refused;
}

} // namespace Postcard::Cli
