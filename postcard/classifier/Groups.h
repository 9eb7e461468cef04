// `Groups`: rules brought together by what they ask of one field. Internal to this room. Relies on
// `Bits`.
#pragma once

#include "postcard/classifier/Bits.h"

#include <cstddef>
#include <span>
#include <vector>

namespace Postcard::Classifier {

class Groups {
 public:
   // Rules that ask for the same prefix of a field.
   struct Group {
      Prefix asked;
      std::span<const U32> rules; // ascending; valid as long as `Groups` is unchanged
   };

   // Notes that `rule` asks for `asked`. Rules come in ascending order, each at most once.
   void add(U32 rule, const Prefix& asked);

   bool empty() const { return rules_.empty(); }
   // The groups, ascending by prefix. Nothing may be added afterwards.
   std::vector<Group> sorted();

 private:
   std::size_t hash(const Prefix& asked) const;
   U32 groupOf(const Prefix& asked);
   void grow();

   std::vector<Prefix> asked_;  // by group, in the order of their first rules
   std::vector<U32> slots_;     // hash table of groups, each plus 1; 0: free. A power of two
   std::vector<U32> rules_;     // in the order of `add`
   std::vector<U32> groups_;    // of `rules_`, place by place
   std::vector<U32> collected_; // `rules_` by group
};

} // namespace Postcard::Classifier
