// `Entity`: the base of framework objects, and the declarations of their attributes. One line per
// attribute gives the accessor, the setters, the row from which text, reflection and copy are made,
// and the publication of its changes. The macros only make names; the templates below do the work.
//
//   class Lamp : public Kiv::Entity {
//      KIV_ENTITY(Lamp, Kiv::Entity, "House::Lamp");
//      KIV_PUBLISHED;
//      KIV_CONSTANT(130, Pello::String, name);
//      KIV_ATTRIBUTE(131, U8, brightness);
//    public:
//      explicit Lamp(Pello::String name) : name_{std::move(name)} {}
//   };
//
// and, in the source of the library that owns it, `KIV_DEFINE_ENTITY(House::Lamp)`.
#pragma once

#include "Kiv/TypeData.h"
#include "Kiv/detail/Collection.h"
#include "Kiv/detail/Rows.h"
#include "Pello/AllocationTracker.h"
#include "Pello/Ptr.h"
#include "Pello/Publisher.h"
#include "Pello/String.h"
#include "Pello/Types.h"

#include <concepts>
#include <cstddef>
#include <string_view>
#include <type_traits>
#include <utility>

namespace Kiv {

// How many identifiers each level of inheritance has for itself.
inline constexpr U16 rowsPerLevel = 128;

class Entity : public Pello::Counted {
 public:
   // The attributes of a class that derives from this one begin at 130, of its derivatives at 258.
   static constexpr U16 kivFirstRow = 2;
   static constexpr bool kivPublished = false;

   // An object is what its constants say, and others know it by them: it is copied attribute by
   // attribute, by its type's `copy`.
   Entity(const Entity&) = delete;
   Entity& operator=(const Entity&) = delete;
   ~Entity() override;
   // Where changes of this object are published; null for a type that publishes nothing. The
   // object owns it.
   virtual Pello::Publisher* publisher() const;
   // This object's type.
   virtual const TypeData& typeData() const = 0;

 protected:
   Entity() = default;
};

// What the functions of the descriptor of `entity` take as `owner`: the object of its own type.
const void* ownerAddress(const Entity& entity);

// Reports changes of the collection `id` of `owner` to its publisher.
template <U16 id, class Owner>
auto collectionReport(const Owner& owner) {
   static_assert(isInTable<Owner, id>(), "the attribute has no row in the type's table");
   if constexpr (Owner::kivPublished) {
      return [&owner](const auto& key, const auto* old) {
         owner.publisher()->publish({id, Pello::ValueView{key},
                                     old == nullptr ? Pello::ValueView{} : Pello::ValueView{*old}});
      };
   } else {
      return NoReport{};
   }
}

// Stores `value`. A published owner reports an effective change while the old value still exists.
template <U16 id, class Owner, class T>
void setAttribute(Owner& owner, T& stored, T value) {
   static_assert(isInTable<Owner, id>(), "the attribute has no row in the type's table");
   if constexpr (Owner::kivPublished) {
      if (stored == value) {
         return;
      }
      const T old = std::exchange(stored, std::move(value));
      owner.publisher()->publish({id, {}, Pello::ValueView{old}});
   } else {
      stored = std::move(value);
   }
}

// A key under which an owner may make a child `T`: none for a child without a key.
template <class T, class... Key>
concept ChildKey =
      (sizeof...(Key) == 0 && std::default_initializable<T>) ||
      (sizeof...(Key) == 1 && (std::convertible_to<const Key&, Pello::String> && ...) &&
       std::constructible_from<T, Pello::String>);

// The child, made from `key` when there is none. A child with a key has it as its `name()`; one of
// another key is replaced.
template <U16 id, class Owner, class T, std::same_as<Pello::String>... Key>
Pello::Ptr<T> instantiateChild(Owner& owner, Pello::Ptr<T>& stored, const Key&... key) {
   if (stored != nullptr && ((stored->name() == key) && ...)) {
      return stored;
   }
   // Held here: a subscriber may unlink the new child, or let go of the owner.
   Pello::Ptr<T> made{new T{key...}};
   setAttribute<id>(owner, stored, made);
   return made;
}

// Unlinks the child and hands it over.
template <U16 id, class Owner, class T>
Pello::Ptr<T> removeChild(Owner& owner, Pello::Ptr<T>& stored) {
   Pello::Ptr<T> removed = stored;
   setAttribute<id>(owner, stored, Pello::Ptr<T>{});
   return removed;
}

} // namespace Kiv

// Opens an entity class: counted references, allocation through the type's tracker, its
// descriptor. `qualifiedName` is what texts show.
#define KIV_ENTITY(Type, Base, qualifiedName)                                                      \
 public:                                                                                           \
   using Ptr = Pello::Ptr<Type>;                                                                   \
   using PtrConst = Pello::Ptr<const Type>;                                                        \
   using KivBase = Base;                                                                           \
   static constexpr std::string_view kivTypeName = qualifiedName;                                  \
   static constexpr const char* kivClassName = #Type;                                              \
   static constexpr U16 kivFirstRow = Base::kivFirstRow + Kiv::rowsPerLevel;                       \
   static Pello::AllocationTracker memAllocationTracker_;                                          \
   static void* operator new(std::size_t size) {                                                   \
      return memAllocationTracker_.allocate(size);                                                 \
   }                                                                                               \
   static void operator delete(void* memory, std::size_t size) noexcept {                          \
      memAllocationTracker_.free(memory, size);                                                    \
   }                                                                                               \
   static const Kiv::TypeData& kivTypeData();                                                      \
   const Kiv::TypeData& typeData() const override;                                                 \
                                                                                                   \
 private:                                                                                          \
   using KivSelf = Type

