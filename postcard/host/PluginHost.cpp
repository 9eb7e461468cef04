#include "postcard/host/PluginHost.h"

#include "Kiv/Operation.h"
#include "Kiv/PlatformVersion.h"
#include "Kiv/TypeData.h"

#include <cstdlib>
#include <dlfcn.h>
#include <string>

namespace Postcard::Host {

namespace {

constexpr const char* moduleName = "OruPostcardTelemetryPolicyAclHelper.so";

void* symbolOf(void* library, const char* name, const std::filesystem::path& module) {
   void* symbol = ::dlsym(library, name);
   if (symbol == nullptr) {
      throw PluginError{module.string() + ": not a helper module: it has no symbol " + name};
   }
   return symbol;
}

void checkVersion(U32 version, const std::filesystem::path& module) {
   if (version != Kiv::platformVersion) {
      throw PluginError{module.string() + ": built for platform version " +
                        std::to_string(version) + ", but this is platform version " +
                        std::to_string(Kiv::platformVersion)};
   }
}

} // namespace

HelperHandle::HelperHandle(Pello::Ptr<PolicyMap::PolicyMapAclHelper> helper)
   : helper_{std::move(helper)} {}

void HelperHandle::showPostcardAcl(U32 fd) const {
   const Kiv::NamedArgument arguments[] = {{"socket", fd}};
   Kiv::callOperation(*helper_, "showPostcardAcl", arguments);
}

Kiv::String HelperHandle::updatePolicyStatus(
      OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatusType statusType,
      const Pello::String& statusString) const {
   const Kiv::NamedArgument arguments[] = {{"policyStatus", statusType},
                                           {"statusString", statusString}};
   return std::any_cast<Kiv::String>(Kiv::callOperation(*helper_, "updatePolicyStatus", arguments));
}

void HelperHandle::forEachAclConfig(const std::function<void(AclConfig&)>& visit) const {
   const Kiv::AttributeData& collection = helper_->typeData().attribute("aclConfigColl");
   collection.forEachEntity(*helper_,
                            [&](Kiv::Entity& config) { visit(dynamic_cast<AclConfig&>(config)); });
}

PluginHost::PluginHost(const std::filesystem::path& module) {
   void* library = ::dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL);
   if (library == nullptr) {
      throw PluginError{"helper module cannot be loaded: " + std::string{::dlerror()}};
   }
   checkVersion(*static_cast<const U32*>(symbolOf(library, "oruPostcardPlatformVersion", module)),
                module);
   factory_ =
         reinterpret_cast<Factory*>(symbolOf(library, "oruPostcardPolicyAclHelperFactory", module));
}

std::filesystem::path PluginHost::defaultModule() {
   if (const char* module = std::getenv("POSTCARD_MODULE")) {
      return module;
   }
   const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe");
   return program.parent_path().parent_path() / "lib" / "postcard" / moduleName;
}

HelperHandle PluginHost::makeHelper(
      const Pello::Ptr<OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig>& clientConfig,
      const Pello::Ptr<const PostcardTelemetry::HwCapability>& hwCapability) const {
   const Pello::Ptr<PolicyMap::PolicyMapAclHelper> helper{
         factory_(clientConfig.get(), hwCapability.get())};
   helper->hwInit();
   return HelperHandle{helper};
}

} // namespace Postcard::Host
