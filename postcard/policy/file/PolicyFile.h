// The policy file: `loadPolicyFile` reads a file and `parsePolicyText` a text in memory. Relies on
// the other headers of this folder, which code outside need not include.
//
// A person writes a policy file, and the helper that gets its contents ends the process when its
// contract is broken. So everything that could break the contract is refused here, with its place
// in the file, before any record exists. What the helper itself refuses with a message (a fragments
// match, a second source prefix, an action that it cannot perform) is accepted and kept, so that
// the user reads the message of the helper.
#pragma once

#include "postcard/policy/Finding.h"
#include "postcard/policy/Policy.h"
#include "postcard/policy/file/LoadOptions.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Policy::File {

// What reading a policy file gives.
struct LoadResult {
   std::string fileName; // as given by the caller; stands in front of each message
   // Present exactly when the file has no finding, kept or omitted.
   std::optional<PolicyFile> policyFile;
   std::vector<Finding> findings;   // the first ones in file order, at most `maxFindings`
   std::size_t omittedFindings = 0; // how many findings there are beyond those in `findings`
   // What stood in the file. Empty when it could not be read, and of `parsePolicyText`, whose
   // caller has it.
   std::string text;
};

// "FILE:LINE:COLUMN: what is wrong", or "FILE: what is wrong" when the place is the whole file. No
// line end.
std::string format(std::string_view fileName, const Finding& finding);

// The kept findings of a result, each as `format` writes it and ended by a line feed, and the line
// "FILE: … and N more" when some were omitted. Empty for a result without findings.
std::string formatFindings(const LoadResult& result);

// Reads and checks the policy file at `path`: a regular file, a symbolic link to one, or a
// descriptor of this process as `readPolicyText` takes it, "-" for standard input. A file that is
// wrong and a file that cannot be read give a result with findings, not an exception; throws
// std::bad_alloc only. A file that cannot be read gives one finding whatever `maxFindings` is. The
// result's `fileName` is `path`, or "<stdin>" for "-".
LoadResult loadPolicyFile(const std::string& path, const LoadOptions& options = {});

// The same for a text in memory. `fileName` goes into the result and is not opened. The result does
// not refer to `text`.
LoadResult parsePolicyText(std::string_view text, const std::string& fileName,
                           const LoadOptions& options = {});

} // namespace Postcard::Policy::File
