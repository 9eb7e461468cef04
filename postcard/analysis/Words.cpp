#include "postcard/analysis/Words.h"

#include "postcard/packets/Packet.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <optional>
#include <utility>

namespace Postcard::Analysis {

namespace {

// A field of too many values is given up when there are this many blocks: neighbours may still
// merge, but hardly into a few.
constexpr std::size_t mostBlocks = 256;

// Values of an axis from `low` to `high`, both included, as words of 128 bits.
struct Interval {
   AddressWords low;
   AddressWords high;
};

// How many of the high bits a mask has set when no other bit is set, else nothing.
std::optional<int> prefixLength(const AddressWords& mask) {
   const int first = std::countl_one(mask[0]);
   const int length = first == 64 ? 64 + std::countl_one(mask[1]) : first;
   const int ones = std::popcount(mask[0]) + std::popcount(mask[1]);
   return length == ones ? std::optional{length} : std::nullopt;
}

AddressWords after(const AddressWords& words) {
   const U64 low = words[1] + 1;
   return {words[0] + (low == 0 ? 1 : 0), low};
}

// The block as intervals, in ascending order. A bit that may be anything and stands before one that
// is compared doubles their number. Returns false when there are more than `mostBlocks`.
bool addIntervals(AddressBlock block, std::vector<Interval>& intervals) {
   if (prefixLength(block.mask)) {
      intervals.push_back(
            {block.value, {block.value[0] | ~block.mask[0], block.value[1] | ~block.mask[1]}});
      return intervals.size() <= mostBlocks;
   }
   const std::size_t word = block.mask[0] == ~U64{0} ? 1 : 0;
   const U64 probe = std::bit_floor(~block.mask[word]);
   block.mask[word] |= probe;
   if (!addIntervals(block, intervals)) {
      return false;
   }
   block.value[word] |= probe;
   return addIntervals(block, intervals);
}

// The same for several blocks, with neighbours merged. Nothing when there are too many.
std::optional<std::vector<Interval>> intervalsOf(const std::vector<AddressBlock>& blocks) {
   std::vector<Interval> intervals;
   for (const AddressBlock& block : blocks) {
      if (!addIntervals(block, intervals)) {
         return std::nullopt;
      }
   }
   std::ranges::sort(intervals, {}, &Interval::low);
   std::vector<Interval> merged;
   for (const Interval& each : intervals) {
      if (!merged.empty() && after(merged.back().high) == each.low) {
         merged.back().high = each.high;
      } else {
         merged.push_back(each);
      }
   }
   return merged.size() <= mostRanges ? std::optional{std::move(merged)} : std::nullopt;
}

// ---- One field ----

// "LOW-HIGH,…" with every bound as `print` writes it. A value alone has equal texts for both
// bounds, also when the bits below the width of the axis differ.
template <class Print>
std::optional<std::string> rangesText(const std::vector<AddressBlock>& blocks, Print print) {
   const auto intervals = intervalsOf(blocks);
   if (!intervals) {
      return std::nullopt;
   }
   std::string text;
   for (const Interval& each : *intervals) {
      const std::string low = print(each.low);
      const std::string high = print(each.high);
      text += (text.empty() ? "" : ",") + low + (low == high ? "" : "-" + high);
   }
   return text;
}

unsigned numberOf(const AddressWords& words, int width) {
   return static_cast<unsigned>(words[0] >> (64 - width));
}

std::optional<std::string> portsText(const std::vector<AddressBlock>& blocks) {
   return rangesText(blocks,
                     [](const AddressWords& words) { return std::to_string(numberOf(words, 16)); });
}

std::optional<std::string> protocolsText(const std::vector<AddressBlock>& blocks) {
   return rangesText(blocks, [](const AddressWords& words) {
      return Packets::protocolName(static_cast<U8>(numberOf(words, 8)));
   });
}

// "VALUE/MASK,…": fields of bits are compared under masks, which ranges would not show.
std::optional<std::string> bitsText(const std::vector<AddressBlock>& blocks, int width) {
   if (blocks.size() > mostRanges) {
      return std::nullopt;
   }
   std::string text;
   for (const AddressBlock& block : blocks) {
      text += fmt::format("{}{:#x}/{:#x}", text.empty() ? "" : ",", numberOf(block.value, width),
                          numberOf(block.mask, width));
   }
   return text;
}

std::string addressText(const AddressWords& words, Policy::Family family) {
   std::array<U8, 16> bytes{};
   writeAddress(words, bytes);
   return Packets::printAddress(
         std::span{bytes}.first(family == Policy::Family::ipv4 ? std::size_t{4} : bytes.size()));
}

// A prefix where the addresses are one, else ranges.
std::optional<std::string> addressesText(const std::vector<AddressBlock>& blocks,
                                         Policy::Family family) {
   if (blocks.size() == 1) {
      if (const auto length = prefixLength(blocks.front().mask)) {
         return fmt::format("{}/{}", addressText(blocks.front().value, family), *length);
      }
   }
   return rangesText(blocks, [&](const AddressWords& words) { return addressText(words, family); });
}

bool isAnything(const std::vector<AddressBlock>& blocks) {
   return blocks.size() == 1 && blocks.front().mask == AddressWords{};
}

// ---- All fields ----

class Writer {
 public:
   Writer(const PacketSpace& space, Policy::Family family) : space_{space}, family_{family} {}

