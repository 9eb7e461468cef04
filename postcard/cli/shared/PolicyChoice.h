// `PolicyChoice`: the arguments FILE, --policy, --family and --progress of the subcommands that
// compile policies, and the compiling of the policies that they choose. Relies on the loader of
// policy files and on `PolicyCompiler`.
#pragma once

#include "postcard/cli/shared/Format.h"
#include "postcard/cli/shared/Work.h"
#include "postcard/host/PolicyCompiler.h"
#include "postcard/policy/Policy.h"
#include "postcard/policy/file/PolicyFile.h"
#include "postcard/report/Refusal.h"
#include "postcard/report/explain/NoAcl.h"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
}

namespace Postcard::Cli {

// Whether `path` stands for standard input: "-", or its name in the file system.
bool isStandardInput(std::string_view path);

// Reports the findings of files that cannot be used: on standard error, and with `format` JSON as
// the document that `PolicyChoice::run` describes. Returns `exitUsage`.
int reportUnusable(const std::vector<Policy::File::LoadResult>& loaded, const Format& format);

// Which policies of which file.
class PolicyChoice {
 public:
   // Is given one compiled policy, its family, and a Result that has an ACL. The policy belongs to
   // the policy file; the Result, and its ACL unless somebody keeps a reference, go afterwards.
   using Visit = std::function<void(const Policy::Policy&, Policy::Family,
                                    const Host::PolicyCompiler::Result&)>;

   // Adds FILE, --policy, --family and --progress to the command line. `parser` writes into this
   // object, so this object must stay in its place until the command line has been read.
   void declare(CLI::App& parser);
   // The same with --socket PATH, which stands in place of FILE and chooses the policies that a
   // running agent has taken over.
   void declareWithSocket(CLI::App& parser);

   // FILE as messages name it: "<stdin>" when it is "-". While `run` calls `work`, that of the
   // agent for --socket.
   std::string fileName() const;

   // Loads the file, calls `work` with it and returns the result of `work`. A file that cannot be
   // used, or that lacks a policy named by --policy, is reported on standard error, and the result
   // is `exitUsage`. A Host::PluginError of `work` is reported likewise, with `exitEnvironment`,
   // and so is an agent that does not answer. Other exceptions pass through.
   //
   // With `format` JSON, what is reported is on standard output as well, as the document
   //    {"schema", "findings": [{"file", "line", "column", "code", "text"}], "omitted"}
   // in which line and column are null when the file as a whole is wrong, and "omitted" counts the
   // findings that are left out because there are too many. From here on, running out of memory
   // ends the process with a message that says what was being made.
   int run(const Format& format, const std::function<int(const Policy::PolicyFile&)>& work) const;
   // Whether FILE is standard input: `isStandardInput` of its name.
   bool readsStandardInput() const { return isStandardInput(file_); }

   // What `compile` makes ACLs of, refused policies included. Refers to `policyFile`.
   Report::Scope scope(const Policy::PolicyFile& policyFile) const;

   // Compiles the chosen policies of `policyFile`, each in every chosen family in which it has
   // interfaces, and calls `visit` with each ACL before the next one is made. The order is that of
   // the file, IPv4 before IPv6. Refused policies are written to standard error at once, and
   // returned. Throws Host::PluginError when the helper module cannot be used. A process can
   // compile one policy file only: `PolicyCompiler` says why.
   std::vector<Report::Refusal> compile(const Policy::PolicyFile& policyFile,
                                        const Visit& visit) const;

 private:
   void declareChoice(CLI::App& parser);
   Policy::File::LoadResult load() const;
   int runLoaded(const Policy::File::LoadResult& loaded, const Format& format,
                 const std::function<int(const Policy::PolicyFile&)>& work) const;
   std::vector<std::string_view> missingPolicies(const Policy::PolicyFile& policyFile) const;
   std::size_t aclsOf(const Policy::PolicyFile& policyFile) const;
   bool chooses(const Policy::Policy& policy) const;
   bool chooses(const Policy::Policy& policy, Policy::Family family) const;

   std::string file_;
   std::string command_;         // name of the subcommand; set only where FILE may be left out
   std::string socket_;          // of a running agent, in place of `file_`; empty: `file_` is given
   mutable std::string running_; // path of that agent's file; empty before it was asked
   std::vector<std::string> policies_; // names; empty: all
   std::string family_;                // "ipv4" or "ipv6"; empty: both
   ProgressOption progress_;
};

} // namespace Postcard::Cli
