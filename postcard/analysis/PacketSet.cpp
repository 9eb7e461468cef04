#include "postcard/analysis/PacketSet.h"

#include "postcard/analysis/PacketBits.h"

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
   if (bdd_setvarnum(packetBits) < 0) {
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
   const PacketSet hasPorts{checked(bdd_ithvar(bitsOf(Axis::hasPorts).at))};
   anything_ = PacketSet{trueNode};
   withPorts_ = (tcp | udp) & hasPorts;
   withTcpFlags_ = tcp & hasPorts;
   everything_ = (anything_ - hasPorts) | withPorts_;
}

PacketSet PacketSpace::bits(Field field, U16 value, U16 mask) const {
   checkTime();
   const BitRange place = bitsOf(axisOf(field));
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
   const BitRange place = bitsOf(axisOf(field));
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
   const int begin = bitsOf(side == Side::source ? Axis::source : Axis::destination).at;
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

// One combination of bits that leads to "true", with zeros where there is a choice.
PacketBits bitsOnAPath(int node) {
   PacketBits bits{};
   while (node != trueNode) {
      const int low = bdd_low(node);
      bits[static_cast<std::size_t>(bdd_var(node))] = low == falseNode;
      node = low == falseNode ? bdd_high(node) : low;
   }
   return bits;
}

} // namespace

bool PacketSpace::contains(const PacketSet& set, const Packets::Packet& packet) const {
   const PacketBits bits = bitsOf(packet);
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

// ---- Slices ----

namespace {

// A node below one axis, and the values of the axis that lead to it.
using NodeSlices = std::vector<std::pair<int, std::vector<AddressBlock>>>;

// Adds every path from `node` to a node behind `axis`. `path` holds the bits above `node`. Returns
// false when that makes more than `left` blocks.
bool addPaths(int node, BitRange axis, const AddressBlock& path, NodeSlices& slices,
              std::size_t& left) {
   if (node == falseNode) {
      return true;
   }
   if (node == trueNode || bdd_var(node) >= axis.at + axis.width) {
      const auto same = std::ranges::find(slices, node, &NodeSlices::value_type::first);
      (same != slices.end() ? *same : slices.emplace_back(node, std::vector<AddressBlock>{}))
            .second.push_back(path);
      return left-- > 0;
   }
   const int bit = bdd_var(node) - axis.at;
   const auto word = static_cast<std::size_t>(bit / 64);
   const U64 probe = U64{1} << (63 - bit % 64);
   AddressBlock next = path;
   next.mask[word] |= probe;
   if (!addPaths(bdd_low(node), axis, next, slices, left)) {
      return false;
   }
   next.value[word] |= probe;
   return addPaths(bdd_high(node), axis, next, slices, left);
}

} // namespace

std::optional<std::vector<Slice>> PacketSpace::slices(const PacketSet& set, Axis axis,
                                                      std::size_t most) const {
   NodeSlices nodes;
   if (!addPaths(set.node_, bitsOf(axis), {}, nodes, most)) {
      return std::nullopt;
   }
   std::vector<Slice> slices;
   for (auto& [node, values] : nodes) {
      slices.push_back({std::move(values), PacketSet{node}});
   }
   return slices;
}

} // namespace Postcard::Analysis
