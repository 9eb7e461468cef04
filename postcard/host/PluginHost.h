// `PluginHost`: opens the helper's module at run time and makes helpers, as a switch's agent does.
// Relies on the run-time loader and on the version word that the module carries. Nothing else knows
// the module, so whatever a helper can do beyond its base class is called by name: `HelperHandle`.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RulesClientSm.h"
#include "PolicyMap/PolicyMapAclHelper.h"
#include "PostcardTelemetry/HwCapability.h"

#include <filesystem>
#include <functional>
#include <stdexcept>

namespace Postcard::Host {

// The module cannot be used; the text says which and why.
class PluginError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// A helper and the operations of its own that the agent needs.
class HelperHandle {
 public:
   using AclConfig = OruPostcardTelemetry::PostcardTelemetryAclConfig;

   // `helper` must not be null.
   explicit HelperHandle(Pello::Ptr<PolicyMap::PolicyMapAclHelper> helper);

   // The operations of the base class.
   PolicyMap::PolicyMapAclHelper* operator->() const noexcept { return helper_.get(); }

   // Writes all ACL configurations, as the show command shows them, to the descriptor `fd`.
   void showPostcardAcl(U32 fd) const;
   // Hands it the rules client's answer. Returns the text to show, empty for success.
   Kiv::String
   updatePolicyStatus(OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatusType statusType,
                      const Pello::String& statusString) const;
   // Shows every ACL configuration, in no particular order.
   void forEachAclConfig(const std::function<void(AclConfig&)>& visit) const;

 private:
   Pello::Ptr<PolicyMap::PolicyMapAclHelper> helper_;
};

class PluginHost {
 public:
   // Opens the module. Throws PluginError when there is none, when it is not such a module, or when
   // it was built for another platform. It stays open until the process ends: its objects may live
   // as long.
   explicit PluginHost(const std::filesystem::path& module);

   // The module to open: the one that the environment variable POSTCARD_MODULE names, else the one
   // in the folder `postcard` beside the library that holds this class. It need not exist.
   static std::filesystem::path defaultModule();

   // A new helper, with `hwInit` done. It keeps a reference to each record.
   HelperHandle makeHelper(
         const Pello::Ptr<OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig>& clientConfig,
         const Pello::Ptr<const PostcardTelemetry::HwCapability>& hwCapability) const;

 private:
   using Factory =
         PolicyMap::PolicyMapAclHelper*(OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig*,
                                        const PostcardTelemetry::HwCapability*);
   Factory* factory_ = nullptr;
};

} // namespace Postcard::Host
