// `addRulesPortField`: hardware matches ports by value and mask, operators write ranges. Every
// range is cut into aligned blocks, and every block, or pair of a source and a destination block,
// becomes a rule; with TCP flags, every flag match of it does.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/PortExpansion.h"

#include "Orlix/RangeMaskGen.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Contract.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Helper.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TraceSource.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <vector>

namespace OruPostcardTelemetry {

namespace {

using Blocks = std::vector<Orlix::RangeMaskGen<U16>::Entry>;

// The blocks of all ranges one after another. Ranges that overlap give blocks that do. No bound may
// be above 65535; whoever makes a filter sees to it.
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

// A number of up to five digits as text, without a trip through a formatter.
class Decimal {
 public:
   explicit Decimal(U16 number) {
      end_ = std::to_chars(digits_, digits_ + sizeof digits_, number).ptr;
   }
   std::string_view view() const { return {digits_, static_cast<std::size_t>(end_ - digits_)}; }

 private:
   char digits_[5];
   char* end_;
};

// A rule's name while it grows part by part, each state of it traced; a string of its own for every
// state would cost more than the rule.
class GrowingName {
 public:
   explicit GrowingName(std::string_view base) { append(base); }

   void append(std::string_view text) {
      characters_.append(text.data(), text.data() + text.size());
   }
   std::string_view view() const { return {characters_.data(), characters_.size()}; }

