// Calls by name: `callOperation` calls an operation of an entity, `makeObject` makes an object,
// both with named arguments. Relies on type descriptors.
//
// An entity type declares its operations in one table, from which its descriptor is made:
//
//   using KivOperationsOf = Lamp; // says that the table is not inherited
//   static constexpr auto kivOperations() {
//      return std::tuple{Kiv::operation("dim", &Lamp::dim, {"percent"})};
//   }
#pragma once

#include <any>
#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace Kiv {

class Entity;
struct Parameter;
struct TypeData;

// One row: a member function and the names of its parameters, in order. The texts are literals.
template <class Owner, class Member, class Result, class... Parameters>
struct OperationRow {
   std::string_view name;
   Member member;
   std::array<std::string_view, sizeof...(Parameters)> parameters;
};

// Makes a row. Parameters and result are types of the framework, or counted references to entities;
// without a result it is `void`.
template <class Owner, class Result, class... Parameters>
constexpr auto operation(std::string_view name, Result (Owner::*member)(Parameters...),
                         std::array<std::string_view, sizeof...(Parameters)> parameters) {
   return OperationRow<Owner, decltype(member), Result, Parameters...>{name, member, parameters};
}

// The same for a const member function.
template <class Owner, class Result, class... Parameters>
constexpr auto operation(std::string_view name, Result (Owner::*member)(Parameters...) const,
                         std::array<std::string_view, sizeof...(Parameters)> parameters) {
   return OperationRow<Owner, decltype(member), Result, Parameters...>{name, member, parameters};
}

// An argument of a call by name. `name` is borrowed for the call.
struct NamedArgument {
   std::string_view name;
   std::any value;
};

// Calls the operation `operationName` of `entity`; a virtual one is called as the object's own type
// overrides it. There must be one argument for each parameter, in any order. Each has exactly the
// type of the parameter (a `U8` is not taken for a `U32`, nor a literal for a `Pello::String`);
// only where a `Pello::Ptr<const T>` is expected, a `Pello::Ptr<T>` serves as well. Returns the
// result, which is empty for `void`. Throws NameError that says what was expected, and what the
// operation throws.
std::any callOperation(Entity& entity, std::string_view operationName,
                       std::span<const NamedArgument> arguments);

// Makes an object of `type` from one argument for each of `TypeData::parameters`; arguments are
// matched as those of an operation. Returns the value, or the first counted reference to the new
// entity, a `Pello::Ptr` to exactly its type. Throws NameError, also for a type that cannot be made
// by name, and what the type's constructor throws.
std::any makeObject(const TypeData& type, std::span<const NamedArgument> arguments);

// `name(first: Type, second: Type)`, for messages that say what is expected.
std::string signatureText(std::string_view name, std::span<const Parameter> parameters);

} // namespace Kiv
