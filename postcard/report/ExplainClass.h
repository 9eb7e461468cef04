// `firstMiss`: why a packet does not belong to a class. Reads the class as its rules do: without
// protocols it is about TCP and UDP, TCP flags count only where the hardware matches them, and the
// sample bits only with the plain sample action. Relies on the policy file and the packet model.
#pragma once

#include "postcard/packets/Packet.h"
#include "postcard/policy/Policy.h"

#include <optional>
#include <string>

namespace Postcard::Report {

// The field that does not match, as in the policy file.
enum class Field : U8 {
   source,
   destination,
   protocol,
   sourcePort,
   destinationPort,
   tcpFlags,
   sample,
};

// "source", "destination", "protocol", "source port", "destination port", "tcp-flags", "sample".
std::string_view fieldName(Field field);

struct Miss {
   Field field;
   std::string wanted; // such as "192.0.2.0/24"
   std::string found;  // such as "10.1.2.3"
};

// The first field of the class, in the order of `Field`, that the packet does not match; absent
// when the packet belongs to the class. The class must take part in the packet's family, and be one
// that the helper does not refuse.
std::optional<Miss> firstMiss(const Policy::Class& each, const Policy::Hardware& hardware,
                              const Packets::Packet& packet);

} // namespace Postcard::Report
