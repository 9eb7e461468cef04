// The policy file. Door: `loadPolicyFile` (a file) and `parsePolicyText` (a text in memory). Relies
// on the YAML parser behind the door, and on the declaration of the feature toggles.
//
// A policy file is written by a person and read by a library that ends the process when its
// contract is broken. So everything that could break that contract is refused here, with the place
// in the file, before any record exists. What the library itself refuses with a message (a
// fragments match, a second source prefix, an action it cannot perform) is accepted here and kept,
// so that the user reads the library's own words.

#pragma once

#include "postcard/policy/Policy.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Policy::File {

// One thing that is wrong.
struct Finding {
   Location location;
   std::string
         message; // one line, no full stop at the end, names its operands and what was expected
};

// The answer of the two doors.
struct LoadResult {
   std::string fileName;                 // as given by the caller
   std::optional<PolicyFile> policyFile; // present exactly when `findings` is empty
   std::vector<Finding> findings;        // the first ones in file order, at most `maxFindings`
   std::size_t omittedFindings = 0;      // how many more there are
};

// "FILE:LINE:COLUMN: what is wrong"; "FILE: what is wrong" for a file that could not be read.
std::string format(std::string_view fileName, const Finding& finding);

// All findings of a result, one per line, and "FILE: … and N more" when some were omitted. Empty
// for a good result.
std::string formatFindings(const LoadResult& result);

// The toggles that exist, each as it is declared beside the platform's libraries, whatever this
// process has set since. Every call reads the declaration anew.
ToggleMap declaredToggles();

// What the loader needs to know of its surroundings, and the limits it keeps. The defaults are
// those of the product.
struct LoadOptions {
   // The toggles that exist, each with the value that holds when the file does not set it.
   ToggleMap toggles = declaredToggles();

   // Bytes of the file.
   std::size_t maxBytes = std::size_t(16) << 20;

   // Keys, values, lists and mappings of the file, together. Bounds memory and time whatever the
   // file holds.
   std::size_t maxNodes = 200'000;

   // Rules that the policies of one file may expand to, all policies and families together. A few
   // port ranges multiply to billions of rules; without a bound such a file would end the process
   // for want of memory.
   std::uint64_t maxRules = 2'000'000;

   // Findings that a result keeps.
   std::size_t maxFindings = 100;
};

// Reads and checks the policy file at `path`, which must be a regular file. Never throws for
// anything that a file may hold (only when memory runs out) and never ends the process; the
// result's `fileName` is `path`.
LoadResult loadPolicyFile(const std::string& path, const LoadOptions& options = {});

// The same for a text in memory; `fileName` only goes into the result.
LoadResult parsePolicyText(std::string_view text, const std::string& fileName,
                           const LoadOptions& options = {});

} // namespace Postcard::Policy::File
