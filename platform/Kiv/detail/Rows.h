// The attribute table of a type: one `constexpr` row per attribute, made by the attribute's own
// declaration with `KIV_ROW`. `forEachRow` walks it; so does everything generic (text, parsing,
// equality, copy, reflection, publication). Relies on nothing.
//
// A row is found by its identifier, a number that is written out and stays. The identifiers that a
// class declares are consecutive from its `kivFirstRow`. The table ends at the first gap: a row
// behind a gap does not compile, nor does a setter of an attribute without a row.
#pragma once

#include "Pello/Types.h"

#include <concepts>
#include <cstddef>
#include <string_view>
#include <type_traits>
#include <utility>

namespace Kiv {

// How an attribute is changed.
enum class AttributeKind : U8 {
   constant,   // set by the constructor only
   value,      // set by xIs(value)
   child,      // a counted reference that xIs() makes
   collection, // elements by key
};

// One attribute. `Owner` is the class that declares it, `Storage` the type of its data member.
template <class Owner, class Storage>
struct Row {
   using StorageType = Storage;
   U16 id;
   std::string_view name; // a literal
   Storage Owner::*member;
   AttributeKind kind;
};

// An identifier as a type, to choose among the overloads of `kivRow` and `kivSet`.
template <U16 id>
using RowId = std::integral_constant<U16, id>;

// Whether `T` has a row `id`, in the table or behind a gap. A class that declares rows hides those
// of its base.
template <class T, U16 id>
concept HasRow = requires { T::kivRow(RowId<id>{}); };

namespace Detail {
// How many rows follow each other from `id` on.
template <class T, U16 id>
constexpr std::size_t countRows() {
   if constexpr (HasRow<T, id>) {
      return 1 + countRows<T, id + 1>();
   } else {
      return 0;
   }
}
} // namespace Detail

// How many attributes `T` declares itself, without inherited ones. 0 for a type that is not of the
// framework.
template <class T>
constexpr std::size_t rowCount() {
   if constexpr (requires { T::kivFirstRow; }) {
      return Detail::countRows<T, T::kivFirstRow>();
   } else {
      return 0;
   }
}

// Whether `T` declares an attribute itself.
template <class T>
concept HasRows = (rowCount<T>() > 0);

// Whether `id` stands in the table of `T` itself, not of a base.
template <class T, U16 id>
constexpr bool isInTable() {
   return id >= T::kivFirstRow && id < T::kivFirstRow + rowCount<T>();
}

// Row number `index` of `T`, counted from 0 and less than `rowCount<T>()`.
template <class T, std::size_t index>
constexpr auto rowAt() {
   return T::kivRow(RowId<static_cast<U16>(T::kivFirstRow + index)>{});
}

// Calls `visit(row)` for every row of `T` in the order of declaration. Each row has a type of its
// own, so `visit` is generic.
template <class T, class Visit>
constexpr void forEachRow(Visit&& visit) {
   [&]<std::size_t... index>(std::index_sequence<index...>) {
      (visit(rowAt<T, index>()), ...);
   }(std::make_index_sequence<rowCount<T>()>{});
}

} // namespace Kiv

// Declares the row of the member `name_`, whose type comes last, and `nameId`, with which a
// subscriber compares the identifier in a published change. `kind` is an enumerator of
// `AttributeKind`. The return type is written out, because the table is needed while the class is
// incomplete, when the compiler cannot deduce it.
#define KIV_ROW(id, name, kind, ...)                                                               \
   static constexpr U16 name##Id = id;                                                             \
   static constexpr Kiv::Row<KivSelf, __VA_ARGS__> kivRow(Kiv::RowId<id>) {                        \
      static_assert(Kiv::isInTable<KivSelf, id>(), "the attribute's identifier is behind a gap");  \
      return {id, #name, &KivSelf::name##_, Kiv::AttributeKind::kind};                             \
   }
