#include "postcard/classifier/RuleSets.h"

namespace Postcard::Classifier {

RuleSets::RuleSets(std::size_t rules)
   : chunksPerSet_{rules / rulesPerChunk + 1},
     topsPerSet_{chunksPerSet_ / 64 + 1},
     tops_(topsPerSet_),
     chunks_(chunksPerSet_),
     // Place 0 is the empty chunk of empty leaves, which every set begins with.
     summaries_(1),
     chunkLeaves_(1),
     leaves_(1) {}

RuleSets::Set RuleSets::child(Set parent) {
   const auto set = static_cast<Set>(tops_.size() / topsPerSet_);
   for (std::size_t top = 0; top < topsPerSet_; ++top) {
      const U64 inherited = tops_[parent * topsPerSet_ + top];
      tops_.push_back(inherited);
   }
   for (std::size_t chunk = 0; chunk < chunksPerSet_; ++chunk) {
      const U32 inherited = chunks_[parent * chunksPerSet_ + chunk];
      chunks_.push_back(inherited);
   }
   firstOwnChunk_ = summaries_.size();
   firstOwnLeaf_ = leaves_.size();
   return set;
}

void RuleSets::insert(U32 rule) {
   const std::size_t chunk = rule / rulesPerChunk;
   const std::size_t word = rule % rulesPerChunk / 64;
   const U32 ownedChunk = ownChunk(chunk);
   const U32 ownedLeaf = ownLeaf(ownedChunk, word / wordsPerLeaf);
   leaves_[ownedLeaf].word[word % wordsPerLeaf] |= U64{1} << rule % 64;
   summaries_[ownedChunk].half[word / 64] |= U64{1} << word % 64;
   tops_[tops_.size() - topsPerSet_ + chunk / 64] |= U64{1} << chunk % 64;
}

// The chunk of the set made last, which no other set refers to.
U32 RuleSets::ownChunk(std::size_t chunk) {
   U32& place = chunks_[chunks_.size() - chunksPerSet_ + chunk];
   if (place < firstOwnChunk_) {
      const Summary summary = summaries_[place];
      const Chunk leaves = chunkLeaves_[place];
      place = static_cast<U32>(summaries_.size());
      summaries_.push_back(summary);
      chunkLeaves_.push_back(leaves);
   }
   return place;
}

// The leaf of a chunk that the set made last owns, which no other set refers to.
U32 RuleSets::ownLeaf(U32 chunk, std::size_t leaf) {
   U32& place = chunkLeaves_[chunk].leaf[leaf];
   if (place < firstOwnLeaf_) {
      const Leaf words = leaves_[place];
      place = static_cast<U32>(leaves_.size());
      leaves_.push_back(words);
   }
   return place;
}

void RuleSets::finish() {
   tops_.shrink_to_fit();
   chunks_.shrink_to_fit();
   summaries_.shrink_to_fit();
   chunkLeaves_.shrink_to_fit();
   leaves_.shrink_to_fit();
}

std::size_t RuleSets::bytes() const {
   return tops_.capacity() * sizeof(U64) + chunks_.capacity() * sizeof(U32) +
          summaries_.capacity() * sizeof(Summary) + chunkLeaves_.capacity() * sizeof(Chunk) +
          leaves_.capacity() * sizeof(Leaf);
}

} // namespace Postcard::Classifier
