#include "postcard/host/RuleOrigin.h"

#include "Classification/ProtocolNumbers.h"
#include "Orlix/RangeMaskGen.h"
#include "postcard/host/RuleNames.h"
#include "postcard/policy/Classes.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <tuple>
#include <vector>

namespace Postcard::Host {

using Classification::protocolTcp;
using Classification::protocolUdp;
using OruPostcardTelemetry::L4PortDataMask;
using OruPostcardTelemetry::PostcardTelemetryAclConfig;
using OruPostcardTelemetry::RuleConfig;
using OruPostcardTelemetry::RuleFilter;

const Policy::Location& RuleOrigin::location() const {
   if (entry != nullptr) {
      return entry->location;
   }
   return match != nullptr ? match->location : which->name.location;
}

namespace {

// One block of a range. Without a range, one that stands for "not compared".
struct Block {
   const Policy::NumberRange* range = nullptr;
   U16 data = 0;
   U16 mask = 0;
};
using Blocks = std::vector<Block>;

// The blocks of all ranges in the order in which the helper makes rules of them: its record sorts
// the ranges by their bounds.
Blocks blocksOf(const std::vector<Policy::NumberRange>& ranges) {
   std::vector<const Policy::NumberRange*> sorted;
   sorted.reserve(ranges.size());
   for (const Policy::NumberRange& range : ranges) {
      sorted.push_back(&range);
   }
   std::ranges::sort(sorted, {}, [](const Policy::NumberRange* range) {
      return std::pair{range->low, range->high};
   });
   Blocks blocks;
   std::vector<Orlix::RangeMaskGen<U16>::Entry> cut;
   for (const Policy::NumberRange* range : sorted) {
      cut.clear();
      Orlix::RangeMaskGen<U16>::run(range->low, range->high, cut);
      for (const auto& block : cut) {
         blocks.push_back({range, block.data, block.mask});
      }
   }
   return blocks;
}

// The record sorts flag matches, too.
std::vector<const Policy::TcpFlagMatch*> sortedFlags(const Policy::ProtocolMatch& match) {
   std::vector<const Policy::TcpFlagMatch*> flags;
   flags.reserve(match.tcpFlags.size());
   for (const Policy::TcpFlagMatch& each : match.tcpFlags) {
      flags.push_back(&each);
   }
   std::ranges::sort(flags, {}, [](const Policy::TcpFlagMatch* each) {
      return std::pair{each->flags, each->mask};
   });
   return flags;
}

// The match of exactly this protocol, or null.
const Policy::ProtocolMatch* matchOf(const Policy::Filter& filter, U8 protocol) {
   const auto found = std::ranges::find_if(filter.protocols, [&](const auto& match) {
      return match.low == protocol && match.high == protocol;
   });
   return found == filter.protocols.end() ? nullptr : &*found;
}

// The helper has refused filters with more than one prefix. A prefix that is not in the filter
// leaves the template's prefix as it was born.
bool prefixAgrees(const Orlix::IpGenPrefix& prefix, const std::vector<Policy::Prefix>& wanted) {
   return wanted.empty() ? prefix == OruPostcardTelemetry::anyPrefix()
                         : prefix == wanted.front().value;
}

bool portsAgree(bool valid, const L4PortDataMask& ports, const Block& block) {
   if (block.range == nullptr) {
      return !valid;
   }
   return valid && ports.l4PortData() == block.data && ports.l4PortMask() == block.mask;
}

bool flagsAgree(const Classification::TcpFlagAndMask& flags, const Policy::TcpFlagMatch* wanted) {
   const U8 mask = flags.tcpFlagMask().value();
   if (wanted == nullptr) {
      return mask == 0;
   }
   return mask == wanted->mask && flags.tcpFlag().value() == wanted->flags;
}

bool sampleAgrees(const Classification::TcpUdpCheckSumOrIpId* sample,
                  const Policy::SampleMatch* wanted) {
   if (sample == nullptr || wanted == nullptr) {
      return (sample == nullptr) == (wanted == nullptr);
   }
   const auto version = wanted->field == Policy::SampleField::ipId
                              ? Classification::sampleVersionIpId
                              : Classification::sampleVersionChecksum;
   return std::tuple{sample->data(), sample->mask(), sample->version()} ==
          std::tuple{U32{wanted->data}, U32{wanted->mask}, version};
}

// Goes through the policy as the helper does, and through the entries beside it.
class Walk {
 public:
   Walk(const CompiledPolicy& compiled, const RuleVisit& visit)
      : compiled_{compiled},
        visit_{visit},
        at_{compiled.acl.ruleByIndex().begin()},
        end_{compiled.acl.ruleByIndex().end()} {}

   void run() {
      for (const Policy::Class* each : Policy::classesInOrder(compiled_.policy, compiled_.family)) {
         which_ = each;
         filter_ = each->filter(compiled_.family);
         sample_ = Policy::sampleOf(*each, compiled_.family);
         walkClass();
      }
      if (at_ != end_) {
         fail("the policy makes no such entry");
      }
   }

 private:
   using Rules =
         std::decay_t<decltype(std::declval<const PostcardTelemetryAclConfig&>().ruleByIndex())>;
   using Iterator = decltype(std::declval<const Rules&>().begin());
   using End = decltype(std::declval<const Rules&>().end());

