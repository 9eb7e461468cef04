// `LoadOptions`: the feature toggles and the limits with which a policy file is read. Relies on the
// declaration of the feature toggles.
#pragma once

#include "postcard/policy/FeatureToggles.h"

#include <cstddef>

namespace Postcard::Policy::File {

// The defaults are those of every subcommand. A file that just reaches a limit is accepted.
struct LoadOptions {
   // The toggles that a file may set, each with the state that holds when the file does not set it.
   ToggleMap toggles = declaredToggles();

   // The greatest size of the file, in bytes.
   std::size_t maxBytes = std::size_t{16} << 20;

   // The greatest number of keys, values, lists and mappings of the file, together. An alias counts
   // as what it stands for, and the name of a definition as what it is defined as. This bounds
   // memory and time, whatever the file holds.
   std::size_t maxNodes = 200'000;

   // The greatest number of rules that all policies of the file make in all families, together. A
   // few port ranges multiply to billions of rules, which would exhaust the memory.
   U64 maxRules = 2'000'000;

   // How many findings a result keeps: the first ones in file order. The others are only counted.
   std::size_t maxFindings = 100;
};

} // namespace Postcard::Policy::File
