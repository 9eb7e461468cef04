// The filter of a class in one family. Door: `readFilter`. Relies on `PolicyFileValues.h`.

#pragma once

#include "postcard/policy/file/Document.h"
#include "postcard/policy/file/PolicyFile.h"
#include "postcard/policy/file/Values.h"

namespace Postcard::Policy::File {

// What the surroundings of a filter decide about it.
struct FilterRules {
   Family family = Family::ipv4;

   // Whether a protocol may have more than one port entry. With the TCP-control toggle off, every
   // consumer of a filter takes for granted that there is at most one.
   bool severalPortEntries = true;
};

// The filter behind the key `key`; what is wrong with it goes to the findings of `values`, and then
// the result is only fit to go on checking.
Filter readFilter(const Node& key, const Node& value, const FilterRules& rules,
                  const Values& values);

} // namespace Postcard::Policy::File
