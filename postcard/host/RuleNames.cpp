#include "postcard/host/RuleNames.h"

#include <string>

namespace Postcard::Host {

std::string_view classOfRule(std::string_view rule, Policy::Family family) {
   // A name without the mark is returned whole: `substr` takes `npos` for the rest.
   const std::string mark = std::string{"-"}.append(familyName(family)).append("-");
   return rule.substr(0, rule.rfind(mark));
}

} // namespace Postcard::Host
