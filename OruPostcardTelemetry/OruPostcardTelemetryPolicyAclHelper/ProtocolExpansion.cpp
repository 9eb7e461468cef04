// `addRulesProtoField`: the rules of one class in one protocol. The template is copied for the
// protocol. The copy is the only rule when the filter has no ports and no TCP flags to match in
// this protocol; otherwise PortExpansion makes the rules from the copy. Relies on TcpControl.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Contract.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/FilterCheck.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Helper.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TcpControl.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TraceSource.h"

namespace OruPostcardTelemetry {

using HelperTrace::traceSource;

namespace {

// Returns the empty name for protocols other than TCP and UDP; RuleConstruction asks for no others.
Pello::String protocolRuleName(const Pello::String& name, U8 proto) {
   switch (proto) {
   case protocolTcp:
      return Pello::String::join({name, "-", "tcp"});
   case protocolUdp:
      return Pello::String::join({name, "-", "udp"});
   default:
      return {};
   }
}

// While the feature toggle is off, producers of filters must give a protocol field exactly one port
// entry.
void requireOnePortEntry(std::size_t ports) {
   if (!toggleFeaturePostcardTelemetryTcpControlEnabled() && ports != 1) {
      contractBroken(FunctionText::addRulesProtoField, "protoField->ports() == 1",
                     portCountMessage(ports));
   }
}

} // namespace

U32 OruPostcardPolicyAclHelper::addRulesProtoField(const AclConfigPtr& aclConfig,
                                                   const RulePtr& ruleConfig, const FilterPtr& sf,
                                                   U8 proto, U32 nextRuleIndex) {
   RINGLOG_ENTRY();
   RINGLOG_TRACE(9, "Rule Name : {}, Proto : 0x{:x}, NextRuleIndex : {}", ruleConfig->name(), proto,
                 nextRuleIndex);
   const Pello::String name = protocolRuleName(ruleConfig->name(), proto);
   RINGLOG_TRACE(5, "Creating Additional Rules : {}", name);
   const RulePtr newRule = aclConfig->ruleByNameIs(name);
   newRule->copy(*ruleConfig);
   newRule->ruleFilter()->protoIs(Protocol{proto});
   const ProtoFieldPtr protoField = sf->protoField(singleProtocol(proto));
   const std::size_t ports = protoField == nullptr ? 0 : protoField->ports();
   const bool tcpFlags =
         tcpFlagsSupported(hwCapability()) && protoField != nullptr && protoField->tcpFlags() != 0;
   if (ports == 0 && !tcpFlags) {
      RINGLOG_TRACE(5, "Structured Filter with no proto fields");
      aclConfig->ruleByIndexIs(nextRuleIndex, newRule);
      return nextRuleIndex + 1;
   }
   // For hardware that matches TCP flags, FilterCheck has made this check already.
   if (!tcpFlagsSupported(hwCapability())) {
      requireOnePortEntry(ports);
   }
   nextRuleIndex =
         ports == 0 ? addRulesTcpFlagField(protoField, newRule, aclConfig, nextRuleIndex)
                    : addRulesPortField(protoField, newRule, aclConfig, tcpFlags, nextRuleIndex);
   // The copy was only a template for the rules that PortExpansion has made. `addRulesTcpFlagField`
   // has removed its name already; removing it again does nothing.
   RINGLOG_TRACE(5, "Deleting Rule : {}", name);
   aclConfig->ruleByNameDel(name);
   return nextRuleIndex;
}

} // namespace OruPostcardTelemetry
