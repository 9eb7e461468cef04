#include "postcard/host/RuleNames.h"

namespace Postcard::Host {

std::string_view classOfRule(std::string_view rule, Policy::Family family) {
   // A name without the mark is returned whole: `substr` takes `npos` for the rest.
   const std::string_view mark = family == Policy::Family::ipv4 ? "-ipv4-" : "-ipv6-";
   return rule.substr(0, rule.rfind(mark));
}

} // namespace Postcard::Host
