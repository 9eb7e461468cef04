// `TypeData`: what the framework knows about a type at run time: its attributes, its operations,
// and how its objects are made, shown, parsed and copied. Made once per type by the library that
// owns it, so that every library sees the same address. Relies on rows and the allocation tracker.
#pragma once

#include "Kiv/detail/Rows.h"
#include "Pello/AllocationTracker.h"
#include "Pello/FunctionRef.h"
#include "Pello/Ptr.h"

#include <any>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Kiv {

class Copies;
class Entity;
struct EnumTable;

enum class TypeKind : U8 { number, boolean, string, enumeration, value, entity };

class ValueVisitor;

// One attribute as reflection sees it. `owner` is an object of the described type: for an entity
// its `ownerAddress`. Functions that do not apply are null.
struct AttributeData {
   U16 id;
   std::string_view name;
   AttributeKind kind;
   std::string type; // as messages show it
   // The generic text of the attribute.
   std::string (*text)(const void* owner);
   // The attribute as `std::any` of its type; a child is a counted reference. Null for collections.
   std::any (*get)(const void* owner);
   // Shows the attribute to `visitor`. What `owner` owns is shown whole; what it refers to is shown
   // as the other's key, so that every object is shown once.
   void (*visit)(const void* owner, ValueVisitor& visitor);
   // Sets a plain attribute of an entity by its setter: from a value of exactly its type (NameError
   // otherwise), and from its generic text (ParseError or RangeError; nothing changes then). Null
   // for constants, children and collections; `setText` also for references.
   void (*set)(Entity& owner, const std::any& value);
   void (*setText)(Entity& owner, std::string_view text);
   // How many elements a collection has. Null for everything else.
   std::size_t (*count)(const void* owner);
   // Shows the elements of a collection in its order, each as `std::any` of the key and of the
   // element (empty for a set). Null for everything else.
   void (*forEach)(const void* owner,
                   Pello::FunctionRef<void(const std::any& key, const std::any& element)> visit);
   // Shows every entity that a collection of `owner` holds, in the collection's order. Null for
   // everything else.
   void (*forEachEntity)(const Entity& owner, Pello::FunctionRef<void(Entity&)> visit);
};

// What a call by name expects.
struct Parameter {
   std::string_view name;
   std::string type; // as messages show it
};

// One operation that can be called by its name.
struct OperationData {
   std::string_view name;
   std::vector<Parameter> parameters; // in order
   std::string result;                // type, "void" for none
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
   // What an object is made from: all attributes of a value, the constant ones of an entity, the
   // text of a value that has one of its own, the name of an enumerator.
   std::vector<Parameter> parameters;
   // Makes an object from one argument per parameter, in order: `std::any` of the value, or of a
   // counted reference to the new entity. Throws NameError for a wrong type, and what the type
   // throws. Null for a type that only its own library can make.
   std::any (*make)(std::span<const std::any> values);
   // The type's allocation tracker; null for values, which own nothing.
   const Pello::AllocationTracker* tracker;

   // The enumerators; null for all but enumerations.
   const EnumTable* enumeration;

   // For values: null for entities. `value` is an object of the type.
   std::string (*valueText)(const void* value);
   // Shows a value to `visitor`. For entities see `visitEntity`.
   void (*visitValue)(const void* value, ValueVisitor& visitor);
   // What the type writes to a stream: for enumerations the bare name.
   std::string (*displayText)(const void* value);
   // The value of a generic text, as `std::any` of the type.
   std::any (*parse)(std::string_view text);
   bool (*equal)(const void* a, const void* b);
   // The default value, as `std::any` of the type. Empty for entities.
   std::any defaultObject;
   // Any `size` bytes are a value that can be printed.
   bool anyBytes;

   // The entity in what `make` returned; null when it holds something else. Null for values.
   Pello::Ptr<Entity> (*asEntity)(const std::any& made);

   // The rest is for entities, and null for values.

   // The generic text of the whole object.
   std::string (*entityText)(const Entity& entity);
   // Copies everything that can be set from an object of the same type. Children and elements that
   // `from` owns are copied with it, and what refers to one of them refers to its copy in `to`;
   // other references stay. What `to` has beyond that stays. A type with a `copy(const Type&)` of
   // its own is copied by it. Throws NameError when one of the two is of another type.
   void (*copy)(Entity& to, const Entity& from);
   // A new object of the same type with the same constants and a copy of everything else. Null for
   // a type that cannot be made from its constants.
   Pello::Ptr<Entity> (*clone)(const Entity& from);
   // The steps of both, for the framework: a new object with the same constants, and copying one
   // object of several that are copied together.
   Pello::Ptr<Entity> (*makeLike)(const Entity& from);
   void (*copyPart)(Entity& to, const Entity& from, Copies& copies);

   // The attribute of that identifier or name. Throws NameError that names the type and says what
   // was expected.
   const AttributeData& attribute(U16 id) const;
   const AttributeData& attribute(std::string_view attributeName) const;
   // The operation of that name. Throws NameError likewise.
   const OperationData& operation(std::string_view operationName) const;
};

} // namespace Kiv
