// `addRulesPortField`, `addRulesL4PortDataMask` and `addRulesTcpFlagField`: rules for layer-4 ports
// and TCP flags. Operators write ranges of ports, hardware matches a value under a mask. Each range
// is cut into aligned blocks; each block, or each pair of a source and a destination block, becomes
// a rule; and where TCP flags count, each such rule becomes one rule for each flag match. Relies on
// `Orlix/RangeMaskGen.h`.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/PortExpansion.h"

#include "Orlix/RangeMaskGen.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Contract.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/FilterCheck.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Helper.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TraceSource.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace OruPostcardTelemetry {

using HelperTrace::traceSource;

namespace {

using Blocks = std::vector<Orlix::RangeMaskGen<U16>::Entry>;

// Returns the blocks of all ranges, range by range. Ranges are not merged, so blocks of overlapping
// ranges overlap. Bounds must be at most 65535, for which the producers of filters answer.
Blocks blocksOf(const Kiv::RbTreeSet<Classification::NumericalRange>& ranges) {
   Blocks blocks;
   for (const auto& range : ranges) {
      Orlix::RangeMaskGen<U16>::run(static_cast<U16>(range.low()), static_cast<U16>(range.high()),
                                    blocks);
   }
   return blocks;
}

L4PortDataMask portMatch(const Orlix::RangeMaskGen<U16>::Entry& block) {
   return {block.data, block.mask};
}

// A 16-bit number as decimal text. Made without a formatter, because a rule's name has up to six
// numbers and an ACL may have very many rules.
class Decimal {
 public:
   explicit Decimal(U16 number) {
      end_ = std::to_chars(digits_.data(), digits_.data() + digits_.size(), number).ptr;
   }
   std::string_view view() const {
      return {digits_.data(), static_cast<std::size_t>(end_ - digits_.data())};
   }

 private:
   std::array<char, 5> digits_;
   char* end_;
};

std::size_t ruleCount(const Classification::ProtoField& field, bool tcpFlags) {
   const std::size_t flags = tcpFlags && field.tcpFlags() != 0 ? field.tcpFlags() : 1;
   if (field.ports() == 0) {
      return flags;
   }
   std::size_t pairs = 0;
   for (const auto& entry : field.port()) {
      const std::size_t sources = blocksOf(entry->sport()).size();
      const std::size_t destinations = blocksOf(entry->dport()).size();
      pairs += std::max<std::size_t>(sources, 1) * std::max<std::size_t>(destinations, 1);
   }
   return pairs * flags;
}

// Traces a name that has grown by one part.
void ruleNameL4Port(const Ringlog::ContinuedText& name) {
   RINGLOG_TRACE(5, "Rule Name : {}", name);
}

Kiv::String tcpFlagRuleName(const Pello::String& name,
                            const Classification::TcpFlagAndMask& match) {
   return Kiv::String::join({name, "-", "tcpFlag-", Decimal{match.tcpFlag().value()}.view(),
                             "-tcpFlagMask-", Decimal{match.tcpFlagMask().value()}.view()});
}

// The destination parts of all blocks.
std::vector<PortPart> destinationParts(const Blocks& blocks) {
   std::vector<PortPart> parts;
   parts.reserve(blocks.size());
   for (const auto& block : blocks) {
      parts.push_back(destinationPart(portMatch(block)));
   }
   return parts;
}

// Sets a pointer for the life of this object.
class Using {
 public:
   Using(PortNames*& place, PortNames* names) : place_{place}, before_{place} { place_ = names; }
   Using(const Using&) = delete;
   Using& operator=(const Using&) = delete;
   ~Using() { place_ = before_; }

 private:
   PortNames*& place_;
   PortNames* before_;
};

} // namespace

std::size_t ruleCount(const Classification::StructuredFilter& filter, bool tcpFlags) {
   std::size_t count = 0;
   std::size_t fields = 0;
   for (const U8 protocol : {protocolTcp, protocolUdp}) {
      if (const auto field = filter.protoField(singleProtocol(protocol)); field != nullptr) {
         count += ruleCount(*field, tcpFlags);
         ++fields;
      }
   }
   return fields == 0 ? 2 : count;
}

