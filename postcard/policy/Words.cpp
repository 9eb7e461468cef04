#include "postcard/policy/Words.h"

#include "Pello/Utf8.h"
#include "Pello/VisibleCharacters.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <numeric>
#include <utility>

namespace Postcard::Policy {

namespace {

constexpr std::size_t quotedCharacters = 60; // keeps messages short
constexpr std::size_t longestGuess = 32;     // bounds the work for keys of a hostile file

// How many bytes the first `characters` characters of `text` have.
std::size_t lengthOf(std::string_view text, std::size_t characters) {
   std::size_t length = 0;
   for (; characters > 0 && length < text.size(); --characters) {
      length += Pello::decodeUtf8(text.substr(length)).length;
   }
   return length;
}

// Levenshtein's distance: the least number of bytes to insert, remove or replace. Keeps one row of
// the table. Neither word may be longer than `longestGuess`.
std::size_t distance(std::string_view left, std::string_view right) {
   std::array<std::size_t, longestGuess + 1> row{};
   std::iota(row.begin(), row.end(), std::size_t{0});
   for (std::size_t i = 0; i < left.size(); ++i) {
      std::size_t diagonal = std::exchange(row[0], i + 1);
      for (std::size_t j = 0; j < right.size(); ++j) {
         const std::size_t replaced = diagonal + (left[i] == right[j] ? 0 : 1);
         diagonal = row[j + 1];
         row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
      }
   }
   return row[right.size()];
}

} // namespace

std::string inQuotes(std::string_view text) {
   const std::string_view shown = text.substr(0, lengthOf(text, quotedCharacters));
   return fmt::format("'{}{}'", Pello::escaped(shown), shown.size() < text.size() ? "…" : "");
}

std::string_view closest(std::string_view text, std::span<const std::string_view> words) {
   std::string_view best;
   std::size_t bestDistance = 3; // one more than the most that counts as a misspelling
   for (const std::string_view word : words) {
      if (text.size() > longestGuess || word.size() > longestGuess ||
          text.size() + 2 < word.size() || word.size() + 2 < text.size()) {
         continue;
      }
      const std::size_t letters = distance(text, word);
      if (letters < bestDistance && 2 * letters < word.size()) {
         best = word;
         bestDistance = letters;
      }
   }
   return best;
}

std::string didYouMean(std::string_view guess) {
   return guess.empty() ? "" : fmt::format("; did you mean '{}'?", guess);
}

} // namespace Postcard::Policy
