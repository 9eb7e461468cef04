// `PolicyChoice`: the options FILE, --policy and --family of the subcommands that compile policies,
// and the compiling of what they choose. Relies on the loader of policy files and on
// `PolicyCompiler`.
#pragma once

#include "postcard/host/PolicyCompiler.h"
#include "postcard/policy/Policy.h"
#include "postcard/report/Refusal.h"

#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Postcard::Cli {

// Which policies of which file.
class PolicyChoice {
 public:
   // Shown one compiled policy: the policy, the family, and a Result with an ACL.
   using Visit = std::function<void(const Policy::Policy&, Policy::Family,
                                    const Host::PolicyCompiler::Result&)>;

   // Adds FILE, --policy and --family to the command line. This object must outlive `parser`.
   void declare(CLI::App& parser);

   // Loads the file and returns the exit code of `work`. When the file cannot be used, when it does
   // not have a chosen policy, or when `work` throws Host::PluginError, says so on standard error
   // and returns the exit code for that.
   int run(const std::function<int(const Policy::PolicyFile&)>& work) const;

   // Compiles every chosen policy of `policyFile` in every chosen family in which it has
   // interfaces, in the order of the file, and shows each ACL to `visit` before the next is made.
   // Returns the policies that were refused; each has been told on standard error. Throws
   // Host::PluginError when the helper module cannot be used.
   std::vector<Report::Refusal> compile(const Policy::PolicyFile& policyFile,
                                        const Visit& visit) const;

 private:
   bool hasChosenPolicies(const Policy::PolicyFile& policyFile) const;
   bool chooses(const Policy::Policy& policy, Policy::Family family) const;

   std::string file_;
   std::vector<std::string> policies_; // names; empty: all
   std::string family_;                // "ipv4" or "ipv6"; empty: both
};

} // namespace Postcard::Cli
