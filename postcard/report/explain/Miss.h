// `missedField` and `firstMiss`: why a packet does not belong to a class. Rely on plain policy
// values and on the packet model, not on rules: the answers can be held against those of a compiled
// ACL.
//
// A class is read the way the rules made from it behave. A class without protocols matches TCP and
// UDP only. TCP flags are compared only when the hardware can match them. The sample match is
// compared only when the class has the action `sample`.
#pragma once

#include "postcard/packets/Packet.h"
#include "postcard/policy/Policy.h"

#include <optional>
#include <string>
#include <string_view>

namespace Postcard::Report {

// A field of a class that a packet may not match. The enumerators stand in the order in which
// `firstMiss` compares the fields.
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
// accepts: at most one prefix per side, and no range of protocols. Allocates nothing.
std::optional<Field> missedField(const Policy::Class& each, const Policy::Hardware& hardware,
                                 const Packets::Packet& packet);

// The same with texts for people.
std::optional<Miss> firstMiss(const Policy::Class& each, const Policy::Hardware& hardware,
                              const Packets::Packet& packet);

} // namespace Postcard::Report
