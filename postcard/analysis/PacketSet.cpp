#include "postcard/analysis/PacketSet.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <utility>

// Last, because the header defines macros. In C++ some of them turn functions of the C interface,
// which is the one used here, into those of a class with counted references.
#include <bdd.h>
#undef bdd_init
#undef bdd_ithvar
#undef bdd_nithvar

namespace Postcard::Analysis {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int falseNode = 0;
constexpr int trueNode = 1;

// The bits of all fields, in the order in which diagrams test them.
constexpr int protocolAt = 0;
constexpr int sourceAt = protocolAt + 8;
constexpr int destinationAt = sourceAt + 128;
constexpr int hasPortsAt = destinationAt + 128;
constexpr int sourcePortAt = hasPortsAt + 1;
constexpr int destinationPortAt = sourcePortAt + 16;
constexpr int tcpFlagsAt = destinationPortAt + 16;
constexpr int checksumAt = tcpFlagsAt + 8;
constexpr int identificationAt = checksumAt + 16;
constexpr int allBits = identificationAt + 16;

struct Place {
   int at;
   int width;
};

Place placeOf(Field field) {
   switch (field) {
   case Field::protocol:
      return {protocolAt, 8};
   case Field::sourcePort:
      return {sourcePortAt, 16};
   case Field::destinationPort:
      return {destinationPortAt, 16};
   case Field::tcpFlags:
      return {tcpFlagsAt, 8};
   case Field::checksum:
      return {checksumAt, 16};
   case Field::identification:
      return {identificationAt, 16};
   }
   return {}; // no other field exists
}

// What the library cannot keep for us, because its callbacks carry no context.
struct Engine {
   bool running = false;
   bool nodesExhausted = false; // stays until the library is started anew
   U32 generation = 0;          // counts starts of the library; sets of another are void
   Clock::time_point deadline;
   unsigned untilClock = 0; // operations until the clock is read again
};

Engine engine;

// The library's own handler ends the process.
void onError(int /*code*/) {
   engine.nodesExhausted = true;
}

// Reading the clock costs as much as a small operation.
constexpr unsigned operationsPerClock = 64;

void checkTime() {
   if (engine.untilClock-- == 0) {
      engine.untilClock = operationsPerClock;
      if (Clock::now() > engine.deadline) {
         engine.untilClock = 0; // until the next question, every operation finds this again
         throw LimitReached{LimitReached::Kind::time, "the time for this question is up"};
      }
   }
}

// The result of an operation of the library, unless the operation failed.
int checked(int node) {
   if (engine.nodesExhausted) {
      throw LimitReached{LimitReached::Kind::nodes,
                         "the diagrams of this question have too many nodes"};
   }
   return node;
}

void startLibrary(const Limits& limits) {
   ++engine.generation;
   engine.nodesExhausted = false;
   const auto first = static_cast<int>(std::min(limits.firstNodes, limits.mostNodes));
   if (bdd_init(first, std::max(first / 8, 1000)) < 0) { // it allocates its table of nodes here
      throw std::bad_alloc{};
   }
   engine.running = true;
   bdd_error_hook(&onError);
   bdd_gbc_hook(nullptr); // the library's own handler prints
   bdd_resize_hook(nullptr);
   // The library rounds up to a prime number, and refuses a limit that is not above what it has.
   bdd_setmaxnodenum(std::max(static_cast<int>(limits.mostNodes), bdd_getallocnum() + 1));
   bdd_setmaxincrease(static_cast<int>(limits.mostNodes));
   bdd_setcacheratio(8);
   if (bdd_setvarnum(allBits) < 0) {
      throw std::bad_alloc{};
   }
   bdd_disable_reorder();
}

void stopLibrary() {
   if (engine.running) {
      bdd_done();
      engine.running = false;
   }
}

int conjunction(int a, int b) {
   return checked(bdd_apply(a, b, bddop_and));
}
int disjunction(int a, int b) {
   return checked(bdd_apply(a, b, bddop_or));
}

// Conjunction with one bit that stands before all bits of `node`: one new node at most.
int beforeAll(int bit, bool set, int node) {
   return conjunction(set ? bdd_ithvar(bit) : bdd_nithvar(bit), node);
}

} // namespace

// ---- Sets ----

PacketSet::PacketSet(int node) noexcept : node_{node}, generation_{engine.generation} {
   bdd_addref(node_);
}

PacketSet::PacketSet(const PacketSet& other) noexcept
   : node_{other.node_}, generation_{other.generation_} {
   if (engine.running && generation_ == engine.generation) {
      bdd_addref(node_);
   }
}

