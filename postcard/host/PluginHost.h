// `PluginHost`: opens the helper module at run time and makes helpers, as the switch's agent does.
// Relies on the run-time loader and on the version word that the module exports.
//
// The class of the helper lives in the module and is unknown here. What a helper can do beyond its
// base class is called by name through reflection; `HelperHandle` wraps these calls.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RulesClientSm.h"
#include "PolicyMap/PolicyMapAclHelper.h"
#include "PostcardTelemetry/HwCapability.h"

#include <filesystem>
#include <functional>
#include <stdexcept>

namespace Postcard::Host {

// The module cannot be used. The text names the module and says why.
class PluginError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// A counted reference to a helper. Copies refer to the same helper; the helper and its ACL
// configurations are destroyed with the last reference.
class HelperHandle {
 public:
   using AclConfig = OruPostcardTelemetry::PostcardTelemetryAclConfig;

   // `helper` must not be null and must come from the helper module: the operations below end in a
   // Kiv::Exception for a helper that does not have them.
   explicit HelperHandle(Pello::Ptr<PolicyMap::PolicyMapAclHelper> helper);

   // The operations of the base class. Never null; owned by this handle.
   PolicyMap::PolicyMapAclHelper* operator->() const noexcept { return helper_.get(); }

   // Writes all ACL configurations, as the show command prints them, to the descriptor `fd`, which
   // stays open. The helper ignores write errors.
   void showPostcardAcl(U32 fd) const;
   // Passes the rules client's answer to the helper, which records it in the ACL configuration that
   // the latest request was about. Returns the text to show; empty for success.
   Kiv::String
   updatePolicyStatus(OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatusType statusType,
                      const Pello::String& statusString) const;
   // Calls `visit` with every ACL configuration, in no particular order. The helper owns the
   // configurations; who keeps one makes a counted reference. `visit` must not add or remove any.
   void forEachAclConfig(const std::function<void(AclConfig&)>& visit) const;

 private:
   Pello::Ptr<PolicyMap::PolicyMapAclHelper> helper_;
};

class PluginHost {
 public:
   // Opens the module at the path `module`. Throws PluginError when there is no such file, when it
   // is no helper module, or when it was built for another platform version. The module is never
   // closed, not even by the destructor: helpers, and types that the module has registered, may be
   // used until the process ends.
   explicit PluginHost(const std::filesystem::path& module);

   // The path of the module to open: the one in the environment variable POSTCARD_MODULE when it is
   // set, else OruPostcardTelemetryPolicyAclHelper.so in the folder `postcard` beside the library
   // that holds this class. Whether there is such a file is not checked.
   static std::filesystem::path defaultModule();

   // A new helper, with `hwInit` called. Neither record may be null; the helper keeps a counted
   // reference to each. The helper may outlive this object.
   HelperHandle makeHelper(
         const Pello::Ptr<OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig>& clientConfig,
         const Pello::Ptr<const PostcardTelemetry::HwCapability>& hwCapability) const;

 private:
   using Factory =
         PolicyMap::PolicyMapAclHelper*(OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig*,
                                        const PostcardTelemetry::HwCapability*);
   Factory* factory_ = nullptr; // never null after construction
};

} // namespace Postcard::Host
