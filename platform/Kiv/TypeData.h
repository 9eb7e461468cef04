// `TypeData`: what the framework knows about a type at run time: its attributes, its operations,
// and how its objects are made, shown, parsed and copied. Relies on rows and the allocation
// tracker.
//
// A descriptor is made once, by the library that owns the type, so that all libraries see the same
// address and may compare addresses. It does not change, so threads may read it, and it lives until
// that library is unloaded; so do all texts in it. Its functions are plain pointers, which are null
// where a function does not apply.
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

// What a type is. A `value` is made with `KIV_VALUE` or has a text of its own.
enum class TypeKind : U8 { number, boolean, string, enumeration, value, entity };

class ValueVisitor;

// One attribute. `owner` points to an object of exactly the type whose descriptor has this row: for
// an entity `ownerAddress(entity)`, for a value its address.
struct AttributeData {
   U16 id; // unique in the type, inherited attributes included
   std::string_view name;
   AttributeKind kind;
   std::string type; // as `typeNameOf` and messages show it
   // The generic text of the attribute.
   std::string (*text)(const void* owner);
   // A copy of the attribute as `std::any` of its type; for a child, a counted reference that may
   // be null. Null for collections.
   std::any (*get)(const void* owner);
   // Shows the attribute to `visitor`. An entity that `owner` owns is shown whole; one that it only
   // refers to is shown as its key, so that every object is shown once. Collections are shown in
   // the order of their keys, hash collections too, so that equal ones look equal.
   void (*visit)(const void* owner, ValueVisitor& visitor);
   // Sets the attribute of an entity by its setter, which publishes the change. `value` has exactly
   // the type of the attribute; only where a `Pello::Ptr<const T>` is expected, a `Pello::Ptr<T>`
   // serves as well. Throws NameError for another type, and what the setter throws. Null for
   // constants, children and collections, and for the attributes of values.
   void (*set)(Entity& owner, const std::any& value);
   // The same from the generic text of the new value. Throws ParseError or RangeError when it
   // cannot be read; nothing changes then. Null where `set` is, and for counted references.
   void (*setText)(Entity& owner, std::string_view text);
   // How many elements the collection has. Null for everything else.
   std::size_t (*count)(const void* owner);
   // Calls `visit` for every element, in the order in which the collection is iterated, with copies
   // of the key and of the element (empty for a set). `visit` must not change the collection. Null
   // for everything else.
   void (*forEach)(const void* owner,
                   Pello::FunctionRef<void(const std::any& key, const std::any& element)> visit);
   // Calls `visit` for every entity that the collection holds, owned or referred to, in the same
   // order. `visit` must not change the collection. Null for all but collections of entities.
   void (*forEachEntity)(const Entity& owner, Pello::FunctionRef<void(Entity&)> visit);
};

// One parameter of a call by name.
struct Parameter {
   std::string_view name;
   std::string type; // as `typeNameOf` and messages show it
};

// One operation that can be called by its name.
struct OperationData {
   std::string_view name;
   std::vector<Parameter> parameters; // in order
   std::string result;                // type, "void" for none
   // Calls the operation. `owner` is of the type whose descriptor has `operation`, which is this
   // row, and `values` has one argument for each parameter, in order. Returns the result, empty for
   // "void". Throws NameError for an argument of a wrong type, and what the operation throws.
   // `callOperation` (Operation.h) does this with named arguments.
   std::any (*call)(Entity& owner, const OperationData& operation,
                    std::span<const std::any> values);
};

struct TypeData {
   std::string_view name; // qualified
   TypeKind kind;
   std::size_t size;                      // bytes of one object
   std::vector<AttributeData> attributes; // in declaration order, inherited ones first
   std::vector<OperationData> operations; // in declaration order, inherited ones first
   // What an object is made from: the attributes of a value, the constants of an entity, the text
   // of a value that has one of its own, the name of an enumerator, or a number, boolean or text
   // itself.
   std::vector<Parameter> parameters;
   // Makes an object from one argument for each parameter, in order. Returns the value, or the
   // first counted reference to the new entity, a `Pello::Ptr` to exactly its type. Throws
   // NameError for an argument of a wrong type, and what the type's constructor throws. Null for an
   // entity that cannot be made from its constants.
   std::any (*make)(std::span<const std::any> values);
   // The allocation tracker of an entity type, borrowed; null for the others, whose objects are
   // part of other objects.
   const Pello::AllocationTracker* tracker;

   // The enumerators, borrowed; null for all but enumerations.
   const EnumTable* enumeration;

   // The functions from here to `equal` are null for entities. `value`, `a` and `b` point to
   // objects of the type.

   // The generic text.
   std::string (*valueText)(const void* value);
   // Shows the value to `visitor`. `visitEntity` does so for entities.
   void (*visitValue)(const void* value, ValueVisitor& visitor);
   // What the type writes to a stream: for enumerations the bare name.
   std::string (*displayText)(const void* value);
   // The value whose generic text is the whole of `text`, as `std::any` of the type. Throws
   // ParseError or RangeError.
   std::any (*parse)(std::string_view text);
   // Whether both values are equal.
   bool (*equal)(const void* a, const void* b);
   // The default value, as `std::any` of the type. Empty for entities.
   std::any defaultObject;
   // Whether any `size` bytes, also ones that no constructor makes, are a value that can be
   // printed. The reader of a trace ring asks, because the bytes in a ring may be damaged. False
   // for entities.
   bool anyBytes;

   // The entity in what `make` returned; null when `made` holds something else. The function is
   // null for all but entities.
   Pello::Ptr<Entity> (*asEntity)(const std::any& made);

   // The functions from here on are null for all but entities. An argument is of exactly this type.

   // The generic text of the whole object, with what it owns.
   std::string (*entityText)(const Entity& entity);
   // Copies all attributes but the constants from `from` to `to`, by their setters. Children and
   // elements that `from` owns are copied with it. A reference to one of these becomes a reference
   // to its copy in `to`; every other reference is taken over. Children and elements that only `to`
   // has stay. A type with a `copy(const Type&)` of its own is copied by it. Throws NameError when
   // one of the two is of another type, or when an owned element would have to be made and cannot
   // be; part of `to` may have changed then.
   void (*copy)(Entity& to, const Entity& from);
   // Returns a new object with the constants of `from` and a copy of everything else. Throws as
   // `copy`. Null for a type that cannot be made from its constants.
   Pello::Ptr<Entity> (*clone)(const Entity& from);
   // The steps of both, for the framework. `makeLike` returns a new object with the constants of
   // `from` and nothing else; it is null where `clone` is. `copyPart` copies one object of several
   // that are copied together, and enters it in `copies`.
   Pello::Ptr<Entity> (*makeLike)(const Entity& from);
   void (*copyPart)(Entity& to, const Entity& from, Copies& copies);

   // The attribute of that identifier or name, part of this descriptor. Throws NameError that names
   // the type and lists what there is.
   const AttributeData& attribute(U16 id) const;
   const AttributeData& attribute(std::string_view attributeName) const;
   // The operation of that name. Throws NameError likewise.
   const OperationData& operation(std::string_view operationName) const;
};

} // namespace Kiv
