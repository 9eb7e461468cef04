#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RuleFilter.h"

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/TraceSource.h"

namespace OruPostcardTelemetry {

using TypesTrace::traceSource;

void RuleFilter::copy(const RuleFilter& other) {
   RINGLOG_ENTRY();
   sourceIs(other.source());
   destinationIs(other.destination());
   copyPorts(other);
   protoIs(other.proto());
   // A counted reference, because a filter that is copied into itself replaces the object to which
   // `sample` refers.
   // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
   if (const auto sample = other.sampleDataAndMask(); sample != nullptr) {
      copySample(*sample);
   }
   if (other.tcpFlagAndMask() != Classification::TcpFlagAndMask{}) {
      tcpFlagAndMaskIs(other.tcpFlagAndMask());
   }
}

void RuleFilter::copyPorts(const RuleFilter& other) {
   if (other.sportDataMaskValid()) {
      sportDataMaskValidIs(true);
      sportDataMaskIs(other.sportDataMask());
   }
   if (other.dportDataMaskValid()) {
      dportDataMaskValidIs(true);
      dportDataMaskIs(other.dportDataMask());
   }
}

void RuleFilter::copySample(const Classification::TcpUdpCheckSumOrIpId& other) {
   // All copies share one string; a string per copy would be an allocation per rule.
   static const Pello::String name{"sampleDataAndMask"};
   const Pello::Ptr<Classification::TcpUdpCheckSumOrIpId> sample = sampleDataAndMaskIs(name);
   sample->dataIs(other.data());
   sample->maskIs(other.mask());
   sample->versionIs(other.version());
}

Pello::Ptr<RuleFilter> ruleFilterFactory() {
   return new RuleFilter;
}

} // namespace OruPostcardTelemetry