 private:
   fmt::basic_memory_buffer<char, 256> characters_;
};

void ruleNameL4Port(GrowingName& name, std::string_view label, L4Port port) {
   name.append("-");
   name.append(label);
   name.append("-");
   name.append(Decimal{port.value()}.view());
   RINGLOG_TRACE(5, "Rule Name : {}", name.view());
}

Kiv::String tcpFlagRuleName(const Pello::String& name,
                            const Classification::TcpFlagAndMask& match) {
   return Kiv::String::join({name, "-", "tcpFlag-", Decimal{match.tcpFlag().value()}.view(),
                             "-tcpFlagMask-", Decimal{match.tcpFlagMask().value()}.view()});
}

} // namespace

Kiv::String ruleNameL4Port(const Pello::String& name, std::string_view label, L4Port port) {
   GrowingName result{name};
   ruleNameL4Port(result, label, port);
   return result.view();
}

U32 OruPostcardPolicyAclHelper::addRulesPortField(const ProtoField& protoField,
                                                  const Rule& ruleConfig,
                                                  const AclConfig& aclConfig, bool expandTcpFlags,
                                                  U32 nextRuleIndex) {
   RINGLOG_ENTRY();
   for (const auto& entry : protoField->port()) {
      nextRuleIndex = addRulesPortEntry(*entry.value(), protoField, ruleConfig, aclConfig,
                                        expandTcpFlags, nextRuleIndex);
   }
   return nextRuleIndex;
}

U32 OruPostcardPolicyAclHelper::addRulesPortEntry(const Classification::PortField& entry,
                                                  const ProtoField& protoField,
                                                  const Rule& ruleConfig,
                                                  const AclConfig& aclConfig, bool expandTcpFlags,
                                                  U32 nextRuleIndex) {
   RINGLOG_TRACE_OF("addRulesPortField", 5,
                    "Structured Filter with Proto fields, Sports : {}, Dports : {}", entry.sports(),
                    entry.dports());
   const Blocks srcVect = blocksOf(entry.sport());
   const Blocks dstVect = blocksOf(entry.dport());
   RINGLOG_TRACE_OF("addRulesPortField", 5, "srcVect.size() : {} dstVect.size() : {}",
                    srcVect.size(), dstVect.size());
   const std::size_t pairs =
         std::max<std::size_t>(srcVect.size(), 1) * std::max<std::size_t>(dstVect.size(), 1);
   aclConfig->ruleByNameReserve(aclConfig->ruleByNames() + pairs);
   const auto addRule = [&](bool sportValid, L4PortDataMask sport, bool dportValid,
                            L4PortDataMask dport) {
      nextRuleIndex = addRulesL4PortDataMask(protoField, ruleConfig, aclConfig, sportValid, sport,
                                             dportValid, dport, expandTcpFlags, nextRuleIndex);
   };
   if (srcVect.empty()) {
      for (const auto& dst : dstVect) {
         RINGLOG_TRACE_OF("addRulesPortField", 5, "Only Dport Data : 0x{:x}, Mask : 0x{:x}",
                          dst.data, dst.mask);
         addRule(false, {}, true, portMatch(dst));
      }
   }
   for (const auto& src : srcVect) {
      RINGLOG_TRACE_OF("addRulesPortField", 5, "Sport Data : 0x{:x}, Mask : 0x{:x}", src.data,
                       src.mask);
      if (dstVect.empty()) {
         addRule(true, portMatch(src), false, {});
      }
      for (const auto& dst : dstVect) {
         RINGLOG_TRACE_OF("addRulesPortField", 5, "Dport Data : 0x{:x}, Mask : 0x{:x}", dst.data,
                          dst.mask);
         addRule(true, portMatch(src), true, portMatch(dst));
      }
   }
   return nextRuleIndex;
}

U32 OruPostcardPolicyAclHelper::addRulesL4PortDataMask(
      const ProtoField& protoField, const Rule& ruleConfig, const AclConfig& aclConfig,
      bool sportDataMaskValid, L4PortDataMask sportDataMask, bool dportDataMaskValid,
      L4PortDataMask dportDataMask, bool tcpFlagAvailable, U32 nextRuleIndex) {
   const Ringlog::SharedMoment moment; // ten traces per rule
   RINGLOG_TRACE(9,
                 "Rule Name : {}, Sport Valid : {}, Sport : 0x{:x}, Dport Valid : {}, "
                 "Dport : 0x{:x}, NextRuleIndex : {}",
                 ruleConfig->name(), sportDataMaskValid, sportDataMask.l4PortData(),
                 dportDataMaskValid, dportDataMask.l4PortData(), nextRuleIndex);
   GrowingName growing{ruleConfig->name()};
   if (sportDataMaskValid) {
      ruleNameL4Port(growing, "SportData", L4Port{sportDataMask.l4PortData()});
      ruleNameL4Port(growing, "SportMask", L4Port{sportDataMask.l4PortMask()});
   }
   if (dportDataMaskValid) {
      ruleNameL4Port(growing, "DportData", L4Port{dportDataMask.l4PortData()});
      ruleNameL4Port(growing, "DportMask", L4Port{dportDataMask.l4PortMask()});
   }
   const Kiv::String name = growing.view();
   RINGLOG_TRACE(5, "Creating additional ruleConfig : {}", name);
   const Rule newRule = aclConfig->ruleByNameIs(name);
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
   // The first flag rule takes this rule's index.
   return addRulesTcpFlagField(protoField, aclConfig->ruleByIndex(nextRuleIndex), aclConfig,
                               nextRuleIndex);
}

U32 OruPostcardPolicyAclHelper::addRulesTcpFlagField(const ProtoField& protoField,
                                                     const Rule& ruleConfig,
                                                     const AclConfig& aclConfig,
                                                     U32 nextRuleIndex) {
   RINGLOG_TRACE(9, "Rule Name : {}, NextRuleIndex : {}", ruleConfig->name(), nextRuleIndex);
   for (const Classification::TcpFlagAndMask& match : protoField->tcpFlag()) {
      if (match.tcpFlagMask().value() == 0) {
         contractBroken(FunctionText::addRulesTcpFlagField, "flagIter.key().tcpFlagMask().value()");
      }
      const Kiv::String name = tcpFlagRuleName(ruleConfig->name(), match);
      RINGLOG_TRACE(9, "Creating addtional ruleConfig: {} for tcpFlag {} tcpMask {}", name,
                    match.tcpFlag().value(), match.tcpFlagMask().value());
      const Rule newRule = aclConfig->ruleByNameIs(name);
      newRule->copy(*ruleConfig);
      newRule->ruleFilter()->tcpFlagAndMaskIs(match);
      aclConfig->ruleByIndexIs(nextRuleIndex, newRule);
      ++nextRuleIndex;
   }
   RINGLOG_TRACE(5, "Deleting Rule : {}", ruleConfig->name());
   aclConfig->ruleByNameDel(ruleConfig->name());
   return nextRuleIndex;
}

} // namespace OruPostcardTelemetry
