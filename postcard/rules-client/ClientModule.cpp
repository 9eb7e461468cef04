#include "postcard/rules-client/ClientModule.h"

#include "Kiv/PlatformVersion.h"

#include <fmt/format.h>

#include <dlfcn.h>

namespace Postcard::RulesClient {

namespace {

using Factory = ModuleClient*(const ClientOptions&);

// Its address tells the loader which library this code is in.
constexpr char here = 0;

void* symbolOf(void* library, const char* name, const std::filesystem::path& file) {
   void* symbol = ::dlsym(library, name);
   if (symbol == nullptr) {
      throw ClientModuleError{
            fmt::format("{} is no rules client: it has no symbol {}", file.string(), name)};
   }
   return symbol;
}

} // namespace

std::shared_ptr<ModuleClient> openClientModule(const std::filesystem::path& file,
                                               const ClientOptions& options) {
   void* library = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
   if (library == nullptr) {
      throw ClientModuleError{fmt::format(
            "the rules client cannot be loaded: {} (it comes in a package of its own, such as "
            "postcard-kernel)",
            ::dlerror())};
   }
   // Before anything of the library is called: objects of another version may be laid out
   // otherwise.
   const U32 version =
         *static_cast<const U32*>(symbolOf(library, "postcardClientPlatformVersion", file));
   if (version != Kiv::platformVersion) {
      throw ClientModuleError{
            fmt::format("{} was built for platform version {}, but this is platform version {}",
                        file.string(), version, Kiv::platformVersion)};
   }
   auto* factory = reinterpret_cast<Factory*>(symbolOf(library, "postcardClientFactory", file));
   return std::shared_ptr<ModuleClient>{factory(options)};
}

std::filesystem::path clientModule(const std::string& library) {
   Dl_info found{};
   const bool isKnown = ::dladdr(&here, &found) != 0;
   const std::filesystem::path folder =
         isKnown ? std::filesystem::path{found.dli_fname}.parent_path() : std::filesystem::path{};
   return folder / "postcard" / ("lib" + library + ".so");
}

} // namespace Postcard::RulesClient
