// `Workload`: a policy as plain data, from which every contender makes its rules, and the workloads
// that are measured. Relies on nothing of the plug-in: the cutting of port ranges is written here
// once more, so that comparing the contenders' rules proves something.
#pragma once

#include "Pello/Types.h"

#include <cstddef>
#include <string>
#include <vector>

namespace Bench {

// Ports, both bounds included.
struct PortRange {
   U16 low;
   U16 high;
};

// A set of ports as value and mask.
struct PortBlock {
   U16 data;
   U16 mask; // set bits are compared
};

// One class map for IPv4, with the action "sample".
struct ClassInput {
   std::string name;
   std::string source;                  // prefix
   std::string destination;             // prefix
   std::vector<PortRange> sources;      // ascending by low, then high; no two equal
   std::vector<PortRange> destinations; // like `sources`
   std::vector<U8> protocols;           // of 6 (TCP) and 17 (UDP), ascending
};

struct Workload {
   std::string label;
   std::vector<ClassInput> classes; // in match order
};

// One class, ports 1-65534 on both sides, TCP and UDP: 1,800 rules.
Workload fullRanges();
// `classes` classes, each with ten random ranges of 1 to 8 ports on either side, TCP. Ranges over
// all ports would give twenty million rules, which none of the contenders could hold.
Workload manyClasses(std::size_t classes);
// One class with `ranges` random ranges on either side that do not overlap, TCP and UDP. 82 give
// about a million rules.
Workload wideClass(std::size_t ranges);
// One class of exactly `rules` rules, an even number: single ports, TCP and UDP.
Workload ofSize(std::size_t rules);

// The aligned blocks of the ranges, one range after another, ascending in each. Not merged.
std::vector<PortBlock> cut(const std::vector<PortRange>& ranges);

// How many rules the workload gives.
std::size_t ruleCount(const Workload& workload);

} // namespace Bench
