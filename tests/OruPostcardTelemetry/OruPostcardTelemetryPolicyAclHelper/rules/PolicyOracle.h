// `expectedRules`: what a policy must become, worked out from a plain description of it in the
// simplest way that can be right: numbers, texts and standard containers, nothing of the helper.
// Relies on nothing. For tests only.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Oracle {

using Range = std::pair<unsigned, unsigned>;

struct PortEntry {
   std::set<Range> sources;
   std::set<Range> destinations;
};

struct Proto {
   std::vector<PortEntry> ports;
   std::set<std::pair<unsigned, unsigned>> flags; // flags, mask
};

struct Filter {
   std::string source;                                  // a prefix, or empty
   std::string destination;                             // a prefix, or empty
   std::optional<std::pair<unsigned, unsigned>> sample; // data, mask
   unsigned version = 0;                                // of the sample match
   std::map<Range, Proto> protocols;
   bool fragments = false;
};

struct ClassActions {
   std::set<unsigned> types; // 18 sample, 19 sample all, others
   std::optional<unsigned> dscp;
};

// One entry of the match order: a class with one of its filters.
struct Entry {
   std::string className;
   Filter filter;
};

struct Policy {
   std::string family = "ipv4";
   bool tcpFlags = true; // what hardware can match
   std::map<std::string, ClassActions> classes;
   std::vector<Entry> entries; // in match order
};

struct Result {
   std::string status;
   std::vector<std::string> byIndex; // as `TestSupport::rulesByIndex`
   std::vector<std::string> byName;  // as `TestSupport::rulesByName`
};

Result expectedRules(const Policy& policy);

} // namespace Oracle
