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

// The file that this code was loaded from.
std::filesystem::path thisLibrary() {
   Dl_info library{};
   if (::dladdr(&moduleName, &library) == 0) {
      return {};
   }
   return library.dli_fname;
}

void* symbolOf(void* library, const char* name, const std::filesystem::path& module) {
   void* symbol = ::dlsym(library, name);
   if (symbol == nullptr) {
      throw PluginError{module.string() + ": not a helper module: it has no symbol " + name};
   }
   return symbol;
}

// Another platform version has other layouts and virtual slots: nothing of such a module may be
// called, not even its factory.
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
   // The helper's name for its parameter; the descriptor may be of any kind.
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
   // RTLD_NOW: a symbol that is missing makes the load fail here, not a call later. RTLD_LOCAL: the
   // symbols of the module cannot replace those of a library that is loaded after it.
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
   // The library knows its folder wherever it was built or installed; the program does not, because
   // distributions name that folder differently.
   return thisLibrary().parent_path() / "postcard" / moduleName;
}

HelperHandle PluginHost::makeHelper(
      const Pello::Ptr<OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig>& clientConfig,
      const Pello::Ptr<const PostcardTelemetry::HwCapability>& hwCapability) const {
   // The factory returns an object without references; this is the first.
   const Pello::Ptr<PolicyMap::PolicyMapAclHelper> helper{
         factory_(clientConfig.get(), hwCapability.get())};
   helper->hwInit();
   return HelperHandle{helper};
}

} // namespace Postcard::Host
