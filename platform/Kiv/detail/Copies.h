// `Copies`: for one copy operation, which object is the copy of which. It lets references among the
// parts of the source become references among the parts of the copy. Relies on entities.
//
// An object owns other objects (children, elements that a collection makes) or only refers to them.
// What the source owns is copied. A reference to something that was copied becomes a reference to
// the copy; every other reference is taken over as it is.
#pragma once

#include "Kiv/Entity.h"
#include "Pello/Ptr.h"

#include <unordered_map>
#include <vector>

namespace Kiv {

// Whether both are of the same type and have equal constants. Only then does copying the other
// attributes make one equal to the other.
bool canBecome(const Entity& entity, const Entity& other);

// Lives for one copy operation, on one thread.
class Copies {
 public:
   // Sets those references of `to` again that still refer to a part of the source.
   using Link = void (*)(Entity& to, const Entity& from, const Copies& copies);

   // Records `to` as the copy of `from`, with the function that sets its references. `from` must
   // exist until `link` has returned. `to` is kept alive until then if it is held by reference at
   // all, since a subscriber may remove it from its owner; an object without references must exist
   // by itself.
   void add(const Entity& from, Entity& to, Link linking);

   // The copy of the object that `reference` refers to. The same reference when it is null or when
   // the object was not copied, or not yet.
   template <class T>
   Pello::Ptr<T> of(const Pello::Ptr<T>& reference) const {
      const auto found = copyOf_.find(static_cast<const Entity*>(reference.get()));
      // The cast is right because a copy has the type of its source.
      return found == copyOf_.end() ? reference : Pello::Ptr<T>{static_cast<T*>(found->second)};
   }

   // Call once, after everything is copied. Now those references are set whose object was copied
   // later than the reference.
   void link() const;

 private:
   struct Pair {
      const Entity* from;
      Entity* to;
      Link link;
      Pello::Ptr<Entity> held; // `to`; null when it has no references
   };
   std::unordered_map<const Entity*, Entity*> copyOf_;
   std::vector<Pair> pairs_; // in the order of copying
};

} // namespace Kiv