// Gives the type, and what derives from it, a publisher of its own.
#define KIV_PUBLISHED                                                                              \
 public:                                                                                           \
   static constexpr bool kivPublished = true;                                                      \
   Pello::Publisher* publisher() const override {                                                  \
      return &publisher_;                                                                          \
   }                                                                                               \
                                                                                                   \
 private:                                                                                          \
   mutable Pello::Publisher publisher_

// An attribute that only the constructor sets.
#define KIV_CONSTANT(id, Type, name)                                                               \
 public:                                                                                           \
   const Type& name() const {                                                                      \
      return name##_;                                                                              \
   }                                                                                               \
   KIV_ROW(id, name, constant, Type)                                                               \
                                                                                                   \
 private:                                                                                          \
   Type name##_ {}

// An attribute with the setter `nameIs`; what follows the name is its default.
#define KIV_ATTRIBUTE(id, Type, name, ...)                                                         \
 public:                                                                                           \
   void name##Is(Type value) {                                                                     \
      Kiv::setAttribute<id>(*this, name##_, std::move(value));                                     \
   }                                                                                               \
   KIV_RULED_ATTRIBUTE(id, Type, name, __VA_ARGS__)

// The same with a setter that has a rule of its own: `void nameIs(Type value)` is written by hand
// beside it and ends in `Kiv::setAttribute<id>(*this, name_, …)`. Whoever sets the attribute, also
// by reflection or in a copy, calls it.
#define KIV_RULED_ATTRIBUTE(id, Type, name, ...)                                                   \
 public:                                                                                           \
   const Type& name() const {                                                                      \
      return name##_;                                                                              \
   }                                                                                               \
   static void kivSet(Kiv::RowId<id>, KivSelf& owner, Type value) {                                \
      owner.name##Is(std::move(value));                                                            \
   }                                                                                               \
   KIV_ROW(id, name, value, Type)                                                                  \
                                                                                                   \
 private:                                                                                          \
   Type name##_ {                                                                                  \
      __VA_ARGS__                                                                                  \
   }

// A part made on demand: `nameIs()` returns the existing one or makes it, `nameDel()` unlinks it
// and hands it over. A part that is made from a key (`Type(Pello::String)` and `name()`) is asked
// for with it: `nameIs(key)` replaces a child of another key. Null until asked for.
#define KIV_CHILD(id, Type, name)                                                                  \
 public:                                                                                           \
   const Pello::Ptr<Type>& name() const {                                                          \
      return name##_;                                                                              \
   }                                                                                               \
   template <class... Key>                                                                         \
      requires Kiv::ChildKey<Type, Key...>                                                         \
   Pello::Ptr<Type> name##Is(const Key&... key) {                                                  \
      return Kiv::instantiateChild<id>(*this, name##_, Pello::String{key}...);                     \
   }                                                                                               \
   Pello::Ptr<Type> name##Del() {                                                                  \
      return Kiv::removeChild<id>(*this, name##_);                                                 \
   }                                                                                               \
   KIV_ROW(id, name, child, Pello::Ptr<Type>)                                                      \
                                                                                                   \
 private:                                                                                          \
   Pello::Ptr<Type> name##_

// A collection, whose type comes last: `name(key)`, `nameIs(…)`, `nameDel(key)`, `nameDelAll()`,
// `nameHas(key)`, `names()` for the count, `name()` for iteration; for ordered collections also
// `nameDel(iterator)`.
#define KIV_COLLECTION(id, name, ...)                                                              \
 public:                                                                                           \
   const __VA_ARGS__& name() const {                                                               \
      return name##_;                                                                              \
   }                                                                                               \
   auto name(const typename __VA_ARGS__::Key& key) const {                                         \
      return name##_.get(key);                                                                     \
   }                                                                                               \
   bool name##Has(const typename __VA_ARGS__::Key& key) const {                                    \
      return name##_.has(key);                                                                     \
   }                                                                                               \
   std::size_t name##s() const {                                                                   \
      return name##_.size();                                                                       \
   }                                                                                               \
   template <class... Arguments>                                                                   \
   auto name##Is(const typename __VA_ARGS__::Key& key, Arguments&&... arguments) {                 \
      return name##_.is(Kiv::collectionReport<id>(*this), key,                                     \
                        std::forward<Arguments>(arguments)...);                                    \
   }                                                                                               \
   auto name##Del(const typename __VA_ARGS__::Key& key) {                                          \
      return name##_.del(Kiv::collectionReport<id>(*this), key);                                   \
   }                                                                                               \
   template <std::same_as<typename __VA_ARGS__::Iterator> At>                                      \
   auto name##Del(const At& at) {                                                                  \
      return name##_.del(Kiv::collectionReport<id>(*this), at);                                    \
   }                                                                                               \
   void name##DelAll() {                                                                           \
      name##_.clear(Kiv::collectionReport<id>(*this));                                             \
   }                                                                                               \
   template <class Self = KivSelf>                                                                 \
   void name##Reserve(std::size_t count) {                                                         \
      static_cast<Self&>(*this).name##_.reserve(count);                                            \
   }                                                                                               \
   KIV_ROW(id, name, collection, __VA_ARGS__)                                                      \
                                                                                                   \
 private:                                                                                          \
   __VA_ARGS__ name##_
