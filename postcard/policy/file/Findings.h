// `Findings`: the list of what is wrong with a policy file, the wording that its messages share,
// and `Once`, which reports repetitions. Relies on `Finding`.
//
// A hostile file can be wrong in as many places as it has bytes. So the list keeps only the first
// findings in file order, and counts the rest.
#pragma once

#include "postcard/policy/Finding.h"
#include "postcard/policy/Words.h"

#include <cstddef>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Policy::File {

class Findings {
 public:
   // Keeps the first `kept` findings in file order. With 0 it only counts.
   explicit Findings(std::size_t kept) : kept_{kept} {}

   // Adds a finding. `message` is as `Finding` describes it. Takes constant time on average,
   // whatever `kept` is.
   void add(Location location, FindingCode code, std::string message);

   // Whether nothing was added.
   bool empty() const { return count_ == 0; }

   // Findings added so far, those that are not kept included.
   std::size_t count() const { return count_; }

   // Moves the kept findings out: in file order, and those of one place in the order in which they
   // were added. A second call returns none; `count` and `empty` answer as before.
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

// The words with a comma and a blank between them, such as "a, b, c".
std::string joined(std::span<const std::string_view> words);

// "unknown NOUN 'text' (expected one of: …)", with the closest word when there is one.
std::string unknownWord(std::string_view noun, std::string_view text,
                        std::span<const std::string_view> words);

// "duplicate NOUN TEXT (first at LINE:COLUMN)".
std::string duplicate(std::string_view noun, std::string_view text, Location first);

// Finds repetitions in a list whose elements must differ, such as the names of the classes of a
// policy. `Key` needs `operator<`.
template <class Key>
class Once {
 public:
   // `noun` names one of the things in messages; a literal. `findings` must outlive this object.
   Once(std::string_view noun, Findings& findings) : noun_{noun}, findings_{&findings} {}

   // Whether this is the first call with `key`. If it is not, adds a finding at `location` that
   // calls the thing `text` and names the place where it stood first.
   bool isFirst(const Key& key, Location location, std::string_view text) {
      const auto [first, inserted] = places_.try_emplace(key, location);
      if (!inserted) {
         findings_->add(location, FindingCode::duplicate, duplicate(noun_, text, first->second));
      }
      return inserted;
   }

 private:
   std::string_view noun_;
   Findings* findings_;             // never null
   std::map<Key, Location> places_; // where each thing stood first
};

} // namespace Postcard::Policy::File
