// From the tree of a policy file to its structs. Door: `readPolicyFile`. Relies on the rooms
// `PolicyFileValues.h` (scalars and keys), `PolicyFileFilter.h` (filters) and `PolicyFileRules.h`
// (how many rules a filter makes).

#pragma once

#include "postcard/policy/file/Document.h"
#include "postcard/policy/file/Findings.h"
#include "postcard/policy/file/PolicyFile.h"

namespace Postcard::Policy::File {

// The policy file under `root`; good for use only when nothing was added to `findings`.
PolicyFile readPolicyFile(const Node& root, const LoadOptions& options, Findings& findings);

} // namespace Postcard::Policy::File
