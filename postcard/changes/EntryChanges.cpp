#include "postcard/changes/EntryChanges.h"

#include "postcard/report/RuleList.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <functional>
#include <span>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace Postcard::Changes {

namespace {

using Acl = OruPostcardTelemetry::PostcardTelemetryAclConfig;

std::vector<std::string> textsOf(const Acl* acl) {
   std::vector<std::string> texts;
   if (acl != nullptr) {
      texts.reserve(acl->ruleByIndexs());
      for (const auto& entry : acl->ruleByIndex()) {
         texts.push_back(Report::ruleText(*entry.value()));
      }
   }
   return texts;
}

// The entries of the earlier version that have one text.
struct Equals {
   std::vector<std::size_t> places; // the last one first
   std::size_t paired = 0;          // with as many entries of the later version
};

// At most `mostEquals` of `places`, which descend, around `place`.
std::span<const std::size_t> nearest(const std::vector<std::size_t>& places, std::size_t place) {
   constexpr std::size_t mostEquals = 64;
   const std::size_t count = std::min(places.size(), mostEquals);
   const auto at = std::ranges::lower_bound(places, place, std::ranges::greater{});
   const auto before = static_cast<std::size_t>(at - places.begin());
   const std::size_t first = std::min(before - std::min(before, count / 2), places.size() - count);
   return std::span{places}.subspan(first, count);
}

// The length of the longest ascending subsequence: `lowest[n]` is the lowest number at which one of
// n + 1 numbers can end.
std::size_t longestAscent(const std::vector<std::size_t>& numbers) {
   std::vector<std::size_t> lowest;
   for (const std::size_t number : numbers) {
      const auto at = std::ranges::lower_bound(lowest, number);
      if (at == lowest.end()) {
         lowest.push_back(number);
      } else {
         *at = number;
      }
   }
   return lowest.size();
}

} // namespace

// The longest list of entries that both versions have in one order, by Hunt and Szymanski: each
// later entry stands for the places of all its equals in the earlier version, the last one first,
// so that an ascending subsequence takes at most one of them. Few entries have equals. Of one that
// has very many, the nearest places count, lest the numbers grow with their square; then fewer
// entries may be found to have kept their order than have.
EntryChanges entryChanges(const Acl* before, const Acl* after) {
   const std::vector<std::string> old = textsOf(before);
   std::unordered_map<std::string_view, Equals> equals;
   for (std::size_t i = old.size(); i-- > 0;) {
      equals[old[i]].places.push_back(i);
   }
   EntryChanges changes;
   std::vector<std::size_t> numbers;
   std::size_t common = 0;
   std::size_t place = 0;
   for (std::string& text : textsOf(after)) {
      const auto same = equals.find(text);
      if (same != equals.end()) {
         const auto near = nearest(same->second.places, place);
         numbers.insert(numbers.end(), near.begin(), near.end());
      }
      if (same == equals.end() || same->second.paired == same->second.places.size()) {
         changes.added.push_back(std::move(text));
      } else {
         ++same->second.paired;
         ++common;
      }
      ++place;
   }
   for (const std::string& text : old) {
      Equals& same = equals[text];
      if (same.paired == 0) {
         changes.removed.push_back(text);
      } else {
         --same.paired;
      }
   }
   changes.kept = longestAscent(numbers);
   changes.moved = common - changes.kept;
   return changes;
}

namespace {

std::string listText(char sign, const char* what, const std::vector<std::string>& entries) {
   std::string text;
   for (std::size_t i = 0; i < std::min(entries.size(), mostShown); ++i) {
      text += fmt::format("      {} {}\n", sign, entries[i]);
   }
   if (entries.size() > mostShown) {
      text += fmt::format("      and {} more {}\n", entries.size() - mostShown, what);
   }
   return text;
}

} // namespace

std::string text(const EntryChanges& changes) {
   if (changes.none()) {
      return {};
   }
   return fmt::format("   entries: {} added, {} removed, {} moved, {} kept\n", changes.added.size(),
                      changes.removed.size(), changes.moved, changes.kept) +
          listText('-', "removed", changes.removed) + listText('+', "added", changes.added);
}

nlohmann::ordered_json json(const EntryChanges& changes) {
   return {{"kept", changes.kept},
           {"moved", changes.moved},
           {"added", changes.added},
           {"removed", changes.removed}};
}

} // namespace Postcard::Changes
