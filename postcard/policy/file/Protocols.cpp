#include "postcard/policy/file/Protocols.h"

#include <fmt/format.h>

#include <limits>
#include <utility>

namespace Postcard::Policy::File {

namespace {

constexpr U16 maxByte = std::numeric_limits<U8>::max();

// Reads one list of protocols. A function that returns an optional has added a finding when it
// returns nothing.
class ProtocolReader {
 public:
   ProtocolReader(bool severalPortEntries, Definitions& definitions, const Values& values)
      : severalPortEntries_{severalPortEntries}, definitions_{definitions}, values_{values} {}

   void read(std::vector<ProtocolMatch>& target, const Fields& fields) const {
      // The record has one entry for each range of protocols, so the ports and flags of a
      // repetition would be added to those of the first.
      Once<std::pair<U8, U8>> once{"protocol", findings()};
      readList(target, fields, "protocols", values_,
               [&](const Node& node) -> std::optional<ProtocolMatch> {
                  auto match = readProtocol(node);
                  if (match && !once.isFirst({match->low, match->high}, match->location,
                                             rangeText(match->low, match->high))) {
                     return std::nullopt;
                  }
                  return match;
               });
   }

 private:
   Findings& findings() const { return values_.findings(); }

   void readName(std::optional<Name>& target, const Fields& fields, std::string_view key) const {
      readInto(target, fields, key, [this](const Node& node, std::string_view what) {
         return values_.name(node, what);
      });
   }

   // Reads the whole entry even when its protocol is wrong, so that the user sees all findings at
   // once.
   std::optional<ProtocolMatch> readProtocol(const Node& node) const {
      const Fields fields{node, Shape::protocol, values_};
      ProtocolMatch match;
      std::optional<NumberRange> range;
      readInto(range, fields, "protocol",
               [this](const Node& value, std::string_view) { return readProtocolRange(value); });
      readList(match.ports, fields, "ports", values_,
               [this](const Node& entry) { return readPortEntry(entry); });
      checkPortEntries(match, fields);
      readTcpFlags(match.tcpFlags, fields);
      readIcmpTypes(match.icmpTypes, fields);
      if (!range) {
         return std::nullopt;
      }
      match.low = static_cast<U8>(range->low);
      match.high = static_cast<U8>(range->high);
      match.location = range->location;
      return match;
   }

   // Reads a word, a number or a range. A text that begins with a digit is taken for a number that
   // is wrong, anything else for an unknown word, so that the message fits the mistake.
   std::optional<NumberRange> readProtocolRange(const Node& node) const {
      if (const Classification::NamedNumber* row = findWord(protocolWords(), node.text)) {
         return NumberRange{row->number, row->number, node.location};
      }
      const bool mayBeNumber = node.text.find_first_of("0123456789") == 0;
      if (!node.isScalar() || node.isNull() || mayBeNumber) {
         return values_.range(node, "protocol", maxByte);
      }
      auto words = wordsOf(protocolWords());
      words.push_back("a number from 0 to 255");
      words.push_back("a range such as 6-17");
      findings().add(node.location, FindingCode::unknownWord,
                     unknownWord("protocol", node.text, words));
      return std::nullopt;
   }

   std::optional<PortEntry> readPortEntry(const Node& node) const {
      const Fields fields{node, Shape::portEntry, values_};
      PortEntry entry;
      entry.location = node.location;
      readPorts(entry.source, fields, "source");
      readPorts(entry.destination, fields, "destination");
      readName(entry.sourceSet, fields, "source-set");
      readName(entry.destinationSet, fields, "destination-set");
      return entry;
   }

   // Not with `readList`, because the name of a definition stands for several ranges.
   void readPorts(std::vector<NumberRange>& target, const Fields& fields,
                  std::string_view key) const {
      const Node* list = fields.value(key);
      if (list == nullptr || !values_.isList(*list, key)) {
         return;
      }
      // The record keeps a range once, so a repetition can only be a mistake.
      Once<std::pair<U16, U16>> once{"port range", findings()};
      target.reserve(list->childCount());
      for (const Node& node : list->children()) {
         for (const NumberRange& range : definitions_.ports(node, key, values_)) {
            if (once.isFirst({range.low, range.high}, node.location,
                             rangeText(range.low, range.high))) {
               target.push_back(range);
            }
         }
      }
   }

