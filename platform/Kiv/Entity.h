// `Entity`: the base of framework objects, and the macros that declare their attributes. One line
// per attribute gives the accessor, the setters, the row from which text, reflection and copy are
// made, and the publication of its changes. The macros only make names; the templates below do the
// work. Relies on rows, counted references and publishers.
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
// and, in the source of the library that owns it, `KIV_DEFINE_ENTITY(House::Lamp)` (Reflection.h).
//
// Nothing here locks: threads that share an entity must not change it.
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

// How many identifiers each level of inheritance has for itself: a base class may get attributes
// without a change of the identifiers below it.
inline constexpr U16 rowsPerLevel = 128;

// An object that is held by counted reference, has a type descriptor, and may publish its changes.
class Entity : public Pello::Counted {
 public:
   // Identifiers of a class directly below this one begin at 130, of a class below that at 258.
   static constexpr U16 kivFirstRow = 2;
   // Whether changes are published; `KIV_PUBLISHED` says so.
   static constexpr bool kivPublished = false;

   // Not copied as a whole: an object keeps its constants, by which others know it.
   // `TypeData::copy` copies the other attributes.
   Entity(const Entity&) = delete;
   Entity& operator=(const Entity&) = delete;
   ~Entity() override;

   // Where changes of this object are published; null for a type that publishes nothing. The object
   // owns the publisher, which may also be used through a const object: observing changes nothing.
   virtual Pello::Publisher* publisher() const;
   // The descriptor of this object's own type; valid until the library of the type is unloaded.
   virtual const TypeData& typeData() const = 0;

 protected:
   Entity() = default;
};

// What the functions in the descriptor of `entity` take as `owner`: the address of the whole
// object, which differs from that of its `Entity` part where a type has several bases. Borrowed.
const void* ownerAddress(const Entity& entity);

// Makes the reporter (detail/Collection.h) that publishes changes of the collection `id` of
// `owner`. `owner` must exist as long as the reporter is called. For an owner that is not published
// the reporter does nothing. Does not compile when `Owner` has no row `id`.
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

// Stores `value` in `stored`, the member of `owner` whose row is `id`; the setters of attributes
// and children end here. For a published owner `T` has `==`: an equal value changes nothing, and
// any other is stored first and then published with the old value. Does not touch `owner` after
// that, because a subscriber may destroy it. Does not compile when `Owner` has no row `id`.
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

// The arguments with which an owner may make a child `T`: none when `T` has a default constructor,
// or one that converts to text when `T` is made from a `Pello::String`.
template <class T, class... Key>
concept ChildKey =
      (sizeof...(Key) == 0 && std::default_initializable<T>) ||
      (sizeof...(Key) == 1 && (std::convertible_to<const Key&, Pello::String> && ...) &&
       std::constructible_from<T, Pello::String>);

// Returns the child that `stored`, the member of `owner` whose row is `id`, refers to. Makes it
// first when there is none, or when it has another key; then publishes that. `Key` is empty, or one
// key, which a child of such a type shows as its `name()`. Never returns null.
template <U16 id, class Owner, class T, std::same_as<Pello::String>... Key>
Pello::Ptr<T> instantiateChild(Owner& owner, Pello::Ptr<T>& stored, const Key&... key) {
   if (stored != nullptr && ((stored->name() == key) && ...)) {
      return stored;
   }
   if constexpr (!Owner::kivPublished) {
      setAttribute<id>(owner, stored, Pello::Ptr<T>{new T{key...}});
      return stored;
   } else {
      // Held here, because a subscriber may remove the new child or drop the last reference to the
      // owner.
      Pello::Ptr<T> made{new T{key...}};
      setAttribute<id>(owner, stored, made);
      return made;
   }
}

// Makes `stored` null and publishes that. Returns the child, or null when there was none. The child
// exists on while others refer to it.
template <U16 id, class Owner, class T>
Pello::Ptr<T> removeChild(Owner& owner, Pello::Ptr<T>& stored) {
   Pello::Ptr<T> removed = stored;
   setAttribute<id>(owner, stored, Pello::Ptr<T>{});
   return removed;
}

} // namespace Kiv

// Opens an entity class: the names of its references, allocation through the type's tracker, its
// descriptor. `Type` is the class without its namespace, `Base` is `Kiv::Entity` or a class opened
// likewise, and `qualifiedName` is a literal that texts and the registry show. The library that
// owns the class defines the rest with `KIV_DEFINE_ENTITY`.
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

