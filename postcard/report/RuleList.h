// `writeRuleList`: an ACL with one line for each entry; `ruleText`: what one rule matches and does.
// Relies on the data model, and on `forEachRule` for where the entries come from.
#pragma once

#include "postcard/host/RuleOrigin.h"

#include <iosfwd>
#include <string>

namespace Postcard::Report {

// Writes the key of the ACL on a line, and below it a line for each index in the order of matching:
//
//   web-ipv4
//     0  dns-ipv4-udp-SportData-53-SportMask-65535  udp any > 10.0.0.0/8 sport 53  sample  from
//     9:24 entry 1 sport 53
//
// that is index, name of the rule, what the rule matches, its actions ("none" when it has none),
// and its origin as `text` writes it. The columns of an ACL are as wide as their longest text, and
// no line ends in a blank. Port blocks are written as ranges, other data and masks as DATA/MASK in
// hexadecimal; "any" is a prefix that every address matches. An ACL without entries is its key
// alone. Walks the ACL twice instead of keeping the texts; keeps no reference. Throws OriginError.
void writeRuleList(const Host::CompiledPolicy& compiled, std::ostream& out);

// What the rule matches and its actions, as a line of the list has them, two blanks between: "tcp
// any > 10.0.0.0/8 dport 80  sample". Rules of equal texts take and do the same.
std::string ruleText(const OruPostcardTelemetry::RuleConfig& rule);

} // namespace Postcard::Report
