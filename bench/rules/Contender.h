// `Contender`: somebody who makes the rules of a workload, and shows them for comparison.
#pragma once

#include "Orlix/IpGenPrefix.h"
#include "Pello/Types.h"
#include "Workload.h"

#include <cstddef>
#include <memory>
#include <string>
#include <type_traits>

namespace Bench {

// Everything that a rule says, without its name.
struct alignas(128) FlatRule {
   U32 index = 0;
   Orlix::IpGenPrefix source;
   Orlix::IpGenPrefix destination;
   U8 protocol = 0;
   bool sportValid = false;
   bool dportValid = false;
   U16 sportData = 0;
   U16 sportMask = 0;
   U16 dportData = 0;
   U16 dportMask = 0;
   U8 tcpFlag = 0;
   U8 tcpFlagMask = 0;
   U8 actions = 0; // bit n: action n
   U8 dscpData = 0;
   U8 dscpMask = 0;
   U32 sampleData = 0;
   U32 sampleMask = 0;
   U32 sampleVersion = 0;

   friend bool operator==(const FlatRule&, const FlatRule&) = default;
};
static_assert(sizeof(FlatRule) == 128 && std::is_trivially_copyable_v<FlatRule>);

// A rule as a contender shows it.
struct ShownRule {
   FlatRule rule;
   std::string name; // empty for a contender without names
   // What the table by name has under `name` is this very rule.
   bool sameByName = true;
};

class Contender {
 public:
   virtual ~Contender() = default;
   // Makes all rules. This is what is measured.
   virtual void create() = 0;
   // Removes all rules, after which `create` may be called again.
   virtual void remove() = 0;

   // Between `create` and `remove`: entries by index, entries by name (as many as indexes for a
   // contender without names), and the rule at an index below `rules()`.
   virtual std::size_t rules() = 0;
   virtual std::size_t names() = 0;
   virtual ShownRule rule(U32 index) = 0;
};

using ContenderFactory = std::unique_ptr<Contender> (*)(const Workload& workload);

// Ours: the helper module, loaded and driven as an agent does it, with every trace going to the
// ring.
std::unique_ptr<Contender> makeOurs(const Workload& workload);
// F, the floor: the rules alone, 128 bytes each, in a vector of exactly the right size.
std::unique_ptr<Contender> makeFlat(const Workload& workload);
// R, the plain shape that one would write first.
std::unique_ptr<Contender> makePlain(const Workload& workload);

} // namespace Bench
