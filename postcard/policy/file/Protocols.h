// `readProtocols`: the protocols of a filter, with their ports, TCP flags and ICMP types. Relies on
// `Fields` for keys and on `Values` for scalars.
#pragma once

#include "postcard/policy/Policy.h"
#include "postcard/policy/file/Fields.h"
#include "postcard/policy/file/Values.h"

#include <vector>

namespace Postcard::Policy::File {

// Appends the elements of the list behind the key `protocols` of a filter; nothing when the filter
// does not have the key. `severalPortEntries` says whether a protocol may have more than one port
// entry. What is wrong goes to the findings of `values`.
void readProtocols(std::vector<ProtocolMatch>& target, const Fields& filter,
                   bool severalPortEntries, const Values& values);

} // namespace Postcard::Policy::File
