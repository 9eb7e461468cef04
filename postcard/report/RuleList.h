// `writeRuleList`: an ACL with one line for each entry. Relies on the data model.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfig.h"

#include <iosfwd>

namespace Postcard::Report {

// Writes the key of `acl` on a line, and below it a line for each index in the order of matching:
//
//   web-ipv4
//     0  dns-ipv4-udp-SportData-53-SportMask-65535  udp any > 10.0.0.0/8 sport 53  sample
//
// that is index, name of the rule, what the rule matches, and its actions ("none" when it has
// none). The columns of an ACL are as wide as their longest text, and no line ends in a blank. Port
// blocks are written as ranges, other data and masks as DATA/MASK in hexadecimal; "any" is a prefix
// that every address matches. An ACL without entries is its key alone. Walks the ACL twice instead
// of keeping the texts; keeps no reference.
void writeRuleList(const OruPostcardTelemetry::PostcardTelemetryAclConfig& acl, std::ostream& out);

} // namespace Postcard::Report
