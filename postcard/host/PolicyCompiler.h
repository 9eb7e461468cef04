// `PolicyCompiler`: makes the ACL of a policy for the subcommands that print it or look into it.
// Relies on the helper module. Nothing is committed, so no rules client takes part.
#pragma once

#include "postcard/host/PluginHost.h"
#include "postcard/policy/Policy.h"

#include <string>

namespace Postcard::Host {

class PolicyCompiler {
 public:
   using AclConfig = OruPostcardTelemetry::PostcardTelemetryAclConfig;

   // What became of one policy in one family.
   struct Result {
      HelperHandle helper; // the helper that made the ACL; has no other ACL
      // Null exactly when the policy was refused. An ACL may be without rules.
      Pello::Ptr<const AclConfig> acl;
      std::string message; // the helper's reason for refusing; else empty
   };

   // Loads the module at `PluginHost::defaultModule()` and sets the feature toggles of `policyFile`
   // for the process. Helpers read the toggles once per process, so a process can compile policies
   // of one policy file only. Keeps no reference to `policyFile`. Throws PluginError when the
   // module cannot be used.
   explicit PolicyCompiler(const Policy::PolicyFile& policyFile);

   // Compiles `policy` for `family` with a new helper. A helper lists its ACLs in no particular
   // order; with one helper per ACL, callers get ACLs in the order of their calls, and an ACL is
   // freed with its Result. The family must have interfaces in `policy`; otherwise the helper ends
   // the process. A policy that the helper refuses gives a Result with a message, not an exception.
   Result compile(const Policy::Policy& policy, Policy::Family family) const;

 private:
   PluginHost host_;
   Pello::Ptr<const PostcardTelemetry::HwCapability> hwCapability_;
};

} // namespace Postcard::Host