PortPart::PortPart(L4PortDataMask match, std::string_view dataLabel, std::string_view maskLabel)
   : match_{match} {
   append(dataLabel, match.l4PortData());
   dataSize_ = size_;
   append(maskLabel, match.l4PortMask());
}

void PortPart::append(std::string_view label, U16 number) {
   char* end = std::ranges::copy(label, characters_.data() + size_).out;
   end = std::to_chars(end, characters_.data() + characters_.size(), number).ptr;
   size_ = static_cast<U8>(end - characters_.data());
}

PortPart sourcePart(L4PortDataMask match) {
   return {match, "-SportData-", "-SportMask-"};
}

PortPart destinationPart(L4PortDataMask match) {
   return {match, "-DportData-", "-DportMask-"};
}

void PortNames::beginIs(const Pello::String& templateName, bool valid, L4PortDataMask source) {
   const bool sameTemplate = templateName_ == templateName;
   if (sameTemplate && valid == source_.valid() && (!valid || source == source_.match())) {
      return;
   }
   if (!sameTemplate) {
      templateName_ = templateName;
      templateMark_ = {};
   }
   expected_ = {};
   source_ = valid ? sourcePart(source) : PortPart{};
   begin_ = templateName_.view();
   begin_ += source_.text();
   sourceDataMark_ = {};
   beginMark_ = {};
}

// Expected names that an override of the virtual operation has passed over are skipped.
void PortNames::endIs(bool valid, L4PortDataMask destination) {
   const auto found = std::ranges::find_if(
         expected_, [&](const PortPart& part) { return valid && part.match() == destination; });
   ready_ = found != expected_.end();
   if (ready_) {
      expected_ = {found, expected_.end()};
      end_ = &expected_.front();
   } else {
      madeEnd_ = valid ? destinationPart(destination) : PortPart{};
      end_ = &madeEnd_;
   }
}

void PortNames::expect(std::span<const PortPart> destinations,
                       const PostcardTelemetryAclConfig& aclConfig) {
   expected_ = destinations.first(std::min(destinations.size(), mostExpected));
   auto name = names_.end() - static_cast<std::ptrdiff_t>(expected_.size());
   for (const PortPart& part : expected_) {
      name->text = Kiv::String::join({begin_, part.text()});
      name->hash = aclConfig.ruleByNameExpect(name->text);
      ++name;
   }
}

PortNames::Name PortNames::name() {
   if (!ready_) {
      return {Kiv::String::join({begin_, end_->text()}), std::nullopt};
   }
   ready_ = false;
   const std::size_t left = expected_.size();
   expected_ = expected_.subspan(1);
   return std::move(names_[names_.size() - left]);
}

Ringlog::ContinuedText PortNames::templateText() {
   return {templateName_, templateName_.size(), templateMark_, templateMark_};
}

// The beginning is mostly that of the rule before, whose traces stand in the ring already: then
// `sourceDataMark_` and `beginMark_` are set, and a reference says all. Before, the texts continue
// the template's name.
void PortNames::traceSteps(const Kiv::String& name) {
   const std::string_view text = name.view();
   const Ringlog::TextMark* begin = &templateMark_;
   if (source_.valid()) {
      const std::size_t data = templateName_.size() + source_.dataText().size();
      ruleNameL4Port({text.substr(0, data), data, sourceDataMark_, sourceDataMark_});
      ruleNameL4Port({text.substr(0, begin_.size()), begin_.size(), beginMark_, beginMark_});
      begin = &beginMark_;
   }
   nameMark_ = *begin;
   if (end_->valid()) {
      const std::size_t data = begin_.size() + end_->dataText().size();
      ruleNameL4Port({text.substr(0, data), begin_.size(), *begin, nameMark_});
      ruleNameL4Port({text, data, nameMark_, nameMark_});
   }
}

Ringlog::ContinuedText PortNames::nameText(const Kiv::String& name) {
   return {name, name.size(), nameMark_, nameMark_};
}

// The exact type is part of the interface: users take this function's address.
Kiv::String ruleNameL4Port(Pello::String name, Pello::String label, L4Port port) {
   Kiv::String result = Kiv::String::join({name, "-", label, "-", Decimal{port.value()}.view()});
   Ringlog::TextMark mark;
   ruleNameL4Port({result, 0, mark, mark});
   return result;
}