// Gives objects of the type, and of what derives from it, a publisher. It reports attributes that
// are declared in this class or below; those inherited from a class without a publisher stay
// silent.
#define KIV_PUBLISHED                                                                              \
 public:                                                                                           \
   static constexpr bool kivPublished = true;                                                      \
   Pello::Publisher* publisher() const override {                                                  \
      return &publisher_;                                                                          \
   }                                                                                               \
                                                                                                   \
 private:                                                                                          \
   mutable Pello::Publisher publisher_

// An attribute that only the constructor sets, in its initialiser list: the accessor `name()`, no
// setter. Reflection can make objects of a type whose constructor takes the constants in the order
// of declaration. The first constant is the key by which others know the object.
#define KIV_CONSTANT(id, Type, name)                                                               \
 public:                                                                                           \
   const Type& name() const {                                                                      \
      return name##_;                                                                              \
   }                                                                                               \
   KIV_ROW(id, name, constant, Type)                                                               \
                                                                                                   \
 private:                                                                                          \
   Type name##_ {}

// An attribute with the accessor `name()` and the setter `nameIs(Type)`. What follows the name is
// its default, else it is zero, empty or null. A counted reference keeps its object alive, but
// texts and copies treat that object as owned by others.
#define KIV_ATTRIBUTE(id, Type, name, ...)                                                         \
 public:                                                                                           \
   void name##Is(Type value) {                                                                     \
      Kiv::setAttribute<id>(*this, name##_, std::move(value));                                     \
   }                                                                                               \
   KIV_RULED_ATTRIBUTE(id, Type, name, __VA_ARGS__)

// The same with a setter that has a rule of its own, such as a check: the class defines
// `void nameIs(Type value)`, which ends in `Kiv::setAttribute<id>(*this, name_, …)`. Reflection and
// copies call that setter, too, so its rule always holds.
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

// A child: an entity that this object owns and makes on demand.
//   name()       the child, or null
//   nameIs()     the child, made when there is none; for a `Type` without a key
//   nameIs(key)  the same for a `Type` made from a key (`Type(Pello::String)`, `Type::name()`);
//                replaces a child with another key
//   nameDel()    removes the child and returns it; null when there is none
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

// A collection, whose type comes last. What an operation does in detail is said at that type
// (HashMap2018.h, RbTreeMap.h). Each effective change is published.
//   name()             the collection, for iteration; valid as long as this object
//   name(key)          the element; null, the empty value or false when there is none
//   nameHas(key)       whether there is one
//   names()            how many there are
//   nameIs(key)        entities: the element, made when there is none; sets: adds `key`
//   nameIs(key, …)     entities: the same with more arguments; values: stores one under `key`
//   nameDel(key)       removes the element; maps return it
//   nameDel(iterator)  the same where the iterator stands; ordered collections only
//   nameDelAll()       removes all
//   nameReserve(count) makes room for `count` elements in all; `HashMap2018` only
//   nameExpect(key)    prepares for an operation with `key`; returns its hash, which `nameIs` takes
//                      behind the key; `HashMap2018` only
#define KIV_COLLECTION(id, name, ...)                                                              \
 public:                                                                                           \
   template <class... Arguments>                                                                   \
   auto name##Is(const typename __VA_ARGS__::Key& key, Arguments&&... arguments) {                 \
      return name##_.is(Kiv::collectionReport<id>(*this), key,                                     \
                        std::forward<Arguments>(arguments)...);                                    \
   }                                                                                               \
   KIV_RULED_COLLECTION(id, name, __VA_ARGS__)

// The same without `nameIs`, which is written by hand beside it, where it has a rule of its own or
// its address is to be taken. It ends in `name_.is(Kiv::collectionReport<id>(*this), key, …)`.
#define KIV_RULED_COLLECTION(id, name, ...)                                                        \
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
   template <class Self = KivSelf>                                                                 \
   auto name##Expect(const typename __VA_ARGS__::Key& key) const {                                 \
      return static_cast<const Self&>(*this).name##_.expect(key);                                  \
   }                                                                                               \
   KIV_ROW(id, name, collection, __VA_ARGS__)                                                      \
                                                                                                   \
 private:                                                                                          \
   __VA_ARGS__ name##_
