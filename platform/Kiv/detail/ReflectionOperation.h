// `describeOperations`: turns the table of operations of a type (Operation.h) into the rows of its
// descriptor. Part of Reflection.h, for it alone.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/Operation.h"
#include "Kiv/TypeData.h"
#include "Kiv/detail/Arguments.h"
#include "Kiv/detail/TypeNames.h"

#include <any>
#include <span>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace Kiv {

namespace Detail {

// The name of an operation's result type; "void" for none.
template <class Result>
std::string resultName() {
   if constexpr (std::is_void_v<Result>) {
      return "void";
   } else {
      return typeNameOf<std::remove_cvref_t<Result>>();
   }
}

// Row number `row` in the table of `T`.
template <class T, std::size_t row>
struct OperationCall {
   // The descriptor of `operation`, which is that row.
   template <class Owner, class Member, class Result, class... Parameters>
   static OperationData
   describe(const OperationRow<Owner, Member, Result, Parameters...>& operation) {
      OperationData data{
            operation.name, {}, resultName<Result>(), &call<Owner, Member, Result, Parameters...>};
      std::size_t index = 0;
      (data.parameters.push_back(
             {operation.parameters[index++], typeNameOf<std::remove_cvref_t<Parameters>>()}),
       ...);
      return data;
   }

   // `OperationData::call`. The row is read from the table again, because a function pointer
   // carries no data.
   template <class Owner, class Member, class Result, class... Parameters>
   static std::any call(Entity& entity, const OperationData& data,
                        std::span<const std::any> values) {
      constexpr auto operation = std::get<row>(T::kivOperations());
      auto& owner = static_cast<Owner&>(entity);
      return [&]<std::size_t... index>(std::index_sequence<index...>) -> std::any {
         std::tuple<std::remove_cvref_t<Parameters>...> arguments{
               argumentAs<std::remove_cvref_t<Parameters>>(
                     values[index], "argument", data.parameters[index].name, data.name)...};
         if constexpr (std::is_void_v<Result>) {
            (owner.*operation.member)(std::get<index>(arguments)...);
            return {};
         } else {
            return (owner.*operation.member)(std::get<index>(arguments)...);
         }
      }(std::index_sequence_for<Parameters...>{});
   }
};

// Whether `T` itself has a table. A class inherits the table of its base as a name, which must not
// be described twice; `KivOperationsOf` tells whose table it is.
template <class T>
concept DeclaresOperations = requires { requires std::is_same_v<typename T::KivOperationsOf, T>; };

} // namespace Detail

// Appends the operations of `T`, inherited ones first.
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