U32 OruPostcardPolicyAclHelper::addRulesPortField(const ProtoFieldPtr& protoField,
                                                  const RulePtr& ruleConfig,
                                                  const AclConfigPtr& aclConfig,
                                                  bool expandTcpFlags, U32 nextRuleIndex) {
   RINGLOG_ENTRY();
   for (const auto& entry : protoField->port()) {
      nextRuleIndex = addRulesPortEntry(*entry.value(), protoField, ruleConfig, aclConfig,
                                        expandTcpFlags, nextRuleIndex);
   }
   return nextRuleIndex;
}

U32 OruPostcardPolicyAclHelper::addRulesPortEntry(const Classification::PortField& entry,
                                                  const ProtoFieldPtr& protoField,
                                                  const RulePtr& ruleConfig,
                                                  const AclConfigPtr& aclConfig,
                                                  bool expandTcpFlags, U32 nextRuleIndex) {
   RINGLOG_TRACE_OF("addRulesPortField", 5,
                    "Structured Filter with Proto fields, Sports : {}, Dports : {}", entry.sports(),
                    entry.dports());
   const Blocks srcVect = blocksOf(entry.sport());
   const Blocks dstVect = blocksOf(entry.dport());
   RINGLOG_TRACE_OF("addRulesPortField", 5, "srcVect.size() : {} dstVect.size() : {}",
                    srcVect.size(), dstVect.size());
   PortNames names;
   const Using scope{portNames_, &names};
   const std::vector<PortPart> dstParts = destinationParts(dstVect);
   const auto addRule = [&](bool sportValid, L4PortDataMask sport, bool dportValid,
                            L4PortDataMask dport) {
      nextRuleIndex = addRulesL4PortDataMask(protoField, ruleConfig, aclConfig, sportValid, sport,
                                             dportValid, dport, expandTcpFlags, nextRuleIndex);
   };
   const auto addRulesOfSource = [&](bool sportValid, L4PortDataMask sport,
                                     const auto& traceDport) {
      names.beginIs(ruleConfig->name(), sportValid, sport);
      for (std::span<const PortPart> left{dstParts}; !left.empty();) {
         const auto next = left.first(std::min(left.size(), PortNames::mostExpected));
         left = left.subspan(next.size());
         const Ringlog::SharedMoment moment;
         names.expect(next, *aclConfig);
         for (const PortPart& part : next) {
            traceDport(part.match());
            addRule(sportValid, sport, true, part.match());
         }
      }
   };
   // An entry without any range makes no rule: neither loop runs.
   if (srcVect.empty()) {
      addRulesOfSource(false, {}, [](const L4PortDataMask& dport) {
         RINGLOG_TRACE_OF("addRulesPortField", 5, "Only Dport Data : 0x{:x}, Mask : 0x{:x}",
                          dport.l4PortData(), dport.l4PortMask());
      });
   }
   for (const auto& src : srcVect) {
      RINGLOG_TRACE_OF("addRulesPortField", 5, "Sport Data : 0x{:x}, Mask : 0x{:x}", src.data,
                       src.mask);
      if (dstVect.empty()) {
         addRule(true, portMatch(src), false, {});
      }
      addRulesOfSource(true, portMatch(src), [](const L4PortDataMask& dport) {
         RINGLOG_TRACE_OF("addRulesPortField", 5, "Dport Data : 0x{:x}, Mask : 0x{:x}",
                          dport.l4PortData(), dport.l4PortMask());
      });
   }
   return nextRuleIndex;
}

