// `PacketSet`: a set of packets, exact whatever its size; `PacketSpace`: makes such sets. Relies on
// a library of binary decision diagrams, which no header of ours includes.
//
// A set is a Boolean function of the bits of a packet's fields, kept as a reduced ordered decision
// diagram. Equal sets are the same diagram, so that comparing two sets costs nothing, however they
// were made. The order of the bits decides how large the diagrams are: protocol, source,
// destination, whether the packet has ports, source port, destination port, TCP flags, checksum,
// identification, each field from its highest bit. With ports before the addresses, the questions
// of this room took up to seven times as long.
//
// The library's state is global: there is at most one PacketSpace in a process, all sets belong to
// it, and one thread at a time may use any of them.
//
// Diagrams can grow beyond every bound. Past the limits of the space, an operation throws
// LimitReached, and so does every later one until `reset` or `beginQuestion`. No set made by then
// may be used after it ran out of nodes: the library answers "the empty set", once, and remembers
// that answer. An exception keeps such an answer from being taken for a proof.
#pragma once

#include "postcard/analysis/AddressBlock.h"
#include "postcard/packets/Packet.h"
#include "postcard/policy/Policy.h"

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <vector>

namespace Postcard::Analysis {

// A question needs more nodes or more time than the space may use.
class LimitReached : public std::runtime_error {
 public:
   enum class Kind : U8 { nodes, time };
   LimitReached(Kind kind, const char* message) : std::runtime_error{message}, kind_{kind} {}

   // The sets made so far stay good, but every operation fails until the next question begins. When
   // it is the nodes that are used up, all sets are void until `PacketSpace::reset`.
   bool timeIsUp() const noexcept { return kind_ == Kind::time; }

 private:
   Kind kind_;
};

// What diagrams may use. A node takes about 36 bytes, caches included.
struct Limits {
   std::size_t firstNodes = std::size_t{1} << 17; // reserved at once; doubled when they are used up
   std::size_t mostNodes = std::size_t{1} << 23;  // about 300 MiB
   double seconds = 10;                           // per question, see `PacketSpace::beginQuestion`
};

class PacketSet {
 public:
   PacketSet() noexcept = default; // the empty set
   PacketSet(const PacketSet& other) noexcept;
   PacketSet(PacketSet&& other) noexcept;
   PacketSet& operator=(PacketSet other) noexcept;
   ~PacketSet();

   bool empty() const noexcept { return node_ == 0; }
   friend bool operator==(const PacketSet& a, const PacketSet& b) noexcept {
      return a.node_ == b.node_;
   }

   // Intersection, union and difference. Throw LimitReached.
   friend PacketSet operator&(const PacketSet& a, const PacketSet& b);
   friend PacketSet operator|(const PacketSet& a, const PacketSet& b);
   friend PacketSet operator-(const PacketSet& a, const PacketSet& b);
   PacketSet& operator&=(const PacketSet& other) { return *this = *this & other; }
   PacketSet& operator|=(const PacketSet& other) { return *this = *this | other; }
   PacketSet& operator-=(const PacketSet& other) { return *this = *this - other; }

 private:
   friend class PacketSpace;
   explicit PacketSet(int node) noexcept;

   int node_ = 0;       // of the diagram; 0 and 1 are the library's constants
   U32 generation_ = 0; // of the space; a set that outlives `reset` must not be released
};

// The fields of at most 16 bits.
enum class Field : U8 {
   protocol, // 8 bits
   sourcePort,
   destinationPort,
   tcpFlags, // 8 bits
   checksum,
   identification,
};

enum class Side : U8 { source, destination };

// What sets look at, in the order in which their diagrams do.
enum class Axis : U8 {
   protocol,
   source,
   destination,
   hasPorts, // one bit
   sourcePort,
   destinationPort,
   tcpFlags,
   checksum,
   identification,
};

// The part of a set that some values of an axis have in common.
struct Slice {
   // The values, as blocks that have none in common. The first and highest bit of the axis is the
   // highest bit of the first word, whatever the width of the axis.
   std::vector<AddressBlock> values;
   PacketSet rest; // what the packets are like behind the axis
};

class PacketSpace {
 public:
   // Throws std::logic_error when there is a space already, or when `limits` are below
   // `fewestNodes`, with which the library could not even make the bits.
   static constexpr std::size_t fewestNodes = 2'000;
   explicit PacketSpace(const Limits& limits = {});
   PacketSpace(const PacketSpace&) = delete;
   PacketSpace& operator=(const PacketSpace&) = delete;
   // Sets may outlive the space; they can then only be destroyed.
   ~PacketSpace();

   // Gives the next question its whole time.
   void beginQuestion();
   // Forgets all sets, and that a limit was reached. Sets made before must not be used again,
   // except to be assigned to or destroyed. Does not give the question more time.
   void reset();

   // The whole space, with combinations of bits that no packet has.
   const PacketSet& anything() const { return anything_; }
   // The packets that can exist: only TCP and UDP have ports.
   const PacketSet& everything() const { return everything_; }
   // The packets that have ports and a checksum: TCP and UDP, except later fragments.
   const PacketSet& withPorts() const { return withPorts_; }
   // The packets that have TCP flags: TCP, except later fragments.
   const PacketSet& withTcpFlags() const { return withTcpFlags_; }

   // Sets that constrain nothing but the bits of one field. They hold combinations that no packet
   // has; intersect them with one of the sets above. All throw LimitReached.
   //
   // The values that equal `value` in the bits of `mask`.
   PacketSet bits(Field field, U16 value, U16 mask) const;
   // The values from `low` to `high`.
   PacketSet range(Field field, U16 low, U16 high) const;
   PacketSet addresses(Side side, const AddressBlock& block) const;

   // Whether `packet` lies in `set`.
   bool contains(const PacketSet& set, const Packets::Packet& packet) const;
   // A packet of `family` in `set`, or none when it is empty. `set` must be a part of
   // `everything()` and, for IPv4, must not look at more than 32 bits of an address. Prefers
   // packets that are easy to read: TCP, then UDP, then ICMP, with ports, and zero wherever the set
   // leaves a choice. Throws LimitReached.
   std::optional<Packets::Packet> packetIn(const PacketSet& set, Policy::Family family) const;
   // Cuts `set` into slices with different `rest`. `set` must look at nothing before `axis`, as the
   // `rest` of a slice along the axis before does. None when there would be more than `most` blocks
   // of values.
   std::optional<std::vector<Slice>> slices(const PacketSet& set, Axis axis,
                                            std::size_t most) const;

 private:
   void makeConstants();

   Limits limits_;
   PacketSet anything_;
   PacketSet everything_;
   PacketSet withPorts_;
   PacketSet withTcpFlags_;
};

} // namespace Postcard::Analysis
