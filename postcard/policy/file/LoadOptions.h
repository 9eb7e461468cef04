// `LoadOptions`: what a reader of policy files needs to know of its surroundings, and the limits it
// keeps. Relies on the declaration of the feature toggles.
#pragma once

#include "postcard/policy/FeatureToggles.h"

#include <cstddef>

namespace Postcard::Policy::File {

// The defaults are those of the product. A file at a limit is accepted.
struct LoadOptions {
   // The toggles that exist, each with the value that holds when the file does not set it.
   ToggleMap toggles = declaredToggles();

   // Bytes of the file.
   std::size_t maxBytes = std::size_t{16} << 20;

   // Keys, values, lists and mappings of the file, together. This bounds memory and time, whatever
   // the file holds.
   std::size_t maxNodes = 200'000;

   // Rules that all policies of the file make in all families, together. A few port ranges multiply
   // to billions of rules, and the process would end for want of memory.
   U64 maxRules = 2'000'000;

   // Findings that a result keeps; the others are counted.
   std::size_t maxFindings = 100;
};

} // namespace Postcard::Policy::File