   void walkClass() {
      const Policy::ProtocolMatch* tcp = matchOf(*filter_, protocolTcp);
      const Policy::ProtocolMatch* udp = matchOf(*filter_, protocolUdp);
      if (tcp != nullptr || udp == nullptr) {
         walkProtocol(protocolTcp, tcp);
      }
      if (udp != nullptr || tcp == nullptr) {
         walkProtocol(protocolUdp, udp);
      }
   }

   void walkProtocol(U8 protocol, const Policy::ProtocolMatch* match) {
      RuleOrigin origin;
      origin.which = which_;
      origin.protocol = protocol;
      origin.match = match;
      flags_ = {nullptr};
      if (match != nullptr && compiled_.tcpFlags && !match->tcpFlags.empty()) {
         flags_ = sortedFlags(*match);
      }
      if (match == nullptr || match->ports.empty()) {
         return walkFlags(origin, {}, {});
      }
      for (const Policy::PortEntry& entry : match->ports) {
         origin.entry = &entry;
         ++origin.entryNumber;
         walkEntry(origin);
      }
   }

   // Each source block is paired with each destination block. An entry without ranges makes no
   // rule.
   void walkEntry(const RuleOrigin& origin) {
      if (origin.entry->source.empty() && origin.entry->destination.empty()) {
         return;
      }
      Blocks sources = blocksOf(origin.entry->source);
      Blocks destinations = blocksOf(origin.entry->destination);
      sources.resize(std::max<std::size_t>(sources.size(), 1));
      destinations.resize(std::max<std::size_t>(destinations.size(), 1));
      for (const Block& source : sources) {
         for (const Block& destination : destinations) {
            walkFlags(origin, source, destination);
         }
      }
   }

   void walkFlags(RuleOrigin origin, const Block& source, const Block& destination) {
      origin.source = source.range;
      origin.destination = destination.range;
      for (const Policy::TcpFlagMatch* flags : flags_) {
         origin.flags = flags;
         meet(origin, source, destination);
      }
   }

   // `origin` is that of the next entry.
   void meet(const RuleOrigin& origin, const Block& source, const Block& destination) {
      if (at_ == end_) {
         throw OriginError{fmt::format("{}: entry {} is missing: class '{}', {}",
                                       compiled_.acl.aclConfigKey().view(), index_,
                                       which_->name.text, text(origin))};
      }
      const auto& entry = *at_;
      const RuleConfig& rule = *entry.value();
      // A gap in the indexes would shift all origins behind it without any field that disagrees.
      if (entry.key() != index_ || !ofClass(rule) || rule.ruleFilter() == nullptr ||
          !agrees(*rule.ruleFilter(), origin, source, destination)) {
         fail(fmt::format("it was to come from class '{}', {}", which_->name.text, text(origin)));
      }
      visit_(index_, rule, origin);
      ++at_;
      ++index_;
   }

   bool ofClass(const RuleConfig& rule) const {
      return classOfRule(rule.name().view(), compiled_.family) == which_->name.text;
   }

   bool agrees(const RuleFilter& filter, const RuleOrigin& origin, const Block& source,
               const Block& destination) const {
      return filter.proto().value() == origin.protocol &&
             prefixAgrees(filter.source(), filter_->source) &&
             prefixAgrees(filter.destination(), filter_->destination) &&
             portsAgree(filter.sportDataMaskValid(), filter.sportDataMask(), source) &&
             portsAgree(filter.dportDataMaskValid(), filter.dportDataMask(), destination) &&
             flagsAgree(filter.tcpFlagAndMask(), origin.flags) &&
             sampleAgrees(filter.sampleDataAndMask().get(), sample_);
   }

   [[noreturn]] void fail(const std::string& why) const {
      const auto& entry = *at_;
      throw OriginError{fmt::format(
            "{}: the rule '{}' at index {} is not what the policy makes: {}",
            compiled_.acl.aclConfigKey().view(), entry.value()->name().view(), entry.key(), why)};
   }

   const CompiledPolicy compiled_;
   const RuleVisit& visit_;
   Iterator at_; // the next entry
   const End end_;
   U32 index_ = 0; // that the next entry must have
   const Policy::Class* which_ = nullptr;
   const Policy::Filter* filter_ = nullptr;         // of `which_`
   const Policy::SampleMatch* sample_ = nullptr;    // of `which_`; null: its rules have none
   std::vector<const Policy::TcpFlagMatch*> flags_; // of the protocol; one null: none are compared
};

std::string rangeText(const char* side, const Policy::NumberRange* range) {
   if (range == nullptr) {
      return {};
   }
   return range->low == range->high ? fmt::format(" {} {}", side, range->low)
                                    : fmt::format(" {} {}-{}", side, range->low, range->high);
}

} // namespace

void forEachRule(const CompiledPolicy& compiled, const RuleVisit& visit) {
   Walk{compiled, visit}.run();
}

std::string text(const RuleOrigin& origin) {
   const Policy::Location& place = origin.location();
   std::string text = fmt::format("from {}:{}", place.line, place.column);
   if (origin.entry != nullptr) {
      text += fmt::format(" entry {}", origin.entryNumber);
   }
   text += rangeText("sport", origin.source) + rangeText("dport", origin.destination);
   if (origin.flags != nullptr) {
      text += fmt::format(" flags {:#x}/{:#x}", origin.flags->flags, origin.flags->mask);
   }
   return text;
}

} // namespace Postcard::Host
