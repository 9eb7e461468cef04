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

// The name is kept beside the type, because a module may be unregistered at the end of the process,
// when the descriptors of other modules are destroyed already.
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
   Types types; // of all modules, made from `modules` so that look-ups need not search them
};

// Never destroyed, because libraries unregister their modules while the process ends.
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

// A second copy of a library registers under the same module name. Its types must be compared with
// the list that they would replace; afterwards nothing would show that there were two.
void refuseSecondCopy(const Members& known, const Members& members) {
   for (const auto& [name, type] : members) {
      const auto same = std::ranges::find(known, name, &NamedType::name);
      if (same != known.end() && same->type != type) {
         refuseSecond(name);
      }
   }
}

// The types of all modules by name. Throws NameError when two descriptors have one name.
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
   // Everything that can throw works on copies, so that a refused module changes nothing.
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
