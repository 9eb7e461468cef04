#include "postcard/policy/file/Definitions.h"

#include "postcard/policy/Words.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace Postcard::Policy::File {

namespace {

constexpr U16 maxPort = std::numeric_limits<U16>::max();

// Among how many definitions a guess is looked for, which bounds the work for a hostile file.
constexpr std::size_t mostGuesses = 200;

bool isLetter(char byte) {
   return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
}

bool isNameByte(char byte) {
   return isLetter(byte) || (byte >= '0' && byte <= '9') || byte == '-' || byte == '_';
}

// Adds a finding unless `key` may be the name of a definition.
bool checkName(const Node& key, const Values& values) {
   if (Definitions::isName(key)) {
      return true;
   }
   values.findings().add(
         key.location, FindingCode::badName,
         fmt::format("{} cannot name a definition (expected a letter, then letters, "
                     "digits, '-' and '_', at most {} bytes)",
                     inQuotes(key.text), Values::maxName));
   return false;
}

// Adds the finding that `node` names no definition.
template <class Map>
void reportUnknown(const Node& node, std::string_view expected, std::string_view what,
                   const Map& definitions, const Values& values) {
   std::vector<std::string_view> names;
   for (auto each = definitions.begin(); each != definitions.end() && names.size() < mostGuesses;
        ++each) {
      names.push_back(each->first);
   }
   values.findings().add(node.location, FindingCode::unknownDefinition,
                         fmt::format("expected {} or the name of a definition for {}, found {}{}",
                                     expected, what, inQuotes(node.text),
                                     didYouMean(closest(node.text, names))));
}

} // namespace

bool Definitions::isName(const Node& node) {
   return node.isScalar() && !node.isNull() && !node.text.empty() &&
          node.text.size() <= Values::maxName && isLetter(node.text.front()) &&
          std::ranges::all_of(node.text, isNameByte);
}

void Definitions::read(const Node& node, const Values& values) {
   const Fields fields{node, Shape::definitions, values};
   const auto readEach = [&](std::string_view key, auto readOne) {
      const Node* mapping = fields.value(key);
      if (mapping == nullptr) {
         return;
      }
      if (mapping->kind != NodeKind::mapping) {
         values.mismatch(*mapping, "a mapping", key);
         return;
      }
      forEachField(*mapping, [&](const Node& name, const Node& value) {
         if (checkName(name, values)) {
            (this->*readOne)(name, value, values);
         }
      });
   };
   readEach("prefixes", &Definitions::readPrefix);
   readEach("ports", &Definitions::readPorts);
}

void Definitions::readPrefix(const Node& key, const Node& value, const Values& values) {
   prefixes_.try_emplace(std::string{key.text}, values.prefixOfAnyFamily(value, key.text));
}

void Definitions::readPorts(const Node& key, const Node& value, const Values& values) {
   const auto [definition, inserted] = ports_.try_emplace(std::string{key.text});
   if (!inserted || !values.isList(value, key.text)) {
      return;
   }
   Once<std::pair<U16, U16>> once{"port range", values.findings()};
   const std::size_t before = values.findings().count();
   PortRanges& ranges = definition->second;
   for (const Node& node : value.children()) {
      const auto range = values.range(node, key.text, maxPort);
      if (range && once.isFirst({range->low, range->high}, node.location,
                                rangeText(range->low, range->high))) {
         ranges.push_back(*range);
      }
   }
   if (values.findings().count() != before) {
      ranges.clear();
   } else if (ranges.empty()) { // it would stand for any port where it is the only one
      values.findings().add(
            value.location, FindingCode::wrongValue,
            fmt::format("definition '{}' is empty (expected at least one port)", key.text));
   }
}

std::optional<Prefix> Definitions::prefix(const Node& node, std::string_view what, Family family,
                                          const Values& values) const {
   if (prefixes_.empty() || !isName(node)) {
      return values.prefix(node, what, family);
   }
   const auto found = prefixes_.find(node.text);
   if (found == prefixes_.end()) {
      reportUnknown(node, family == Family::ipv4 ? "an IPv4 prefix" : "an IPv6 prefix", what,
                    prefixes_, values);
      return std::nullopt;
   }
   const auto& prefix = found->second;
   if (!prefix || !values.isOfFamily(node, *prefix, family)) {
      return std::nullopt;
   }
   return Prefix{prefix->value, node.location};
}

std::vector<NumberRange> Definitions::ports(const Node& node, std::string_view what,
                                            const Values& values) {
   if (ports_.empty() || !isName(node)) {
      const auto range = values.range(node, what, maxPort);
      return range ? PortRanges{*range} : PortRanges{};
   }
   const auto found = ports_.find(node.text);
   if (found == ports_.end()) {
      reportUnknown(node, fmt::format("a number or range from 0 to {}", maxPort), what, ports_,
                    values);
      return {};
   }
   if (found->second.size() > maxExpanded_ - expanded_) {
      values.findings().add(
            node.location, FindingCode::tooLarge,
            fmt::format("names of definitions stand for more than {} ports", maxExpanded_));
      return {};
   }
   expanded_ += found->second.size();
   PortRanges ranges = found->second;
   for (NumberRange& range : ranges) {
      range.location = node.location;
   }
   return ranges;
}

} // namespace Postcard::Policy::File
