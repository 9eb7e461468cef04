// `PolicyCompiler`: makes the ACL of a policy for the subcommands that print it or look into it.
// Relies on the helper module.
#pragma once

#include "postcard/host/PluginHost.h"
#include "postcard/policy/Policy.h"

#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Host {

class PolicyCompiler {
 public:
   using AclConfig = OruPostcardTelemetry::PostcardTelemetryAclConfig;

   struct Result {
      HelperHandle helper;             // the one that made the ACL, and made no other
      Pello::Ptr<const AclConfig> acl; // null when the policy was refused
      std::string message;             // why, else empty
   };

   // Sets the file's feature toggles, which are read once per process: one compiler per process.
   // Throws Agent::PluginError when the module cannot be used.
   explicit PolicyCompiler(const Policy::PolicyFile& policyFile);

   // A helper of its own per ACL keeps the order of the file, and no more ACLs in memory than the
   // caller keeps.
   Result compile(const Policy::Policy& policy, Policy::Family family) const;

 private:
   PluginHost host_;
   Pello::Ptr<const PostcardTelemetry::HwCapability> hwCapability_;
};

// The classes that take part in the family, in the order in which they match. Valid as long as
// `policy` is.
std::vector<const Policy::Class*> classesInOrder(const Policy::Policy& policy,
                                                 Policy::Family family);

// The name of the class that a rule was made for. Rules are named CLASS-FAMILY-PROTOCOL and more,
// and what follows the class never has the family's name again.
std::string_view classOfRule(std::string_view rule, Policy::Family family);

} // namespace Postcard::Host
