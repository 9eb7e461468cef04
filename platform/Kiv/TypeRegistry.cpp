#include "Kiv/TypeRegistry.h"

#include "Kiv/Exception.h"
#include "Kiv/TypeData.h"
#include "Pello/Assert.h"

#include <algorithm>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace Kiv {

namespace {

// The name is kept beside the type: a module may be forgotten at the end of the process, when the
// descriptors of others exist no more.
struct NamedType {
   std::string_view name;
   const TypeData* type;
};

using Members = std::vector<NamedType>;
using Modules = std::map<std::string, Members, std::less<>>;
using Types = std::map<std::string_view, const TypeData*>;

struct Registry {
   std::mutex mutex;
   Modules modules;
   Types types; // those of all modules
};

// Never destroyed: libraries unregister while the process ends.
Registry& registry() {
   static Registry& instance = *new Registry;
   return instance;
}

[[noreturn]] void refuseSecond(std::string_view name) {
   throw NameError{"type " + std::string{name} + " is registered twice"};
}

Members membersOf(const TypeModule& module) {
   Members members;
   members.reserve(module.types.size());
   for (const TypeData* type : module.types) {
      members.push_back({type->name, type});
   }
   return members;
}

// The second copy of a library comes under the same module name, so its types stand against the
// list that they would replace.
void refuseSecondCopy(const Members& known, const Members& members) {
   for (const auto& [name, type] : members) {
      const auto same = std::ranges::find(known, name, &NamedType::name);
      if (same != known.end() && same->type != type) {
         refuseSecond(name);
      }
   }
}

Types typesOf(const Modules& modules) {
   Types types;
   for (const auto& [module, members] : modules) {
      for (const auto& [name, type] : members) {
         if (types.emplace(name, type).first->second != type) {
            refuseSecond(name);
         }
      }
   }
   return types;
}

} // namespace

void registerTypeModule(const TypeModule& module) {
   Registry& all = registry();
   const std::lock_guard lock{all.mutex};
   Modules modules = all.modules;
   Members& members = modules[std::string{module.name}];
   refuseSecondCopy(members, membersOf(module));
   members = membersOf(module);
   all.types = typesOf(modules);
   all.modules = std::move(modules);
}

void registerLoadedModule(const TypeModule& module) noexcept {
   try {
      registerTypeModule(module);
   } catch (const NameError& error) {
      Pello::assertionFailed({"Kiv/TypeRegistry.cpp", __LINE__, "registerLoadedModule"},
                             module.name, error.what());
   }
}

void unregisterTypeModule(std::string_view name) {
   Registry& all = registry();
   const std::lock_guard lock{all.mutex};
   const auto found = all.modules.find(name);
   if (found == all.modules.end()) {
      return;
   }
   all.modules.erase(found);
   all.types = typesOf(all.modules);
}

const TypeData* findType(std::string_view name) {
   Registry& all = registry();
   const std::lock_guard lock{all.mutex};
   const auto found = all.types.find(name);
   return found == all.types.end() ? nullptr : found->second;
}

std::vector<const TypeData*> registeredTypes() {
   Registry& all = registry();
   const std::lock_guard lock{all.mutex};
   std::vector<const TypeData*> types;
   types.reserve(all.types.size());
   for (const auto& [name, type] : all.types) {
      types.push_back(type);
   }
   return types;
}

} // namespace Kiv