PacketSet::PacketSet(PacketSet&& other) noexcept
   : node_{std::exchange(other.node_, falseNode)},
     generation_{std::exchange(other.generation_, 0)} {}

PacketSet& PacketSet::operator=(PacketSet other) noexcept {
   std::swap(node_, other.node_);
   std::swap(generation_, other.generation_);
   return *this;
}

PacketSet::~PacketSet() {
   if (engine.running && generation_ == engine.generation) {
      bdd_delref(node_);
   }
}

PacketSet operator&(const PacketSet& a, const PacketSet& b) {
   checkTime();
   return PacketSet{conjunction(a.node_, b.node_)};
}

PacketSet operator|(const PacketSet& a, const PacketSet& b) {
   checkTime();
   return PacketSet{disjunction(a.node_, b.node_)};
}

PacketSet operator-(const PacketSet& a, const PacketSet& b) {
   checkTime();
   return PacketSet{checked(bdd_apply(a.node_, b.node_, bddop_diff))};
}

// ---- The space ----

PacketSpace::PacketSpace(const Limits& limits) : limits_{limits} {
   if (engine.running) {
      throw std::logic_error{"a second PacketSpace, while the first one exists"};
   }
   if (std::min(limits.firstNodes, limits.mostNodes) < fewestNodes) {
      throw std::logic_error{"a PacketSpace with too few nodes for the bits of a packet"};
   }
   startLibrary(limits_);
   beginQuestion();
   try {
      makeConstants();
   } catch (...) {
      stopLibrary();
      throw;
   }
}

PacketSpace::~PacketSpace() {
   stopLibrary();
}

void PacketSpace::beginQuestion() {
   engine.deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                          std::chrono::duration<double>{limits_.seconds});
   engine.untilClock = 0;
}

void PacketSpace::reset() {
   stopLibrary();
   startLibrary(limits_);
   // These few operations are not what takes a question's time.
   const Clock::time_point deadline = std::exchange(engine.deadline, Clock::time_point::max());
   makeConstants();
   engine.deadline = deadline;
   engine.untilClock = 0;
}

void PacketSpace::makeConstants() {
   using Packets::protocolTcp;
   using Packets::protocolUdp;
   const PacketSet tcp = bits(Field::protocol, protocolTcp, 0xff);
   const PacketSet udp = bits(Field::protocol, protocolUdp, 0xff);
   const PacketSet hasPorts{checked(bdd_ithvar(hasPortsAt))};
   anything_ = PacketSet{trueNode};
   withPorts_ = (tcp | udp) & hasPorts;
   withTcpFlags_ = tcp & hasPorts;
   everything_ = (anything_ - hasPorts) | withPorts_;
}

PacketSet PacketSpace::bits(Field field, U16 value, U16 mask) const {
   checkTime();
   const Place place = placeOf(field);
   PacketSet set{trueNode};
   for (int bit = 0; bit < place.width; ++bit) {
      if ((mask >> bit & 1) != 0) {
         const int at = place.at + place.width - 1 - bit;
         set = PacketSet{beforeAll(at, (value >> bit & 1) != 0, set.node_)};
      }
   }
   return set;
}

// From the lowest bit: the numbers not below `low` are those with a set bit where `low` has none,
// or with the same bit and the rest not below; and likewise for `high`.
PacketSet PacketSpace::range(Field field, U16 low, U16 high) const {
   checkTime();
   const Place place = placeOf(field);
   PacketSet atLeast{trueNode};
   PacketSet atMost{trueNode};
   for (int bit = 0; bit < place.width; ++bit) {
      const int at = place.at + place.width - 1 - bit;
      const int isSet = bdd_ithvar(at);
      const int isClear = bdd_nithvar(at);
      atLeast = PacketSet{(low >> bit & 1) != 0 ? conjunction(isSet, atLeast.node_)
                                                : disjunction(isSet, atLeast.node_)};
      atMost = PacketSet{(high >> bit & 1) != 0 ? disjunction(isClear, atMost.node_)
                                                : conjunction(isClear, atMost.node_)};
   }
   return atLeast & atMost;
}

PacketSet PacketSpace::addresses(Side side, const AddressBlock& block) const {
   checkTime();
   const int begin = side == Side::source ? sourceAt : destinationAt;
   PacketSet set{trueNode};
   for (int bit = 127; bit >= 0; --bit) {
      const auto word = static_cast<std::size_t>(bit / 64);
      const U64 probe = U64{1} << (63 - bit % 64);
      if ((block.mask[word] & probe) != 0) {
         set = PacketSet{beforeAll(begin + bit, (block.value[word] & probe) != 0, set.node_)};
      }
   }
   return set;
}

