#include "postcard/classifier/Groups.h"

#include <algorithm>
#include <numeric>

namespace Postcard::Classifier {

std::size_t Groups::hash(const Prefix& asked) const {
   // Multiplication by an odd constant carries every bit upwards; shifting brings high bits back
   // down to where the place in the table is read.
   constexpr U64 odd = 0x9e3779b97f4a7c15;
   U64 mixed = (asked.value.high ^ std::rotl(asked.value.low, 32) ^ asked.length) * odd;
   mixed = (mixed ^ mixed >> 32) * odd;
   return static_cast<std::size_t>(mixed >> 32) & (slots_.size() - 1);
}

U32 Groups::groupOf(const Prefix& asked) {
   std::size_t slot = hash(asked);
   while (slots_[slot] != 0) {
      if (const U32 group = slots_[slot] - 1; asked_[group] == asked) {
         return group;
      }
      slot = (slot + 1) & (slots_.size() - 1);
   }
   asked_.push_back(asked);
   slots_[slot] = static_cast<U32>(asked_.size());
   return slots_[slot] - 1;
}

void Groups::grow() {
   slots_.assign(std::max<std::size_t>(16, slots_.size() * 2), 0);
   for (std::size_t group = 0; group < asked_.size(); ++group) {
      std::size_t slot = hash(asked_[group]);
      while (slots_[slot] != 0) {
         slot = (slot + 1) & (slots_.size() - 1);
      }
      slots_[slot] = static_cast<U32>(group + 1);
   }
}

void Groups::add(U32 rule, const Prefix& asked) {
   if (asked_.size() * 2 >= slots_.size()) {
      grow();
   }
   // Neighbouring rules often come of the same class and ask the same.
   const bool asBefore = !groups_.empty() && asked_[groups_.back()] == asked;
   groups_.push_back(asBefore ? groups_.back() : groupOf(asked));
   rules_.push_back(rule);
}

std::vector<Groups::Group> Groups::sorted() {
   std::vector<U32> ends(asked_.size()); // where each group's rules end in `collected_`
   for (const U32 group : groups_) {
      ends[group] += 1;
   }
   std::partial_sum(ends.begin(), ends.end(), ends.begin());
   std::vector<Group> sorted(asked_.size());
   collected_.resize(rules_.size());
   std::vector<U32> begins = ends;
   for (std::size_t i = rules_.size(); i > 0; --i) {
      collected_[--begins[groups_[i - 1]]] = rules_[i - 1];
   }
   for (std::size_t group = 0; group < asked_.size(); ++group) {
      sorted[group] = {asked_[group],
                       std::span{collected_}.subspan(begins[group], ends[group] - begins[group])};
   }
   std::ranges::sort(sorted, {}, &Group::asked);
   return sorted;
}

} // namespace Postcard::Classifier
