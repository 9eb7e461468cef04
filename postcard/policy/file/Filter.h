// `readFilter`: the filter of a class in one family. Relies on `Values` for scalars and on
// `Protocols` for the list of protocols.
#pragma once

#include "postcard/policy/Policy.h"
#include "postcard/policy/file/Document.h"
#include "postcard/policy/file/Values.h"

namespace Postcard::Policy::File {

// What a filter may hold, as far as it depends on more than the filter itself.
struct FilterRules {
   Family family = Family::ipv4; // of the prefixes and of the sample field

   // Whether a protocol may have more than one port entry: only while the TCP-control toggle is on.
   bool severalPortEntries = true;
};

// The filter that `value` describes; its location is that of `key`, the family's key in the class.
// What is wrong with it goes to the findings of `values`. Then the filter lacks the parts that are
// wrong, and serves only to check the rest of the file.
Filter readFilter(const Node& key, const Node& value, const FilterRules& rules,
                  const Values& values);

} // namespace Postcard::Policy::File
