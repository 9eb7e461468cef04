// `Region`: a set of packets that asks for each field on its own, as filters and rules do; the
// regions of a class; a packet that two regions have in common. Relies on plain policy values. No
// diagram is needed here: fields of a region are independent, so that two regions meet exactly when
// they meet in every field.
#pragma once

#include "postcard/analysis/AddressBlock.h"
#include "postcard/packets/Packet.h"
#include "postcard/policy/Policy.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace Postcard::Analysis {

// From `low` to `high`, low <= high.
struct PortRange {
   U16 low = 0;
   U16 high = 65535;

   bool contains(U16 port) const { return low <= port && port <= high; }

   friend bool operator==(const PortRange&, const PortRange&) = default;
};

// The packets whose ports lie in one of the source ranges and in one of the destination ranges. A
// side without ranges is not compared. An area has a range on one side at least.
struct PortArea {
   std::vector<PortRange> source;
   std::vector<PortRange> destination;

   friend bool operator==(const PortArea&, const PortArea&) = default;
};

// The flags under `mask` read as `value`; no bit of `value` is outside `mask`.
struct FlagMatch {
   U8 value = 0;
   U8 mask = 0; // never 0

   friend bool operator==(const FlagMatch&, const FlagMatch&) = default;
};

// The sampled field reads as `value` under `mask`; no bit of `value` is outside `mask`.
struct SampleBits {
   Policy::SampleField field = Policy::SampleField::checksum;
   U16 value = 0;
   U16 mask = 0; // never 0

   friend bool operator==(const SampleBits&, const SampleBits&) = default;
};

// A match that is absent compares nothing. One that is present fails for packets without the field:
// only TCP and UDP have ports and a checksum, only TCP has flags, a later fragment has none of the
// three, and only IPv4 has an identification.
struct Region {
   U8 lowProtocol = 0;    // protocols from here
   U8 highProtocol = 255; // to here
   AddressBlock source;
   AddressBlock destination;
   std::optional<std::vector<PortArea>> ports;     // one of them; never an empty list
   std::optional<std::vector<FlagMatch>> tcpFlags; // one of them; never an empty list
   std::optional<SampleBits> sample;

   // Equal regions take the same packets. Different ones may, too: ranges can be written in another
   // order.
   friend bool operator==(const Region&, const Region&) = default;
};

// Whether `packet` lies in the region. Both must be of the same family.
bool contains(const Region& region, const Packets::Packet& packet);
bool contains(const std::vector<Region>& regions, const Packets::Packet& packet);

// A packet in both regions, or none when there is none. Zero wherever there is a choice, but TCP
// rather than UDP, UDP rather than ICMP, and ICMP rather than others.
std::optional<Packets::Packet> commonPacket(const Region& a, const Region& b,
                                            Policy::Family family);
// A packet that lies in a region of each list, or none.
std::optional<Packets::Packet> commonPacket(const std::vector<Region>& a,
                                            const std::vector<Region>& b, Policy::Family family);

// How a filter is read.
enum class Reading : U8 {
   // As it is written.
   meant,
   // As rules can express it: a filter without protocols takes only TCP and UDP; TCP flags are not
   // compared where the hardware cannot.
   built,
};

// What a reading needs to know besides the class.
struct Circumstances {
   Policy::Family family = Policy::Family::ipv4;
   bool tcpFlags = true;                         // the hardware can match TCP flags
   const Policy::Collector* collector = nullptr; // of the file; null: not known
};

// The regions of a class that takes part in the family: their union is what its filter takes,
// sample bits included when they count. May be empty: a protocol whose port entries have no ranges
// takes nothing. The helper must have accepted the class: what it refuses (several prefixes,
// exceptions, fragments, …) is not looked at.
std::vector<Region> regionsOf(const Policy::Class& each, const Circumstances& circumstances,
                              Reading reading);

// The classes of one policy and family, in the order of matching, with their regions.
struct ClassRegions {
   const Policy::Class* which = nullptr; // never null; outlives this value
   std::vector<Region> regions;
};
std::vector<ClassRegions> classRegions(const Policy::Policy& policy,
                                       const Circumstances& circumstances, Reading reading);

// The place of the first class that takes `packet`, or the number of classes when none does.
std::size_t firstMatch(const std::vector<ClassRegions>& classes, const Packets::Packet& packet);

} // namespace Postcard::Analysis
