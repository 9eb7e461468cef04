// Operations that can be called by name. A type names itself `KivOperationsOf` and lists them in
// one table, `kivOperations()`, a tuple of rows made with `Kiv::operation("name", &Type::name,
// {"parameter", …})`; its descriptor is made from the rows. `callOperation` calls one, `makeObject`
// makes an object from arguments by name. Relies on type descriptors.
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

// One row: a member function and the names of its parameters.
template <class Owner, class Member, class Result, class... Parameters>
struct OperationRow {
   std::string_view name;
   Member member;
   std::array<std::string_view, sizeof...(Parameters)> parameters;
};

template <class Owner, class Result, class... Parameters>
constexpr auto operation(std::string_view name, Result (Owner::*member)(Parameters...),
                         std::array<std::string_view, sizeof...(Parameters)> parameters) {
   return OperationRow<Owner, decltype(member), Result, Parameters...>{name, member, parameters};
}

template <class Owner, class Result, class... Parameters>
constexpr auto operation(std::string_view name, Result (Owner::*member)(Parameters...) const,
                         std::array<std::string_view, sizeof...(Parameters)> parameters) {
   return OperationRow<Owner, decltype(member), Result, Parameters...>{name, member, parameters};
}

// An argument of a call by name.
struct NamedArgument {
   std::string_view name;
   std::any value;
};

// Calls an operation of `entity` by name, through its virtual table where it is virtual. Arguments
// may come in any order; each must have exactly the parameter's type, except that a counted
// reference may be more generous than asked (to a changeable object where a read-only one is
// wanted). The result is empty for an operation without one. Throws NameError that says what was
// expected, and whatever the operation throws.
std::any callOperation(Entity& entity, std::string_view operationName,
                       std::span<const NamedArgument> arguments);

// Makes an object of `type` from named arguments, which are matched as those of an operation. The
// result is `std::any` of the value, or of a counted reference to the new entity. Throws NameError,
// and whatever the type throws.
std::any makeObject(const TypeData& type, std::span<const NamedArgument> arguments);

// `name(first: Type, second: Type)`, to tell people what is expected.
std::string signatureText(std::string_view name, std::span<const Parameter> parameters);

} // namespace Kiv
