#include "postcard/classifier/RuleSets.h"

#include <algorithm>

namespace Postcard::Classifier {

RuleSets::RuleSets(std::size_t rules)
   : chunksPerSet_{(rules + rulesPerChunk - 1) / rulesPerChunk},
     topsPerSet_{chunksPerSet_ / 32 + 1},
     headSize_{topsPerSet_ + chunksPerSet_},
     heads_(headSize_),
     // Place 0 is the empty chunk of empty leaves, which every set begins with.
     chunks_(1),
     leaves_(1) {}

RuleSets::Set RuleSets::child(Set parent) {
   const std::size_t begin = heads_.size();
   heads_.resize(begin + headSize_);
   std::copy_n(head(parent), headSize_, &heads_[begin]);
   firstOwnChunk_ = chunks_.size();
   firstOwnLeaf_ = leaves_.size();
   return static_cast<Set>(begin / headSize_);
}

void RuleSets::insert(U32 rule) {
   const std::size_t chunk = rule / rulesPerChunk;
   const std::size_t word = rule % rulesPerChunk / 64;
   const U32 ownedChunk = ownChunk(chunk);
   const U32 ownedLeaf = ownLeaf(ownedChunk, word / wordsPerLeaf);
   leaves_[ownedLeaf].word[word % wordsPerLeaf] |= U64{1} << rule % 64;
   chunks_[ownedChunk].summary[word / 64] |= U64{1} << word % 64;
   heads_[heads_.size() - headSize_ + chunk / 32] |= U32{1} << chunk % 32;
}

// The chunk of the set made last, which no other set refers to.
U32 RuleSets::ownChunk(std::size_t chunk) {
   U32& place = heads_[heads_.size() - chunksPerSet_ + chunk];
   if (place < firstOwnChunk_) {
      const Chunk copied = chunks_[place];
      place = static_cast<U32>(chunks_.size());
      chunks_.push_back(copied);
   }
   return place;
}

// The leaf of a chunk that the set made last owns, which no other set refers to.
U32 RuleSets::ownLeaf(U32 chunk, std::size_t leaf) {
   U32& place = chunks_[chunk].leaf[leaf];
   if (place < firstOwnLeaf_) {
      const Leaf words = leaves_[place];
      place = static_cast<U32>(leaves_.size());
      leaves_.push_back(words);
   }
   return place;
}

void RuleSets::finish() {
   heads_.shrink_to_fit();
   chunks_.shrink_to_fit();
   leaves_.shrink_to_fit();
}

std::size_t RuleSets::bytes() const {
   return heads_.capacity() * sizeof(U32) + chunks_.capacity() * sizeof(Chunk) +
          leaves_.capacity() * sizeof(Leaf);
}

} // namespace Postcard::Classifier
