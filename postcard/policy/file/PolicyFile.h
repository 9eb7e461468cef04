// The policy file: `loadPolicyFile` reads a file and `parsePolicyText` a text in memory. Relies on
// the rooms of this folder, which no one outside needs to know.
//
// A policy file is written by a person and handed to a library that ends the process when its
// contract is broken. So everything that could break the contract is refused here, with its place
// in the file, before any record exists. What the library itself refuses with a message (a
// fragments match, a second source prefix, an action that it cannot perform) is accepted and kept,
// so that the user reads the message of the library.
#pragma once

#include "postcard/policy/Policy.h"
#include "postcard/policy/file/Finding.h"
#include "postcard/policy/file/LoadOptions.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Policy::File {

// What reading a policy file gives.
struct LoadResult {
   std::string fileName; // as given by the caller
   std::optional<PolicyFile>
         policyFile;                // present exactly when `findings` is empty and none omitted
   std::vector<Finding> findings;   // the first ones in file order, at most `maxFindings`
   std::size_t omittedFindings = 0; // how many more there are
};

// "FILE:LINE:COLUMN: what is wrong", or "FILE: what is wrong" when the place is the whole file.
std::string format(std::string_view fileName, const Finding& finding);

// All findings of a result, each on a line, and "FILE: … and N more" when some were omitted. Empty
// for a result without findings.
std::string formatFindings(const LoadResult& result);

// Reads and checks the policy file at `path`, which must be a regular file. Whatever the file holds
// or whyever it cannot be read is a finding; throws std::bad_alloc only. The result's `fileName` is
// `path`.
LoadResult loadPolicyFile(const std::string& path, const LoadOptions& options = {});

// The same for a text in memory; `fileName` only goes into the result.
LoadResult parsePolicyText(std::string_view text, const std::string& fileName,
                           const LoadOptions& options = {});

} // namespace Postcard::Policy::File
