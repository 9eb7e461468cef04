#include "postcard/changes/EntryChanges.h"

#include "postcard/report/RuleList.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
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
// so that an ascending subsequence takes at most one of them. Few entries have equals, so that the
// numbers are hardly more than the entries.
EntryChanges entryChanges(const Acl* before, const Acl* after) {
   const std::vector<std::string> old = textsOf(before);
   std::unordered_map<std::string_view, Equals> equals;
   for (std::size_t i = old.size(); i-- > 0;) {
      equals[old[i]].places.push_back(i);
   }
   EntryChanges changes;
   std::vector<std::size_t> numbers;
   std::size_t common = 0;
   for (std::string& text : textsOf(after)) {
      const auto same = equals.find(text);
      if (same != equals.end()) {
         numbers.insert(numbers.end(), same->second.places.begin(), same->second.places.end());
      }
      if (same == equals.end() || same->second.paired == same->second.places.size()) {
         changes.added.push_back(std::move(text));
      } else {
         ++same->second.paired;
         ++common;
      }
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