   // The helper asserts that there is at most one port entry while the toggle is off. The key
   // `ports` is there, because entries have been read.
   void checkPortEntries(const ProtocolMatch& match, const Fields& fields) const {
      if (match.ports.size() > 1 && !severalPortEntries_) {
         findings().add(
               fields.value("ports")->location, FindingCode::portEntries,
               fmt::format("{} port entries while the toggle "
                           "FeaturePostcardTelemetryTcpControl is off (expected at most 1)",
                           match.ports.size()));
      }
   }

   void readTcpFlags(std::vector<TcpFlagMatch>& target, const Fields& fields) const {
      Once<std::pair<U8, U8>> once{"TCP-flag match", findings()};
      readList(target, fields, "tcp-flags", values_,
               [&](const Node& node) -> std::optional<TcpFlagMatch> {
                  auto match = readTcpFlagMatch(node);
                  if (match &&
                      !once.isFirst({match->flags, match->mask}, node.location,
                                    fmt::format("{:#x} under {:#x}", match->flags, match->mask))) {
                     return std::nullopt;
                  }
                  return match;
               });
   }

   std::optional<TcpFlagMatch> readTcpFlagMatch(const Node& node) const {
      const Fields fields{node, Shape::tcpFlags, values_};
      std::optional<U8> flags;
      std::optional<U8> mask;
      readInto(flags, fields, "flags",
               [this](const Node& value, std::string_view what) { return flagBits(value, what); });
      readInto(mask, fields, "mask",
               [this](const Node& value, std::string_view what) { return flagBits(value, what); });
      if (mask && *mask == 0) { // the helper ends the process for such a mask
         findings().add(fields.value("mask")->location, FindingCode::emptyMask,
                        "mask of a TCP-flag match is empty (expected at least one flag)");
         return std::nullopt;
      }
      if (!flags || !mask || !values_.fitsMask(*fields.value("flags"), "flags", *flags, *mask)) {
         return std::nullopt;
      }
      return TcpFlagMatch{*flags, *mask, node.location};
   }

   // Reads a list of flag names or one number. Reads all names even when one is wrong, so that the
   // user sees all findings at once.
   std::optional<U8> flagBits(const Node& node, std::string_view what) const {
      if (node.kind != NodeKind::sequence) {
         const auto number = node.kind == NodeKind::plain ? parseNumber(node.text) : std::nullopt;
         if (!number || *number > maxByte) {
            values_.mismatch(node, "a list of TCP flags or a number from 0 to 255", what);
            return std::nullopt;
         }
         return static_cast<U8>(*number);
      }
      Once<U8> once{"TCP flag", findings()};
      unsigned int bits = 0;
      bool good = true;
      for (const Node& child : node.children()) {
         const Classification::NamedNumber* row =
               readWord(child, tcpFlagWords(), "TCP flag", values_);
         good = row != nullptr && once.isFirst(row->number, child.location, row->word) && good;
         bits |= row != nullptr ? row->number : 0U;
      }
      return good ? std::optional{static_cast<U8>(bits)} : std::nullopt;
   }

   void readIcmpTypes(std::vector<IcmpType>& target, const Fields& fields) const {
      Once<U64> once{"ICMP type", findings()};
      readList(target, fields, "icmp-types", values_,
               [&](const Node& node) -> std::optional<IcmpType> {
                  const auto type = values_.number(node, "icmp-types", 0, maxByte);
                  if (!type || !once.isFirst(*type, node.location, fmt::format("{}", *type))) {
                     return std::nullopt;
                  }
                  return IcmpType{static_cast<U8>(*type), node.location};
               });
   }

   bool severalPortEntries_;
   Definitions& definitions_;
   const Values& values_;
};

} // namespace

void readProtocols(std::vector<ProtocolMatch>& target, const Fields& filter,
                   bool severalPortEntries, Definitions& definitions, const Values& values) {
   ProtocolReader{severalPortEntries, definitions, values}.read(target, filter);
}

} // namespace Postcard::Policy::File
