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

// Of entries with equal texts, the first of one version is paired with the first of the other: any
// other pairing would make entries move that need not.
EntryChanges entryChanges(const Acl* before, const Acl* after) {
   const std::vector<std::string> old = textsOf(before);
   std::unordered_map<std::string_view, std::vector<std::size_t>> places; // last first
   for (std::size_t i = old.size(); i-- > 0;) {
      places[old[i]].push_back(i);
   }
   EntryChanges changes;
   std::vector<bool> found(old.size());
   std::vector<std::size_t> common; // places in `old` of the entries of both, in the later order
   for (std::string& text : textsOf(after)) {
      const auto same = places.find(text);
      if (same == places.end() || same->second.empty()) {
         changes.added.push_back(std::move(text));
      } else {
         common.push_back(same->second.back());
         found[same->second.back()] = true;
         same->second.pop_back();
      }
   }
   for (std::size_t i = 0; i < old.size(); ++i) {
      if (!found[i]) {
         changes.removed.push_back(old[i]);
      }
   }
   changes.kept = longestAscent(common);
   changes.moved = common.size() - changes.kept;
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
