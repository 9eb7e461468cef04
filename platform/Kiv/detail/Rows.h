// The attribute table of a type: one `constexpr` row per attribute, made by the attribute's own
// declaration. Everything generic (text, parse, equality, copy, reflection, publication) walks it.
// Relies on nothing.
//
// A row is found by its identifier, a number that is written out and stays. The identifiers of a
// type are consecutive from `T::kivFirstRow`; a row behind a gap is not part of the table, and
// neither it nor a setter of an attribute without a row compiles.
#pragma once

#include "Pello/Types.h"

#include <concepts>
#include <cstddef>
#include <string_view>
#include <type_traits>
#include <utility>

namespace Kiv {

enum class AttributeKind : U8 {
   constant,   // set by the constructor only
   value,      // set by xIs(value)
   child,      // a counted reference that xIs() makes
   collection, // elements by key
};

template <class Owner, class Storage>
struct Row {
   using StorageType = Storage;
   U16 id;
   std::string_view name;
   Storage Owner::*member;
   AttributeKind kind;
};

template <U16 id>
using RowId = std::integral_constant<U16, id>;

template <class T, U16 id>
concept HasRow = requires { T::kivRow(RowId<id>{}); };

namespace Detail {
template <class T, U16 id>
constexpr std::size_t countRows() {
   if constexpr (HasRow<T, id>) {
      return 1 + countRows<T, id + 1>();
   } else {
      return 0;
   }
}
} // namespace Detail

// How many attributes `T` declares itself, without those it inherits.
template <class T>
constexpr std::size_t rowCount() {
   if constexpr (requires { T::kivFirstRow; }) {
      return Detail::countRows<T, T::kivFirstRow>();
   } else {
      return 0;
   }
}

template <class T>
concept HasRows = (rowCount<T>() > 0);

// Whether `id` stands in the table of `T`.
template <class T, U16 id>
constexpr bool isInTable() {
   return id >= T::kivFirstRow && id < T::kivFirstRow + rowCount<T>();
}

// Row number `index` of `T`, counted from 0.
template <class T, std::size_t index>
constexpr auto rowAt() {
   return T::kivRow(RowId<static_cast<U16>(T::kivFirstRow + index)>{});
}

// Calls `visit(row)` for every row of `T` in declaration order.
template <class T, class Visit>
constexpr void forEachRow(Visit&& visit) {
   [&]<std::size_t... index>(std::index_sequence<index...>) {
      (visit(rowAt<T, index>()), ...);
   }(std::make_index_sequence<rowCount<T>()>{});
}

} // namespace Kiv

// Declares the row of the member `name_`, whose type comes last, and `nameId`, the identifier by
// which sources tell the attribute from others in a published change. The return type is written
// out so that the table can be asked about while the class is still being read.
#define KIV_ROW(id, name, kind, ...)                                                               \
   static constexpr U16 name##Id = id;                                                             \
   static constexpr Kiv::Row<KivSelf, __VA_ARGS__> kivRow(Kiv::RowId<id>) {                        \
      static_assert(Kiv::isInTable<KivSelf, id>(), "the attribute's identifier is behind a gap");  \
      return {id, #name, &KivSelf::name##_, Kiv::AttributeKind::kind};                             \
   }
