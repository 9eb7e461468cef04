// `PolicyCompiler`: makes the ACL of a policy for the subcommands that print it or look into it.
// Relies on the helper module.
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
      HelperHandle helper;             // made the ACL, and holds no other
      Pello::Ptr<const AclConfig> acl; // null when the policy was refused
      std::string message;             // why the policy was refused; empty when it was not
   };

   // Loads the helper module that belongs to this program and sets the feature toggles of
   // `policyFile`. Helpers read the toggles once per process, so a process needs one compiler per
   // policy file and can serve one policy file. Keeps no reference to `policyFile`. Throws
   // PluginError when the module cannot be used.
   explicit PolicyCompiler(const Policy::PolicyFile& policyFile);

   // Compiles `policy` for `family` with a helper of its own. A helper lists its ACLs in no
   // particular order; with one helper per ACL, callers get ACLs in the order of their calls, and
   // an ACL is freed with its Result. The family must have interfaces in `policy`: the helper ends
   // the process otherwise. A refused policy is no exception but a Result with a message.
   Result compile(const Policy::Policy& policy, Policy::Family family) const;

 private:
   PluginHost host_;
   Pello::Ptr<const PostcardTelemetry::HwCapability> hwCapability_;
};

} // namespace Postcard::Host
