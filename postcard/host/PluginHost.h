// `PluginHost`: opens the helper module at run time and makes helpers, as the switch's agent does.
// Relies on the run-time loader and on the version word that the module exports.
//
// The class of the helper lives in the module and is unknown here. Operations that its base class
// does not declare are called by name through reflection; `HelperHandle` wraps these calls.
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

// A counted reference to a helper. Copies refer to the same helper. The helper is destroyed with
// the last reference, and its ACL configurations with it, unless somebody else refers to them.
class HelperHandle {
 public:
   using AclConfig = OruPostcardTelemetry::PostcardTelemetryAclConfig;

   // `helper` must not be null. It must have the operations and the collection that the functions
   // below call by name, as those of the helper module do; for another one they throw
   // Kiv::NameError.
   explicit HelperHandle(Pello::Ptr<PolicyMap::PolicyMapAclHelper> helper);

   // The helper, for the operations of its base class. Never null; valid as long as this handle.
   PolicyMap::PolicyMapAclHelper* operator->() const noexcept { return helper_.get(); }

   // Writes the show text of all ACL configurations, in no particular order, to the descriptor
   // `fd`, which may be of any kind and stays open. The helper ignores write errors, so nothing
   // reports them.
   void showPostcardAcl(U32 fd) const;
   // Passes the answer of the rules client to the helper, which records it in the ACL configuration
   // that the latest request was about. Returns the empty text for success, else `statusString`.
   // The helper ends the process when there has been no request, or when the configuration of the
   // latest one has been deleted.
   Kiv::String
   updatePolicyStatus(OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatusType statusType,
                      const Pello::String& statusString) const;
   // Calls `visit` with every ACL configuration, in no particular order. The helper owns the
   // configurations; to keep one, make a counted reference to it. `visit` must not add or remove
   // configurations.
   void forEachAclConfig(const std::function<void(AclConfig&)>& visit) const;

 private:
   Pello::Ptr<PolicyMap::PolicyMapAclHelper> helper_;
};

class PluginHost {
 public:
   // Opens the module at the path `module`. Throws PluginError when there is no such file, when it
   // is no helper module, or when it was built for another platform version
   // (`Kiv::platformVersion`). The module is never closed, not even by the destructor: helpers, and
   // types that the module has registered, may be used until the process ends.
   explicit PluginHost(const std::filesystem::path& module);

   // The path of the module to open: the value of the environment variable POSTCARD_MODULE when it
   // is set, else OruPostcardTelemetryPolicyAclHelper.so in the folder `postcard` beside the
   // library that holds this class. Does not check whether there is such a file.
   static std::filesystem::path defaultModule();

   // A new helper, with `hwInit` called. It keeps a counted reference to each record and may
   // outlive this object. `clientConfig` is the record in which it posts requests to the rules
   // client; null is allowed for a helper that will commit nothing. A null `hwCapability` means
   // hardware that matches no TCP flags.
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
