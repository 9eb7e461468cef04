// `Definitions`: the names that a policy file gives to prefixes and ports, and what they stand for.
// Relies on `Fields` for keys and on `Values` for scalars.
#pragma once

#include "postcard/policy/Policy.h"
#include "postcard/policy/file/Fields.h"
#include "postcard/policy/file/Values.h"

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Policy::File {

class Definitions {
 public:
   // `maxExpanded` bounds how many ports all names of ports stand for, each time that one is used.
   // So a long list that is named often cannot exhaust the memory.
   explicit Definitions(std::size_t maxExpanded) : maxExpanded_{maxExpanded} {}

   // Reads the value of the key `definitions`. What is wrong goes to the findings of `values`; a
   // definition that is wrong is kept as unusable, so that its uses have no further finding.
   void read(const Node& node, const Values& values);

   // Whether `node` may name a definition, and can be neither a number nor a prefix: an ASCII
   // letter, then letters, digits, '-' and '_'; 1 to `Values::maxName` bytes; not null.
   static bool isName(const Node& node);

   // The prefix of `family` that `node` writes out or names. Adds a finding and returns nothing
   // when it does neither, or when the name stands for a prefix of the other family. The location
   // of the result is that of `node`. `what` names the value in messages.
   std::optional<Prefix> prefix(const Node& node, std::string_view what, Family family,
                                const Values& values) const;

   // The ports that `node` writes out or names, each with the location of `node`. Empty after a
   // finding.
   std::vector<NumberRange> ports(const Node& node, std::string_view what, const Values& values);

 private:
   using PortRanges = std::vector<NumberRange>;

   void readPrefix(const Node& key, const Node& value, const Values& values);
   void readPorts(const Node& key, const Node& value, const Values& values);

   // Null and empty stand for a definition that is wrong.
   std::map<std::string, std::optional<Prefix>, std::less<>> prefixes_;
   std::map<std::string, PortRanges, std::less<>> ports_;
   std::size_t maxExpanded_;
   std::size_t expanded_ = 0; // how many ports names have stood for so far
};

} // namespace Postcard::Policy::File
