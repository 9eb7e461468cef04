// `adviceOf`: what would make a policy cheaper, ranked by the entries that it saves; as values, as
// text and as JSON. Relies on the warnings of `analysis` for what never matches and for ranges
// whose neighbour is cheaper, and on plain policy values for ranges that can be merged.
#pragma once

#include "postcard/analysis/Warning.h"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Advice {

// Kinds are part of the JSON document: they are not renamed.
enum class Kind : U8 {
   merge,     // ranges of a class that match the same packets with fewer entries when merged
   remove,    // a part that can never match, because its packets are taken before
   neighbour, // a range that is one port wider or narrower takes far fewer entries
};

// "merge", "remove" or "neighbour".
std::string_view kindName(Kind kind);

struct Advice {
   Kind kind = Kind::merge;
   std::string policy; // its name
   Policy::Family family = Policy::Family::ipv4;
   std::string className;
   Policy::Location location; // of what is to be changed
   std::string text;          // one line without a full stop
   U64 saves = 0;             // entries; never 0
};

// What can be merged in one family of a policy, class by class. The same packets match afterwards.
// `tcpFlags`: whether the hardware matches TCP flags.
std::vector<Advice> mergesOf(const Policy::Policy& policy, Policy::Family family, bool tcpFlags);

// The merges, and the warnings that say how many entries they cost, those first that save most.
// Equal ones stay in the order in which they come.
std::vector<Advice> adviceOf(std::vector<Advice> merges, const Analysis::Warnings& warnings);

// A line for each: "FILE:LINE:COLUMN: saves N: POLICY FAMILY: class 'NAME': TEXT". At most `most`
// lines, and then one that says how many are left out.
std::string text(const std::vector<Advice>& advice, std::string_view fileName, std::size_t most);
// [{"kind", "policy", "family", "class", "line", "column", "text", "saves"}]
nlohmann::ordered_json json(const std::vector<Advice>& advice);

} // namespace Postcard::Advice
