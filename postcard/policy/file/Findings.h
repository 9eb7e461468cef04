// The list of what is wrong with a policy file. Door: `Findings`. Relies on the plain values of
// `PolicyFile.h`. A hostile file can be wrong in as many places as it has bytes, so the list keeps
// only the first findings in file order and counts the rest.

#pragma once

#include "postcard/policy/file/PolicyFile.h"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Policy::File {

class Findings {
 public:
   // Keeps the first `kept` findings; 0 counts only.
   explicit Findings(std::size_t kept) : kept_(kept) {}

   void add(Location location, std::string message);

   bool empty() const { return count_ == 0; }

   // Findings added so far, those that are not kept included.
   std::size_t count() const { return count_; }

   // The kept findings in file order; those of one place in the order in which they were added.
   // Leaves the list without them.
   std::vector<Finding> take();

 private:
   struct Numbered {
      Finding finding;
      std::size_t number = 0;
   };

   static bool before(const Numbered& left, const Numbered& right);
   void trim();

   std::size_t kept_;
   std::size_t count_ = 0;
   std::vector<Numbered> list_; // unordered; at most twice `kept_` and a few
};

// `text` in single quotes for a message: one line, control characters written as escapes, and cut
// with an ellipsis after 60 characters.
std::string inQuotes(std::string_view text);

// "a, b, c".
std::string joined(std::span<const std::string_view> words);

// The word that `text` is most likely a misspelling of (at most two letters off, and less than half
// of the word); empty when there is none.
std::string_view closest(std::string_view text, std::span<const std::string_view> words);

// "unknown NOUN 'text' (expected one of: …)", with a guess at what was meant when there is one.
std::string unknownWord(std::string_view noun, std::string_view text,
                        std::span<const std::string_view> words);

} // namespace Postcard::Policy::File
