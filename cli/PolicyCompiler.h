// `PolicyCompiler`: makes the ACL of a policy for the subcommands that look into it, and
// `PolicyChoice`, the options with which a user says which policies are meant. Relies on the helper
// module.
#pragma once

#include "agent/PluginHost.h"
#include "agent/PolicyFile.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
}

namespace Cli {

// Which policies of which file.
struct PolicyChoice {
   std::string file;
   std::vector<std::string> policies; // empty: all
   std::string family;                // "ipv4", "ipv6"; empty: both

   // Adds FILE, --policy and --family to the command line. `this` must outlive the parser.
   void declare(CLI::App& parser);
   // Loads the file. Reports what is wrong with it, and policies that it does not have, on standard
   // error; then the result is absent and the command ends with `exitUsage`.
   std::optional<Agent::PolicyFile> load() const;
   // Shows every chosen policy in every chosen family that has interfaces, in the order of the
   // file.
   void forEach(const Agent::PolicyFile& policyFile,
                const std::function<void(const Agent::Policy&, Agent::Family)>& visit) const;
};

class PolicyCompiler {
 public:
   using AclConfig = OruPostcardTelemetry::PostcardTelemetryAclConfig;

   struct Result {
      Pello::Ptr<const AclConfig> acl; // null when the policy was refused
      std::string message;             // why, else empty
   };

   // Sets the file's feature toggles, which are read once per process: one compiler per process.
   // Throws Agent::PluginError when the module cannot be used.
   explicit PolicyCompiler(const Agent::PolicyFile& policyFile);

   Result compile(const Agent::Policy& policy, Agent::Family family) const;

 private:
   Agent::PluginHost host_;
   Pello::Ptr<const PostcardTelemetry::HwCapability> hwCapability_;
};

// "POLICY FAMILY: message" on standard error, as every subcommand reports a refused policy.
void reportRefused(const Agent::Policy& policy, Agent::Family family, const std::string& message);

// The classes that take part in the family, in the order in which they match. Valid as long as
// `policy` is.
std::vector<const Agent::Class*> classesInOrder(const Agent::Policy& policy, Agent::Family family);

// The name of the class that a rule was made for. Rules are named CLASS-FAMILY-PROTOCOL and more,
// and what follows the class never has the family's name again.
std::string_view classOfRule(std::string_view rule, Agent::Family family);

} // namespace Cli
