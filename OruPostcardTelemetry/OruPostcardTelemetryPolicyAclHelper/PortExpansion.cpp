// `addRulesPortField`, `addRulesL4PortDataMask` and `addRulesTcpFlagField`: rules for layer-4 ports
// and TCP flags. Operators write ranges of ports, hardware matches a value under a mask. Each range
// is cut into aligned blocks; each block, or each pair of a source and a destination block, becomes
// a rule; and where TCP flags count, each such rule becomes one rule for each flag match. Relies on
// `Orlix/RangeMaskGen.h`.
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
      end_ = std::to_chars(digits_, digits_ + sizeof digits_, number).ptr;
   }
   std::string_view view() const { return {digits_, static_cast<std::size_t>(end_ - digits_)}; }

 private:
   char digits_[5];
   char* end_;
};

// A rule's name, to which parts are appended. Each intermediate name is traced, which would take an
// allocation per part if each were a string.
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

// Appends `-label-port` to `name` and traces the result.
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

// The exact type is part of the interface: users take this function's address.
Kiv::String ruleNameL4Port(Pello::String name, Pello::String label, L4Port port) {
   GrowingName result{name};
   ruleNameL4Port(result, label, port);
   return result.view();
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
   const std::size_t pairs =
         std::max<std::size_t>(srcVect.size(), 1) * std::max<std::size_t>(dstVect.size(), 1);
   // Reserved at once, so that the table of names does not grow several times for one entry.
   aclConfig->ruleByNameReserve(aclConfig->ruleByNames() + pairs);
   const auto addRule = [&](bool sportValid, L4PortDataMask sport, bool dportValid,
                            L4PortDataMask dport) {
      nextRuleIndex = addRulesL4PortDataMask(protoField, ruleConfig, aclConfig, sportValid, sport,
                                             dportValid, dport, expandTcpFlags, nextRuleIndex);
   };
   // An entry without any range makes no rule: neither loop runs.
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
      const ProtoFieldPtr& protoField, const RulePtr& ruleConfig, const AclConfigPtr& aclConfig,
      bool sportDataMaskValid, L4PortDataMask sportDataMask, bool dportDataMaskValid,
      L4PortDataMask dportDataMask, bool tcpFlagAvailable, U32 nextRuleIndex) {
   // The traces of one rule, about ten, share one time stamp: reading the clock is most of their
   // cost.
   const Ringlog::SharedMoment moment;
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
   const RulePtr newRule = aclConfig->ruleByNameIs(name);
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

U32 OruPostcardPolicyAclHelper::addRulesTcpFlagField(const ProtoFieldPtr& protoField,
                                                     const RulePtr& ruleConfig,
                                                     const AclConfigPtr& aclConfig,
                                                     U32 nextRuleIndex) {
   RINGLOG_TRACE(9, "Rule Name : {}, NextRuleIndex : {}", ruleConfig->name(), nextRuleIndex);
   for (const Classification::TcpFlagAndMask& match : protoField->tcpFlag()) {
      if (match.tcpFlagMask().value() == 0) {
         contractBroken(FunctionText::addRulesTcpFlagField, "flagIter.key().tcpFlagMask().value()");
      }
      const Kiv::String name = tcpFlagRuleName(ruleConfig->name(), match);
      RINGLOG_TRACE(9, "Creating addtional ruleConfig: {} for tcpFlag {} tcpMask {}", name,
                    match.tcpFlag().value(), match.tcpFlagMask().value());
      const RulePtr newRule = aclConfig->ruleByNameIs(name);
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
