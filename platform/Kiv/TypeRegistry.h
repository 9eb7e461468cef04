// The registry of types by name: `registerTypeModule` makes the types of a library known,
// `findType` and `registeredTypes` read them. Relies on type descriptors. May be called by several
// threads.
#pragma once

#include <string_view>
#include <vector>

namespace Kiv {

struct TypeData;

// A library's types, registered together under one name.
struct TypeModule {
   std::string_view name;              // of the library
   std::vector<const TypeData*> types; // never null; each lives until the module is forgotten
};

// Makes the types of `module` known. Registering a module again replaces its list of types. Throws
// NameError, and changes nothing, when a type of that name is known at another address, be it under
// the same module or another one: two copies of one library are loaded, and they would not
// understand each other's objects. Several modules may name one type; it is known until the last of
// them is forgotten.
void registerTypeModule(const TypeModule& module);

// The same for a library that is being loaded, when there is nobody to catch an exception: a second
// copy of a library in one process ends it, with an assertion that names the type.
void registerLoadedModule(const TypeModule& module) noexcept;

// Forgets the module of that name, if there is one.
void unregisterTypeModule(std::string_view name);

// The registered type of that qualified name, or null.
const TypeData* findType(std::string_view name);

// All registered types, sorted by name.
std::vector<const TypeData*> registeredTypes();

} // namespace Kiv

// One per library, in the source file that defines its types: registers the module when the library
// is loaded and forgets it when it is unloaded. It stands beside what it registers, so that a
// linker that takes the types takes it too.
#define KIV_REGISTER_WHEN_LOADED(module)                                                           \
   namespace {                                                                                     \
   std::string_view kivModuleName; /* the module itself may be gone when it is forgotten */        \
   [[gnu::constructor]] void kivRegister() {                                                       \
      kivModuleName = (module).name;                                                               \
      Kiv::registerLoadedModule(module);                                                           \
   }                                                                                               \
   [[gnu::destructor]] void kivUnregister() {                                                      \
      Kiv::unregisterTypeModule(kivModuleName);                                                    \
   }                                                                                               \
   }
