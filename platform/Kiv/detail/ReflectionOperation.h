// `describeOperations` turns the rows of a type's operations into what its descriptor holds. Part
// of Reflection.h, for it alone.
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

template <class Result>
std::string resultName() {
   if constexpr (std::is_void_v<Result>) {
      return "void";
   } else {
      return typeNameOf<std::remove_cvref_t<Result>>();
   }
}

template <class T, std::size_t row>
struct OperationCall {
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
