// `entryChanges`: which entries of an ACL come, go and move between two versions of it. Relies on
// `ruleText`, by which entries are compared.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfig.h"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <string>
#include <vector>

namespace Postcard::Changes {

// Entries are equal when they match and do the same; neither their names nor their indexes count.
struct EntryChanges {
   std::size_t kept = 0;             // in both versions, in the same order among themselves
   std::size_t moved = 0;            // in both versions, but before or behind others than they were
   std::vector<std::string> added;   // only in the later version, in its order
   std::vector<std::string> removed; // only in the earlier version, in its order

   bool none() const { return moved == 0 && added.empty() && removed.empty(); }
};

// Compares two versions of an ACL; null stands for one without entries. As many entries as possible
// count as kept. Takes memory for the text of each entry.
EntryChanges entryChanges(const OruPostcardTelemetry::PostcardTelemetryAclConfig* before,
                          const OruPostcardTelemetry::PostcardTelemetryAclConfig* after);

// An indented line with the numbers, and below it at most `mostShown` removed ("- …") and as many
// added entries ("+ …"), with a line for how many more there are. Empty when nothing changes.
inline constexpr std::size_t mostShown = 10;
std::string text(const EntryChanges& changes);
// {"kept", "moved", "added": […], "removed": […]}, with every entry.
nlohmann::ordered_json json(const EntryChanges& changes);

} // namespace Postcard::Changes
