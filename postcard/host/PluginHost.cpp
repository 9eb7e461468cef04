#include "postcard/host/PluginHost.h"

#include "Kiv/Operation.h"
#include "Kiv/PlatformVersion.h"
#include "Kiv/TypeData.h"

#include <cstdlib>
#include <dlfcn.h>
#include <string>
#include <sys/mman.h>
#include <system_error>

namespace Postcard::Host {

namespace {

constexpr const char* moduleName = "OruPostcardTelemetryPolicyAclHelper.so";

// The file that this code was loaded from: a library, or the program when it is linked statically.
// Empty when the loader does not know.
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

// Whether as much memory as the file has bytes can be mapped. True when the size is not known.
bool hasRoomFor(const std::filesystem::path& module) {
   std::error_code error;
   const auto size = std::filesystem::file_size(module, error);
   if (error || size == 0) {
      return true;
   }
   void* room = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
   return room != MAP_FAILED && ::munmap(room, size) == 0;
}

// Objects and virtual tables of another platform version may be laid out differently, so nothing of
// such a module may be called, not even its factory.
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
   // The operation calls its parameter "socket", although any descriptor will do.
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
   // RTLD_NOW: a missing symbol makes the load fail here, rather than end the process at a later
   // call. RTLD_LOCAL: libraries that are loaded later do not see the symbols of the module.
   void* library = ::dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL);
   if (library == nullptr) {
      // The loader does not say that memory was short.
      const char* advice =
            hasRoomFor(module) ? "" : "; free memory or raise the limit of the process (ulimit -v)";
      throw PluginError{"helper module cannot be loaded: " + std::string{::dlerror()} + advice};
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
   // The module lies at a fixed place beside this library, both built and installed. The path from
   // the program to the library's folder differs between distributions.
   return thisLibrary().parent_path() / "postcard" / moduleName;
}

HelperHandle PluginHost::makeHelper(
      const Pello::Ptr<OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig>& clientConfig,
      const Pello::Ptr<const PostcardTelemetry::HwCapability>& hwCapability) const {
   // The factory returns an object whose reference count is 0; this reference is the first.
   const Pello::Ptr<PolicyMap::PolicyMapAclHelper> helper{
         factory_(clientConfig.get(), hwCapability.get())};
   helper->hwInit();
   return HelperHandle{helper};
}

} // namespace Postcard::Host
