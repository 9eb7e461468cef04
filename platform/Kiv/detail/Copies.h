// `Copies`: which objects a copy under way has made of which, so that the whole refers to its own
// parts. Relies on entities.
//
// Objects refer to others in two ways: they own them (children, elements that a collection makes)
// or only refer to them. What the source owns is copied. A reference to something that was copied
// becomes a reference to the copy; every other reference stays what it is.
#pragma once

#include "Kiv/Entity.h"
#include "Pello/Ptr.h"

#include <unordered_map>
#include <vector>

namespace Kiv {

// Whether both are of the same type and their constant attributes are equal, so that copying makes
// one like the other.
bool canBecome(const Entity& entity, const Entity& other);

class Copies {
 public:
   // Makes those references of `to` anew that still refer to a part of the source.
   using Link = void (*)(Entity& to, const Entity& from, const Copies& copies);

   // `to` is the copy of `from`; both must exist until `link` is done. One with counted references
   // is held meanwhile, because a subscriber may remove it from its owner.
   void add(const Entity& from, Entity& to, Link linking);

   // The copy of what `reference` refers to, or the same reference when that was not copied (yet).
   template <class T>
   Pello::Ptr<T> of(const Pello::Ptr<T>& reference) const {
      const auto found = copyOf_.find(static_cast<const Entity*>(reference.get()));
      // A copy is of the type of its source.
      return found == copyOf_.end() ? reference : Pello::Ptr<T>{static_cast<T*>(found->second)};
   }

   // Called once, when everything is copied: references to objects that were copied only after the
   // reference follow now.
   void link() const;

 private:
   struct Pair {
      const Entity* from;
      Entity* to;
      Link link;
      Pello::Ptr<Entity> held;
   };
   std::unordered_map<const Entity*, Entity*> copyOf_;
   std::vector<Pair> pairs_; // in the order of copying
};

} // namespace Kiv
