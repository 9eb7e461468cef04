#include "postcard/agent/EntryTable.h"

#include <algorithm>

namespace Postcard::Agent {

namespace {

using Ordered = std::vector<std::pair<std::size_t, PolicyReport>>;

// The reports alone, in the order of the file. Policies that are gone from it have all the same
// number and keep their order, which is by name.
std::vector<PolicyReport> inOrder(Ordered ordered) {
   std::ranges::stable_sort(ordered, {}, &Ordered::value_type::first);
   std::vector<PolicyReport> reports;
   reports.reserve(ordered.size());
   for (auto& [order, report] : ordered) {
      reports.push_back(std::move(report));
   }
   return reports;
}

} // namespace

void EntryTable::handedOut(const PolicyKey& key) {
   notes_.push_back(key);
   ++looks_;
}

PolicyEntry* EntryTable::find(const PolicyKey& key) {
   const auto found = entries_.find(key);
   if (found == entries_.end()) {
      return nullptr;
   }
   handedOut(key);
   return &found->second;
}

std::pair<PolicyEntry*, bool> EntryTable::make(const PolicyKey& key) {
   const auto [item, isNew] = entries_.try_emplace(key);
   handedOut(key);
   return {&item->second, isNew};
}

void EntryTable::dropUnreferenced() {
   std::erase_if(entries_, [this](const auto& item) {
      const bool drop = nothingRefersTo(item.second);
      if (drop) {
         handedOut(item.first);
      }
      return drop;
   });
}

// Brings the lists up to date with the entries that were handed out.
void EntryTable::readNotes() {
   for (const PolicyKey& key : std::exchange(notes_, {})) {
      const auto found = entries_.find(key);
      const bool waits = found != entries_.end() && found->second.retry == Retry::later;
      overdue_.erase(key);
      refused_.erase(key);
      if (waits) {
         (found->second.overdue ? overdue_ : refused_).insert(key);
      }
      changed_.insert(key);
   }
}

bool EntryTable::anyWaits() {
   readNotes();
   return !overdue_.empty() || !refused_.empty();
}

std::vector<PolicyKey> EntryTable::takeWaiting(Which which) {
   readNotes();
   std::vector<PolicyKey> keys{overdue_.begin(), overdue_.end()};
   if (which == Which::all) {
      keys.insert(keys.end(), refused_.begin(), refused_.end());
   }
   for (const PolicyKey& key : keys) {
      find(key)->retry = Retry::now;
   }
   return keys;
}

Changes EntryTable::takeChanges() {
   readNotes();
   Changes changes;
   Ordered ordered;
   for (const PolicyKey& key : std::exchange(changed_, {})) {
      const auto found = entries_.find(key);
      if (found == entries_.end()) {
         changes.gone.push_back(key);
      } else {
         ordered.emplace_back(found->second.order, reportOf(key, found->second));
      }
   }
   changes.reports = inOrder(std::move(ordered));
   return changes;
}

std::vector<PolicyReport> EntryTable::report() const {
   Ordered ordered;
   ordered.reserve(entries_.size());
   for (const auto& [key, entry] : entries_) {
      ordered.emplace_back(entry.order, reportOf(key, entry));
   }
   return inOrder(std::move(ordered));
}

Outlook EntryTable::outlook() const {
   Outlook outlook{true, false};
   for (const auto& [key, entry] : entries_) {
      switch (entry.state) {
      case PolicyState::invalid:
      case PolicyState::unsupported:
      case PolicyState::failed:
         outlook = {false, true};
         return outlook;
      case PolicyState::waiting:
         outlook.allProgrammed = false;
         break;
      case PolicyState::empty:
      case PolicyState::programmed:
      case PolicyState::removed:
         break;
      }
   }
   return outlook;
}

bool EntryTable::wantsAny() const {
   return std::ranges::any_of(entries_,
                              [](const auto& item) { return item.second.wanted != nullptr; });
}

std::vector<std::shared_ptr<const PolicyVersion>> EntryTable::wanted() const {
   std::map<std::size_t, std::shared_ptr<const PolicyVersion>> ordered;
   for (const auto& [key, entry] : entries_) {
      if (entry.wanted != nullptr) {
         ordered.emplace(entry.order, entry.wanted);
      }
   }
   std::vector<std::shared_ptr<const PolicyVersion>> versions;
   for (const auto& [order, version] : ordered) {
      if (versions.empty() || versions.back() != version) { // the families of a policy follow
         versions.push_back(version);
      }
   }
   return versions;
}

} // namespace Postcard::Agent
