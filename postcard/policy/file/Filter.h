// `readFilter`: the filter of a class in one family. Relies on `Values` for scalars and on
// `Protocols` for the list of protocols.
#pragma once

#include "postcard/policy/Policy.h"
#include "postcard/policy/file/Document.h"
#include "postcard/policy/file/Values.h"

namespace Postcard::Policy::File {

// What the surroundings of a filter decide about it.
struct FilterRules {
   Family family = Family::ipv4;

   // Whether a protocol may have more than one port entry: only while the TCP-control toggle is on.
   bool severalPortEntries = true;
};

// The filter behind the key `key`. What is wrong with it goes to the findings of `values`; the
// result is then only fit to go on checking.
Filter readFilter(const Node& key, const Node& value, const FilterRules& rules,
                  const Values& values);

} // namespace Postcard::Policy::File
