#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/FilterCheck.h"

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Contract.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TcpControl.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TraceSource.h"

namespace OruPostcardTelemetry {

using HelperTrace::traceSource;

namespace {

using Classification::PortField;
using Classification::ProtoField;
using Classification::StructuredFilter;

// Collects the message about a filter. Each unsupported match adds a fragment.
class Findings {
 public:
   // Adds `fragment` if `found` is true. Returns `found`.
   bool add(bool found, std::string_view fragment) {
      if (found) {
         text_ += fragment;
      }
      return found;
   }
   bool empty() const { return text_ == opening; }
   // Returns the whole message. Each fragment ends in a comma, the last one too: the text is part
   // of the interface.
   Kiv::String message() const { return Kiv::String::join({text_, " in configuration"}); }

 private:
   static constexpr std::string_view opening = "Unsupported match(es):";
   std::string text_{opening};
};

// Checks everything but the protocol fields. The order of the checks is the order in the message.
void checkFilterWide(const StructuredFilter& filter, Findings& findings) {
   findings.add(filter.sources() > 1, " 'Source Prefix List',");
   findings.add(filter.sourceExcepts() != 0, " 'Except Source Prefix List',");
   findings.add(!filter.sourcePrefixSet().empty(), " 'Source Prefix Set',");
   findings.add(filter.destinations() > 1, " 'Destination Prefix List',");
   findings.add(filter.destinationExcepts() != 0, " 'Except Destination Prefix List',");
   findings.add(!filter.destinationPrefixSet().empty(), " 'Destination Prefix Set',");
   findings.add(filter.payloadLengths() != 0, " 'Payload Length',");
   findings.add(filter.fragments() != nullptr, " 'Fragments',");
   findings.add(filter.ipTtls() != 0, " 'IP TTL',");
   findings.add(filter.ipOptions(), " 'IP Options',");
   findings.add(filter.protocol(), " 'Protocol',");
   findings.add(filter.protocolNeighbor(), " 'Protocol Neighbor',");
}

// Checks all of a protocol field but its port entries. Returns whether something is unsupported.
// Without TCP control, rules are made without TCP flags, so flags of any protocol pass.
bool checkProtocol(const Classification::NumericalRange& range, const ProtoField& field,
                   bool tcpControl, Findings& findings) {
   const bool isTcp = range == singleProtocol(protocolTcp);
   const bool isUdp = range == singleProtocol(protocolUdp);
   bool faulty = findings.add(!isTcp && !isUdp, " 'IP Protocol',");
   faulty |= findings.add(field.icmpTypes() != 0, " 'ICMP Types',");
   faulty |= findings.add(tcpControl && !isTcp && field.tcpFlags() != 0, " 'TCP Flag',");
   return faulty;
}

// Returns whether the entry refers to named sets of ports, which rules cannot express.
bool checkPortEntry(const PortField& entry, Findings& findings) {
   const bool source = findings.add(!entry.sportFieldSet().empty(), " 'Sport Field Set',");
   const bool destination = findings.add(!entry.dportFieldSet().empty(), " 'Dport Field Set',");
   return source || destination;
}

// Checks the field's port entries; `faulty` says whether the field had a fault before. Returns
// whether it has one now. The entry at which the field turns out to be faulty is the last one that
// is checked; in a field that was faulty before, that is the first.
bool checkPorts(const ProtoField& field, bool tcpControl, bool faulty, Findings& findings) {
   for (const auto& entry : field.port()) {
      // Inside the loop, because a field without port entries is allowed.
      if (tcpControl && !toggleFeaturePostcardTelemetryTcpControlEnabled() && field.ports() != 1) {
         contractBroken(FunctionText::checkUnsupportedFields, "protoIter->ports() == 1",
                        portCountMessage(field.ports()));
      }
      faulty |= checkPortEntry(*entry.value(), findings);
      if (faulty) {
         break;
      }
   }
   return faulty;
}

} // namespace

Kiv::String
checkUnsupportedFields(const Pello::Ptr<const StructuredFilter>& filter,
                       const Pello::Ptr<const PostcardTelemetry::HwCapability>& hwCapability) {
   RINGLOG_ENTRY();
   // The first faulty field ends the check, so that a message names the faults of one field only.
   const bool tcpControl = tcpFlagsSupported(hwCapability);
   Findings findings;
   checkFilterWide(*filter, findings);
   for (const auto& protoIter : filter->protoField()) {
      const ProtoField& field = *protoIter.value();
      const bool faulty = checkProtocol(protoIter.key(), field, tcpControl, findings);
      if (checkPorts(field, tcpControl, faulty, findings)) {
         break;
      }
   }
   if (findings.empty()) {
      return {};
   }
   Kiv::String message = findings.message();
   RINGLOG_TRACE(0, "Error set to : {}", message);
   return message;
}

} // namespace OruPostcardTelemetry
