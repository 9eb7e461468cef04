// `EntryTable`: the entries of all policies, and which of them are due or have changed. Relies on
// `PolicyEntry`.
//
// The agent reaches entries through this table only. An entry that is handed out for a change is
// noted, and the lists of what is due are brought up to date from the notes before they are read.
// So a step costs the same however many policies there are, and no caller can forget to keep the
// lists right. `looks` counts the entries that were handed out, as a measure of work.
#pragma once

#include "postcard/agent/PolicyEntry.h"

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <utility>
#include <vector>

namespace Postcard::Agent {

// Which of the requests that wait for another attempt are meant.
enum class Which : std::uint8_t { overdue, all };

// What has changed since an earlier look.
struct Changes {
   std::vector<PolicyReport> reports; // those that may read differently, as `report` orders them
   std::vector<PolicyKey> gone;       // entries that there are no more
};

class EntryTable {
 public:
   // The entry under `key`, to be changed, or null. Valid until the entry is dropped.
   PolicyEntry* find(const PolicyKey& key);
   // The entry under `key`, which is made when there is none, and whether it was made.
   std::pair<PolicyEntry*, bool> make(const PolicyKey& key);
   // Calls `visit` with every key and entry, by key. `visit` may change the entry. Takes time in
   // proportion to the number of entries: for reloads, not for steps.
   template <class Visit>
   void forEach(Visit&& visit) {
      for (auto& [key, entry] : entries_) {
         handedOut(key);
         visit(key, entry);
      }
   }
   // The same for whoever only looks.
   template <class Visit>
   void forEach(Visit&& visit) const {
      for (const auto& [key, entry] : entries_) {
         visit(key, entry);
      }
   }
   // Drops the entries of which neither file nor helper nor rules client knows anything.
   void dropUnreferenced();

   // Whether `Retry::later` holds for an entry.
   bool anyWaits();
   // Changes `Retry::later` to `now` for the entries that are meant, and returns their keys: those
   // that are overdue, and unless `which` is `overdue` those that were refused, each by key.
   std::vector<PolicyKey> takeWaiting(Which which);

   std::size_t size() const noexcept { return entries_.size(); }

   // What has changed since the previous call.
   Changes takeChanges();
   // A report for every entry: those of the file in its order, and behind them the others by name.
   std::vector<PolicyReport> report() const;

   // See `Outlook`.
   Outlook outlook() const;
   // Whether the file wants a policy.
   bool wantsAny() const;
   // The versions that the file asks for, in its order, none twice.
   std::vector<std::shared_ptr<const PolicyVersion>> wanted() const;

   // How many entries have been handed out so far, all together.
   std::uint64_t looks() const noexcept { return looks_; }

 private:
   void handedOut(const PolicyKey& key);
   void readNotes();

   std::map<PolicyKey, PolicyEntry> entries_;
   std::vector<PolicyKey> notes_; // handed out since the lists were right; may repeat
   std::set<PolicyKey> overdue_;  // `Retry::later` and overdue
   std::set<PolicyKey> refused_;  // `Retry::later` and not overdue
   std::set<PolicyKey> changed_;  // since `takeChanges`; may name entries that are gone
   std::uint64_t looks_ = 0;
};

} // namespace Postcard::Agent
