// `Findings`: the list of what is wrong with a policy file, the wording that its messages share,
// and `Once`, which reports repetitions. Relies on `Finding`.
//
// A hostile file can be wrong in as many places as it has bytes. So the list keeps only the first
// findings in file order, and counts the rest.
#pragma once

#include "postcard/policy/file/Finding.h"

#include <cstddef>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Policy::File {

class Findings {
 public:
   // Keeps the first `kept` findings; 0 counts only.
   explicit Findings(std::size_t kept) : kept_{kept} {}

   // Takes constant time on average, whatever `kept` is.
   void add(Location location, std::string message);

   // Whether nothing was added.
   bool empty() const { return count_ == 0; }

   // Findings added so far, those that are not kept included.
   std::size_t count() const { return count_; }

   // The kept findings in file order; those of one place in the order in which they were added.
   // Leaves none behind, but `count` and `empty` answer as before.
   std::vector<Finding> take();

 private:
   struct Numbered {
      Finding finding;
      std::size_t number = 0; // how many were added before
   };

   static bool before(const Numbered& left, const Numbered& right);
   void trim();

   std::size_t kept_;
   std::size_t count_ = 0;
   std::vector<Numbered> list_; // unordered; at most twice `kept_` and a few
};

// `text` in single quotes for a message: on one line, unprintable characters written as escapes,
// and cut with an ellipsis after 60 characters.
std::string inQuotes(std::string_view text);

// "a, b, c".
std::string joined(std::span<const std::string_view> words);

// The word that `text` most likely misspells: at most two letters off, and less than half of the
// word. Empty when there is none.
std::string_view closest(std::string_view text, std::span<const std::string_view> words);

// "unknown NOUN 'text' (expected one of: …)", with the closest word when there is one.
std::string unknownWord(std::string_view noun, std::string_view text,
                        std::span<const std::string_view> words);

// "duplicate NOUN TEXT (first at LINE:COLUMN)".
std::string duplicate(std::string_view noun, std::string_view text, Location first);

// Reports what stands for the second time where it may stand once.
template <class Key>
class Once {
 public:
   // `noun` names one of the things in messages; a literal. `findings` must outlive this object.
   Once(std::string_view noun, Findings& findings) : noun_{noun}, findings_{&findings} {}

   // Whether nothing equal to `key` was asked about before. If something was, adds a finding at
   // `location`, in which the thing is called `text`.
   bool isFirst(const Key& key, Location location, std::string_view text) {
      const auto [first, inserted] = places_.try_emplace(key, location);
      if (!inserted) {
         findings_->add(location, duplicate(noun_, text, first->second));
      }
      return inserted;
   }

 private:
   std::string_view noun_;
   Findings* findings_;             // never null
   std::map<Key, Location> places_; // where each thing stood first
};

} // namespace Postcard::Policy::File
