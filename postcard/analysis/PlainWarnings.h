// `plainWarnings`: the warnings about one family of a policy that can be read off its classes one
// by one: `cost` and `empty`. Internal to this room. Relies on plain policy values.
#pragma once

#include "postcard/analysis/Warning.h"

namespace Postcard::Analysis {

Warnings plainWarnings(const Policy::Policy& policy, const Circumstances& circumstances);

} // namespace Postcard::Analysis
