// Operations that can be called by name. A type names itself `KivOperationsOf` and lists them in
// one table, `kivOperations()`, a tuple of rows made with `Kiv::operation("name", &Type::name,
// {"parameter", …})`; `describeOperations` turns the rows into what the type descriptor holds.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/Enumeration.h"
#include "Kiv/TypeData.h"
#include "Pello/Ptr.h"
#include "Pello/String.h"

#include <any>
#include <array>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace Kiv {

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

namespace Detail {

template <class T>
struct ParameterType {
   static std::string name() {
      if constexpr (Enumeration<T>) {
         return std::string{enumTable<T>().typeName};
      } else if constexpr (requires { T::kivTypeName; }) {
         return std::string{T::kivTypeName};
      } else if constexpr (std::is_same_v<T, bool>) {
         return "bool";
      } else if constexpr (std::is_same_v<T, Pello::String>) {
         return "Pello::String";
      } else {
         static_assert(std::is_unsigned_v<T>, "not a type that a call by name can carry");
         return "U" + std::to_string(sizeof(T) * 8);
      }
   }
   static const T* from(const std::any& value) { return std::any_cast<T>(&value); }
};

template <class T>
struct ParameterType<Pello::Ptr<T>> {
   static std::string name() {
      return "Pello::Ptr<" + ParameterType<std::remove_const_t<T>>::name() +
             (std::is_const_v<T> ? " const>" : ">");
   }
};

// The argument as a `T`; a reference to a changeable object serves where a read-only one is wanted.
template <class T>
T argumentAs(const std::any& value, const OperationData::Parameter& parameter,
             std::string_view operation) {
   if (const auto* exact = std::any_cast<T>(&value)) {
      return *exact;
   }
   if constexpr (requires { typename T::Element; }) {
      using Generous = Pello::Ptr<std::remove_const_t<typename T::Element>>;
      if (const auto* generous = std::any_cast<Generous>(&value)) {
         return *generous;
      }
   }
   throw NameError{"argument '" + std::string{parameter.name} + "' of " + std::string{operation} +
                   ": expected " + parameter.type};
}

template <class T, std::size_t row>
struct OperationCall {
   template <class Owner, class Member, class Result, class... Parameters>
   static OperationData
   describe(const OperationRow<Owner, Member, Result, Parameters...>& operation) {
      OperationData data{operation.name, {}, &call<Owner, Member, Result, Parameters...>};
      std::size_t index = 0;
      (data.parameters.push_back({operation.parameters[index++],
                                  ParameterType<std::remove_cvref_t<Parameters>>::name()}),
       ...);
      return data;
   }

   template <class Owner, class Member, class Result, class... Parameters>
   static std::any call(Entity& entity, const OperationData& data,
                        std::span<const std::any> values) {
      constexpr auto operation = std::get<row>(T::kivOperations());
      auto& owner = static_cast<Owner&>(entity);
      return [&]<std::size_t... index>(std::index_sequence<index...>) -> std::any {
         std::tuple<std::remove_cvref_t<Parameters>...> arguments{
               argumentAs<std::remove_cvref_t<Parameters>>(values[index], data.parameters[index],
                                                           data.name)...};
         if constexpr (std::is_void_v<Result>) {
            (owner.*operation.member)(std::get<index>(arguments)...);
            return {};
         } else {
            return (owner.*operation.member)(std::get<index>(arguments)...);
         }
      }(std::index_sequence_for<Parameters...>{});
   }
};

// The table is of `T` itself, not of a base.
template <class T>
concept DeclaresOperations = requires { requires std::is_same_v<typename T::KivOperationsOf, T>; };

} // namespace Detail

// Describes the operations of `T`, inherited ones first.
template <class T>
void describeOperations(std::vector<OperationData>& operations) {
   if constexpr (requires { typename T::KivBase; }) {
      describeOperations<typename T::KivBase>(operations);
   }
   if constexpr (Detail::DeclaresOperations<T>) {
      [&]<std::size_t... row>(std::index_sequence<row...>) {
         (operations.push_back(
                Detail::OperationCall<T, row>::describe(std::get<row>(T::kivOperations()))),
          ...);
      }(std::make_index_sequence<std::tuple_size_v<decltype(T::kivOperations())>>{});
   }
}

} // namespace Kiv
