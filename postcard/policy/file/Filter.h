// `readFilter` and `readFilterForBoth`: the filter of a class, in one family or for both. Relies on
// `Values` for scalars, on `Definitions` for names and on `Protocols` for the list of protocols.
#pragma once

#include "postcard/policy/Policy.h"
#include "postcard/policy/file/Definitions.h"
#include "postcard/policy/file/Document.h"
#include "postcard/policy/file/Values.h"

namespace Postcard::Policy::File {

// What a filter may hold, as far as it depends on more than the filter itself.
struct FilterRules {
   Family family = Family::ipv4; // of the prefixes and of the sample field

   // Whether a protocol may have more than one port entry: only while the TCP-control toggle is on.
   bool severalPortEntries = true;
};

// Reads the filter that `value` describes into `filter`, which holds what the class says for both
// families, or nothing. Its location becomes that of `key`, the family's key in the class. What is
// wrong goes to the findings of `values`. Then the filter lacks the parts that are wrong, and
// serves only to check the rest of the file.
//
// A key that the class has for both families must not be in `value` as well; nobody checks that
// here.
void readFilter(Filter& filter, const Node& key, const Node& value, const FilterRules& rules,
                Definitions& definitions, const Values& values);

// The filter that `value`, the value of `key`, describes for both families: it has no prefixes and
// no sample match that IPv6 packets cannot satisfy. Otherwise as `readFilter`.
Filter readFilterForBoth(const Node& key, const Node& value, bool severalPortEntries,
                         Definitions& definitions, const Values& values);

} // namespace Postcard::Policy::File
