// `firstMiss`: why a packet does not belong to a class. Relies on plain policy values and on the
// packet model, not on rules: its answers can be held against those of a compiled ACL.
//
// A class is read as the rules made from it behave. Without protocols it is about TCP and UDP only.
// TCP flags count only where the hardware can match them. The sample match counts only together
// with the action `sample`.
#pragma once

#include "postcard/packets/Packet.h"
#include "postcard/policy/Policy.h"

#include <optional>
#include <string>
#include <string_view>

namespace Postcard::Report {

// A field of a class that a packet can fail, in the order in which the fields are compared.
enum class Field : U8 {
   source,
   destination,
   protocol,
   sourcePort,
   destinationPort,
   tcpFlags,
   sample,
};

// The field in the words of the policy file: "source", "destination", "protocol", "source port",
// "destination port", "tcp-flags", "sample".
std::string_view fieldName(Field field);

// Why a packet does not belong to a class.
struct Miss {
   Field field;
   std::string wanted; // what the class asks for, such as "192.0.2.0/24"
   std::string found;  // what the packet has, such as "10.1.2.3"
};

// The first field of the class that the packet does not match; absent when the packet belongs to
// the class. The class must take part in the packet's family, and must be one that the plug-in
// accepts: at most one prefix per side, and no range of protocols.
std::optional<Miss> firstMiss(const Policy::Class& each, const Policy::Hardware& hardware,
                              const Packets::Packet& packet);

} // namespace Postcard::Report
