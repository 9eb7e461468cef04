// `TypeData`: what the framework knows about a type at run time, and the registry of types by
// name. Made once per type by the library that owns it, so that every library sees the same
// address. Relies on exceptions and the allocation tracker.
#pragma once

#include "Kiv/Exception.h"
#include "Kiv/Rows.h"
#include "Pello/AllocationTracker.h"

#include <any>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Kiv {

class Entity;

enum class TypeKind : U8 { number, boolean, string, enumeration, value, entity };

// One attribute as reflection sees it. Functions that do not apply are null.
struct AttributeData {
   U16 id;
   std::string_view name;
   AttributeKind kind;
   // The generic text of the attribute of `owner`, which is an object of the described type.
   std::string (*text)(const void* owner);
   // Sets a plain attribute of an entity from its generic text and publishes the change, as the
   // setter that the framework makes does; a setter written by hand is not called. Throws
   // ParseError or RangeError, and changes nothing then. Null for constants, children and
   // collections, and for attributes whose type has no generic text.
   void (*setText)(Entity& owner, std::string_view text);
   // Shows every entity that a collection of `owner` holds, in the collection's order. Null for
   // everything else.
   void (*forEachEntity)(const Entity& owner, const std::function<void(Entity&)>& visit);
};

// An argument of a call by name.
struct NamedArgument {
   std::string_view name;
   std::any value;
};

// One operation that can be called by its name.
struct OperationData {
   struct Parameter {
      std::string_view name;
      std::string type; // as messages show it
   };
   std::string_view name;
   std::vector<Parameter> parameters; // in order
   // Calls it with one argument per parameter, in order. Throws NameError for a wrong type.
   std::any (*call)(Entity& owner, const OperationData& operation,
                    std::span<const std::any> values);
};

struct TypeData {
   std::string_view name; // qualified
   TypeKind kind;
   std::size_t size;                      // bytes of one object
   std::vector<AttributeData> attributes; // in declaration order, inherited ones first
   std::vector<OperationData> operations; // in declaration order
   // The type's allocation tracker; null for values, which own nothing.
   const Pello::AllocationTracker* tracker;

   // For values: null for entities. `value` is an object of the type.
   std::string (*valueText)(const void* value);
   // What the type writes to a stream: for enumerations the bare name.
   std::string (*displayText)(const void* value);
   // The value of a generic text, as `std::any` of the type.
   std::any (*parse)(std::string_view text);
   bool (*equal)(const void* a, const void* b);
   // The default value, as `std::any` of the type. Empty for entities.
   std::any defaultObject;
   // Any `size` bytes are a value that can be printed.
   bool anyBytes;

   // For entities: null for values. The generic text of the whole object; and copying everything
   // that can be set from an object of the same type, children and elements included. What the
   // target has beyond that stays. A type with a `copy(const Type&)` of its own is copied by it.
   std::string (*entityText)(const Entity& entity);
   void (*copy)(Entity& to, const Entity& from);

   // The attribute of that identifier or name. Throws NameError that names the type.
   const AttributeData& attribute(U16 id) const;
   const AttributeData& attribute(std::string_view attributeName) const;
   // The operation of that name. Throws NameError that names the type.
   const OperationData& operation(std::string_view operationName) const;
};

// Calls an operation of `entity` by name, through its virtual table where it is virtual. Arguments
// may come in any order; each must have exactly the parameter's type, except that a counted
// reference may be more generous than asked (to a changeable object where a read-only one is
// wanted). The result is empty for an operation without one. Throws NameError that says what was
// expected, and whatever the operation throws.
std::any callOperation(Entity& entity, std::string_view operationName,
                       std::span<const NamedArgument> arguments);

// A library's types, registered together under one name.
struct TypeModule {
   std::string_view name;
   std::vector<const TypeData*> types;
};

// Makes the types of `module` known. Registering a module again replaces its list of types; two
// types of the same name at different addresses are refused with NameError, and nothing changes:
// two copies of one library are loaded, and they would not understand each other's objects. Several
// modules may name one type, which is known until the last of them is forgotten.
void registerTypeModule(const TypeModule& module);

// Forgets a module when its library is unloaded.
void unregisterTypeModule(std::string_view name);

// The registered type of that name, or null.
const TypeData* findType(std::string_view name);

// All registered types, sorted by name.
std::vector<const TypeData*> registeredTypes();

} // namespace Kiv

// One per library, in the source file that defines its types: registers the module when the library
// is loaded and forgets it when it is unloaded. It stands beside what it registers, so that a
// linker that takes the types takes it too.
#define KIV_REGISTER_WHEN_LOADED(module)                                                           \
   namespace {                                                                                     \
   [[gnu::constructor]] void kivRegister() {                                                       \
      Kiv::registerTypeModule(module);                                                             \
   }                                                                                               \
   [[gnu::destructor]] void kivUnregister() {                                                      \
      Kiv::unregisterTypeModule((module).name);                                                    \
   }                                                                                               \
   }
