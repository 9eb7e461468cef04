// `readPolicyFile`: makes the plain values of a policy file from its tree. Relies on `Fields` for
// keys, on `Values` for scalars and on `ClassReader` for classes.
#pragma once

#include "postcard/policy/Policy.h"
#include "postcard/policy/file/Document.h"
#include "postcard/policy/file/Findings.h"
#include "postcard/policy/file/LoadOptions.h"

namespace Postcard::Policy::File {

// The policy file whose tree begins at `root`. What is wrong with it goes to `findings`. The result
// keeps the promises of `Policy.h` only when this call has added no finding and the document was
// made without one. The result does not refer to the tree.
PolicyFile readPolicyFile(const Node& root, const LoadOptions& options, Findings& findings);

} // namespace Postcard::Policy::File