U32 OruPostcardPolicyAclHelper::addRulesL4PortDataMask(
      const ProtoFieldPtr& protoField, const RulePtr& ruleConfig, const AclConfigPtr& aclConfig,
      bool sportDataMaskValid, L4PortDataMask sportDataMask, bool dportDataMaskValid,
      L4PortDataMask dportDataMask, bool tcpFlagAvailable, U32 nextRuleIndex) {
   if (portNames_ == nullptr) [[unlikely]] {
      return addLoneRule(protoField, ruleConfig, aclConfig, sportDataMaskValid, sportDataMask,
                         dportDataMaskValid, dportDataMask, tcpFlagAvailable, nextRuleIndex);
   }
   PortNames& names = *portNames_;
   // The traces of one rule, about ten, share one time stamp: reading the clock is most of their
   // cost.
   const Ringlog::SharedMoment moment;
   names.beginIs(ruleConfig->name(), sportDataMaskValid, sportDataMask);
   names.endIs(dportDataMaskValid, dportDataMask);
   RINGLOG_TRACE(9,
                 "Rule Name : {}, Sport Valid : {}, Sport : 0x{:x}, Dport Valid : {}, "
                 "Dport : 0x{:x}, NextRuleIndex : {}",
                 names.templateText(), sportDataMaskValid, sportDataMask.l4PortData(),
                 dportDataMaskValid, dportDataMask.l4PortData(), nextRuleIndex);
   const auto [name, hash] = names.name();
   names.traceSteps(name);
   RINGLOG_TRACE(5, "Creating additional ruleConfig : {}", names.nameText(name));
   const RulePtr newRule =
         hash ? aclConfig->ruleByNameIs(name, *hash) : aclConfig->ruleByNameIs(name);
   newRule->copy(*ruleConfig);
   RuleFilter& filter = *newRule->ruleFilter();
   if (sportDataMaskValid) {
      filter.sportDataMaskValidIs(true);
      filter.sportDataMaskIs(sportDataMask);
   }
   if (dportDataMaskValid) {
      filter.dportDataMaskValidIs(true);
      filter.dportDataMaskIs(dportDataMask);
   }
   aclConfig->ruleByIndexIs(nextRuleIndex, newRule);
   if (!tcpFlagAvailable) {
      return nextRuleIndex + 1;
   }
   // The first rule with TCP flags replaces this rule at its index, and this rule's name is
   // removed.
   return addRulesTcpFlagField(protoField, aclConfig->ruleByIndex(nextRuleIndex), aclConfig,
                               nextRuleIndex);
}

// A function of its own, because preparing a `PortNames` takes as long as a tenth of a rule.
U32 OruPostcardPolicyAclHelper::addLoneRule(const ProtoFieldPtr& protoField,
                                            const RulePtr& ruleConfig,
                                            const AclConfigPtr& aclConfig, bool sportDataMaskValid,
                                            L4PortDataMask sportDataMask, bool dportDataMaskValid,
                                            L4PortDataMask dportDataMask, bool tcpFlagAvailable,
                                            U32 nextRuleIndex) {
   PortNames names;
   const Using scope{portNames_, &names};
   return OruPostcardPolicyAclHelper::addRulesL4PortDataMask(
         protoField, ruleConfig, aclConfig, sportDataMaskValid, sportDataMask, dportDataMaskValid,
         dportDataMask, tcpFlagAvailable, nextRuleIndex);
}

U32 OruPostcardPolicyAclHelper::addRulesTcpFlagField(const ProtoFieldPtr& protoField,
                                                     const RulePtr& ruleConfig,
                                                     const AclConfigPtr& aclConfig,
                                                     U32 nextRuleIndex) {
   const Pello::String templateName = ruleConfig->name();
   Ringlog::TextMark templateMark;
   const Ringlog::ContinuedText templateText{templateName, templateName.size(), templateMark,
                                             templateMark};
   RINGLOG_TRACE(9, "Rule Name : {}, NextRuleIndex : {}", templateText, nextRuleIndex);
   for (const Classification::TcpFlagAndMask& match : protoField->tcpFlag()) {
      if (match.tcpFlagMask().value() == 0) {
         contractBroken(FunctionText::addRulesTcpFlagField, "flagIter.key().tcpFlagMask().value()");
      }
      const Kiv::String name = tcpFlagRuleName(templateName, match);
      Ringlog::TextMark mark;
      RINGLOG_TRACE(9, "Creating addtional ruleConfig: {} for tcpFlag {} tcpMask {}",
                    (Ringlog::ContinuedText{name, templateName.size(), templateMark, mark}),
                    match.tcpFlag().value(), match.tcpFlagMask().value());
      const RulePtr newRule = aclConfig->ruleByNameIs(name);
      newRule->copy(*ruleConfig);
      newRule->ruleFilter()->tcpFlagAndMaskIs(match);
      aclConfig->ruleByIndexIs(nextRuleIndex, newRule);
      ++nextRuleIndex;
   }
   RINGLOG_TRACE(5, "Deleting Rule : {}", templateText);
   aclConfig->ruleByNameDel(templateName);
   return nextRuleIndex;
}

} // namespace OruPostcardTelemetry
