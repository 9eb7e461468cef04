// `readPolicyFile`: from the tree of a policy file to its values. Relies on `Fields` for keys, on
// `Values` for scalars, on `ClassReader` for classes and on `ruleCount` for the limit of rules.
#pragma once

#include "postcard/policy/Policy.h"
#include "postcard/policy/file/Document.h"
#include "postcard/policy/file/Findings.h"
#include "postcard/policy/file/LoadOptions.h"

namespace Postcard::Policy::File {

// The policy file under `root`. What is wrong with it goes to `findings`; only a result without
// findings is fit for use.
PolicyFile readPolicyFile(const Node& root, const LoadOptions& options, Findings& findings);

} // namespace Postcard::Policy::File