   std::vector<std::string> write(const PacketSet& set) {
      add(set, 0, {});
      return tooMany_ ? std::vector<std::string>{} : std::move(lines_);
   }

 private:
   static constexpr std::size_t axes = static_cast<std::size_t>(Axis::identification) + 1;
   using Texts = std::array<std::string, axes>;

   // One line for each way through the slices of all axes. Appends the lines of `set`, of which
   // everything before axis number `at` is in `texts`.
   void add(const PacketSet& set, std::size_t at, Texts texts) {
      if (set.empty() || tooMany_) {
         return;
      }
      if (at == axes) {
         tooMany_ = lines_.size() == mostLines;
         lines_.push_back(line(texts));
         return;
      }
      const auto axis = static_cast<Axis>(at);
      const auto slices = space_.slices(set, axis, mostBlocks);
      tooMany_ = !slices || slices->size() > mostLines;
      for (std::size_t i = 0; !tooMany_ && i < slices->size(); ++i) {
         const Slice& slice = (*slices)[i];
         auto text = isAnything(slice.values) ? anythingText(axis) : valuesText(axis, slice.values);
         tooMany_ = !text;
         if (text) {
            texts[at] = std::move(*text);
            add(slice.rest, at + 1, texts);
         }
      }
   }

   static std::optional<std::string> anythingText(Axis axis) {
      const bool isAddress = axis == Axis::source || axis == Axis::destination;
      return isAddress ? "any" : axis == Axis::protocol ? "0-255" : "";
   }

   std::optional<std::string> valuesText(Axis axis, const std::vector<AddressBlock>& values) const {
      switch (axis) {
      case Axis::protocol:
         return protocolsText(values);
      case Axis::source:
      case Axis::destination:
         return addressesText(values, family_);
      case Axis::hasPorts:
         return values.front().value[0] == 0 ? "fragment" : "first";
      case Axis::sourcePort:
      case Axis::destinationPort:
         return portsText(values);
      case Axis::tcpFlags:
         return bitsText(values, 8);
      case Axis::checksum:
      case Axis::identification:
         return bitsText(values, 16);
      }
      return std::nullopt; // no other axis exists
   }

   // That a packet has ports goes without saying where something is asked of what comes with them.
   static std::string line(const Texts& texts) {
      const auto of = [&](Axis axis) { return texts[static_cast<std::size_t>(axis)]; };
      std::string text =
            of(Axis::protocol) + " " + of(Axis::source) + " > " + of(Axis::destination);
      std::string rest;
      for (const auto& [axis, word] : {std::pair{Axis::sourcePort, "sport"},
                                       {Axis::destinationPort, "dport"},
                                       {Axis::tcpFlags, "flags"},
                                       {Axis::checksum, "checksum"}}) {
         rest += of(axis).empty() ? "" : fmt::format(" {} {}", word, of(axis));
      }
      if (of(Axis::hasPorts) == "fragment") {
         text += " fragment";
      } else if (of(Axis::hasPorts) == "first" && rest.empty()) {
         text += " sport 0-65535";
      }
      text += rest;
      return of(Axis::identification).empty() ? text : text + " ip-id " + of(Axis::identification);
   }

   const PacketSpace& space_;
   const Policy::Family family_;
   std::vector<std::string> lines_;
   bool tooMany_ = false;
};

} // namespace

std::vector<std::string> inWords(const PacketSpace& space, const PacketSet& set,
                                 Policy::Family family) {
   return Writer{space, family}.write(set);
}

} // namespace Postcard::Analysis
