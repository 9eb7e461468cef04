// `readProtocols`: the protocols of a filter, with their ports, TCP flags and ICMP types. Relies on
// `Fields` for keys and on `Values` for scalars.
#pragma once

#include "postcard/policy/Policy.h"
#include "postcard/policy/file/Definitions.h"
#include "postcard/policy/file/Fields.h"
#include "postcard/policy/file/Values.h"

#include <vector>

namespace Postcard::Policy::File {

// Appends the elements of the list `protocols` of a filter to `target`; nothing when the filter
// does not have the key. `filter` must have been read with a shape that has the key.
// `severalPortEntries` says whether a protocol may have more than one port entry; `definitions`
// explains names of ports. What is wrong goes to the findings of
// `values`; an element without a good protocol, or with that of an earlier element, is left out.
void readProtocols(std::vector<ProtocolMatch>& target, const Fields& filter,
                   bool severalPortEntries, Definitions& definitions, const Values& values);

} // namespace Postcard::Policy::File