// ---- Packets ----

namespace {

using Bits = std::array<bool, allBits>;

// One combination of bits that leads to "true", with zeros where there is a choice.
Bits bitsOnAPath(int node) {
   Bits bits{};
   while (node != trueNode) {
      const int low = bdd_low(node);
      bits[static_cast<std::size_t>(bdd_var(node))] = low == falseNode;
      node = low == falseNode ? bdd_high(node) : low;
   }
   return bits;
}

U16 number(const Bits& bits, Place place) {
   U16 value = 0;
   for (int bit = place.at; bit < place.at + place.width; ++bit) {
      value = static_cast<U16>(value << 1 | (bits[static_cast<std::size_t>(bit)] ? 1 : 0));
   }
   return value;
}

void address(const Bits& bits, int at, std::size_t bytes, std::array<U8, 16>& address) {
   for (std::size_t byte = 0; byte < bytes; ++byte) {
      address[byte] = static_cast<U8>(number(bits, {at + static_cast<int>(byte) * 8, 8}));
   }
}

Packets::Packet packetOf(const Bits& bits, Policy::Family family) {
   using Packets::protocolTcp;
   using Packets::protocolUdp;
   const bool ipv4 = family == Policy::Family::ipv4;
   Packets::Packet packet;
   packet.family = ipv4 ? Orlix::AddressFamily::ipv4 : Orlix::AddressFamily::ipv6;
   packet.protocol = static_cast<U8>(number(bits, placeOf(Field::protocol)));
   address(bits, sourceAt, addressSize(packet.family), packet.source);
   address(bits, destinationAt, addressSize(packet.family), packet.destination);
   if (bits[hasPortsAt]) {
      packet.sourcePort = number(bits, placeOf(Field::sourcePort));
      packet.destinationPort = number(bits, placeOf(Field::destinationPort));
      packet.checksum = number(bits, placeOf(Field::checksum));
      if (packet.protocol == protocolTcp) {
         packet.tcpFlags = static_cast<U8>(number(bits, placeOf(Field::tcpFlags)));
      }
   } else {
      packet.laterFragment = packet.protocol == protocolTcp || packet.protocol == protocolUdp;
   }
   if (ipv4) {
      packet.identification = number(bits, placeOf(Field::identification));
   }
   return packet;
}

void setNumber(Bits& bits, Place place, unsigned value) {
   for (int bit = 0; bit < place.width; ++bit) {
      bits[static_cast<std::size_t>(place.at + bit)] = (value >> (place.width - 1 - bit) & 1) != 0;
   }
}

void setAddress(Bits& bits, int at, std::span<const U8> address) {
   for (const U8 byte : address) {
      setNumber(bits, {at, 8}, byte);
      at += 8;
   }
}

Bits bitsOf(const Packets::Packet& packet) {
   Bits bits{};
   setNumber(bits, placeOf(Field::protocol), packet.protocol);
   setAddress(bits, sourceAt, packet.sourceAddress());
   setAddress(bits, destinationAt, packet.destinationAddress());
   bits[hasPortsAt] = packet.sourcePort.has_value();
   setNumber(bits, placeOf(Field::sourcePort), packet.sourcePort.value_or(0));
   setNumber(bits, placeOf(Field::destinationPort), packet.destinationPort.value_or(0));
   setNumber(bits, placeOf(Field::tcpFlags), packet.tcpFlags.value_or(0));
   setNumber(bits, placeOf(Field::checksum), packet.checksum.value_or(0));
   setNumber(bits, placeOf(Field::identification), packet.identification.value_or(0));
   return bits;
}

} // namespace

bool PacketSpace::contains(const PacketSet& set, const Packets::Packet& packet) const {
   const Bits bits = bitsOf(packet);
   int node = set.node_;
   while (node != falseNode && node != trueNode) {
      node = bits[static_cast<std::size_t>(bdd_var(node))] ? bdd_high(node) : bdd_low(node);
   }
   return node == trueNode;
}

std::optional<Packets::Packet> PacketSpace::packetIn(const PacketSet& set,
                                                     Policy::Family family) const {
   if (set.empty()) {
      return std::nullopt;
   }
   PacketSet chosen = set & withTcpFlags_;
   if (chosen.empty()) {
      chosen = set & withPorts_;
   }
   if (chosen.empty()) {
      const U16 icmp = family == Policy::Family::ipv4 ? 1 : 58;
      chosen = set & bits(Field::protocol, icmp, 0xff);
   }
   return packetOf(bitsOnAPath(chosen.empty() ? set.node_ : chosen.node_), family);
}

} // namespace Postcard::Analysis
