// The registry of types by name: `KIV_REGISTER_WHEN_LOADED` makes the types of a library known
// while the library is loaded, `findType` and `registeredTypes` read them. Relies on type
// descriptors.
//
// All functions may be called from several threads, whatever the thread-safety switch says.
#pragma once

#include <string_view>
#include <vector>

namespace Kiv {

struct TypeData;

// The types of a library, which are registered together under the library's name.
struct TypeModule {
   std::string_view name;              // of the library
   std::vector<const TypeData*> types; // borrowed, never null; each lives until it is unregistered
};

// Makes the types of `module` known. The list is copied; registering a module of the same name
// again replaces its list. Several modules may name one type, which then is known until the last of
// them is unregistered.
//
// Throws NameError, and changes nothing, when another descriptor of the same type name is known.
// Two copies of one library are loaded then, and neither would recognise the other's objects.
void registerTypeModule(const TypeModule& module);

// The same for a library that is being loaded, when nobody can catch an exception: a second copy of
// a library ends the process with an assertion that names the type.
void registerLoadedModule(const TypeModule& module) noexcept;

// Removes the module of that name; has no effect when there is none. Does not read the descriptors,
// which may be destroyed already.
void unregisterTypeModule(std::string_view name);

// The registered type of that qualified name, or null. The descriptor is borrowed: it is valid
// until its library is unloaded.
const TypeData* findType(std::string_view name);

// All registered types, sorted by name. Borrowed likewise.
std::vector<const TypeData*> registeredTypes();

} // namespace Kiv

// Registers `module`, an expression for a `TypeModule`, when the library is loaded, and unregisters
// it when the library is unloaded. Stands once per library, in the source that defines
// `typeModule`: a linker drops an object file of a static library from which nothing is used, and
// so would drop the registration if it stood in a file of its own.
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
