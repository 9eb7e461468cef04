// `showPostcardAcl`: the text of the show command. Tools read it, so labels and column widths are
// part of the interface. Errors of writing are ignored, because the reader may have closed its end.
// Relies on TcpControl.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Helper.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TcpControl.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TraceSource.h"

#include <cstdio>
#include <fcntl.h>

namespace OruPostcardTelemetry {

using HelperTrace::traceSource;

namespace {

// Writes the text of ACL configurations to a file descriptor, line by line.
class Show {
 public:
   // `tcpFlags`: whether the hardware matches TCP flags; lines on them are written only then.
   Show(int fd, bool tcpFlags) : fd_{fd}, tcpFlags_{tcpFlags} {}

   void aclConfig(const PostcardTelemetryAclConfig& config) const {
      separator();
      attribute("Policy Name:", config.aclConfigKey().c_str());
      attribute("Policy Type:", stringValue(config.aclType()).c_str());
      for (const auto& rule : config.ruleByIndex()) {
         ruleConfig(*rule.value());
      }
      dprintf(fd_, "\n%s\n", "Policy Interfaces:");
      for (const auto& intf : config.policyIntf()) {
         item(intf.stringValue().c_str());
      }
      attribute("Programmed Policy:", Kiv::valueText(config.programmedPolicy()).c_str());
      attribute("Rules Client Updated:", Kiv::valueText(config.rulesClientUpdated()).c_str());
      dprintf(fd_, "%s\n", "Policy Event Status:");
      if (config.aclConfigStatus() != nullptr) {
         for (const auto& status : config.aclConfigStatus()->statusInOrder()) {
            item(status.value().c_str());
         }
      }
      separator();
   }

 private:
   void separator() const {
      dprintf(fd_, "---------------------------------------------------------\n");
   }
   void attribute(const char* label, const char* value) const {
      dprintf(fd_, "%-22s %s\n", label, value);
   }
   void item(const char* text) const { dprintf(fd_, "%-3s %s\n", "", text); }
   void field(const char* label, const char* value) const {
      dprintf(fd_, "%-3s %-18s %s\n", "", label, value);
   }
   void field(const char* label, int value) const {
      dprintf(fd_, "%-3s %-18s %d\n", "", label, value);
   }

   void ruleConfig(const RuleConfig& rule) const {
      dprintf(fd_, "\n%-22s %s\n", "Rule Name:", rule.name().c_str());
      dprintf(fd_, "%s\n", "Rule Filter:");
      if (rule.ruleFilter() != nullptr) {
         filter(*rule.ruleFilter());
      }
      dprintf(fd_, "%s\n", "Rule Action:");
      item("Actions:");
      if (rule.ruleAction() != nullptr) {
         action(*rule.ruleAction());
      }
   }

   void filter(const RuleFilter& filter) const {
      prefix("Source:", filter.source());
      prefix("Destination:", filter.destination());
      if (filter.sportDataMaskValid()) {
         field("Source Port Data:", filter.sportDataMask().l4PortData());
         field("Source Port Mask:", filter.sportDataMask().l4PortMask());
      } else {
         field("Source Port:", "Not Configured");
      }
      if (filter.dportDataMaskValid()) {
         field("Destination Port Data:", filter.dportDataMask().l4PortData());
         field("Destination Port Mask:", filter.dportDataMask().l4PortMask());
      } else {
         field("Destination Port:", "Not Configured");
      }
      if (tcpFlags_) {
         tcpFlags(filter.tcpFlagAndMask());
      }
      field("Protocol:", filter.proto().value());
      item("Sample:");
      sample(filter.sampleDataAndMask().get());
   }

   void prefix(const char* label, const Orlix::IpGenPrefix& prefix) const {
      const bool configured = prefix.family() != Orlix::AddressFamily::none;
      field(label, configured ? prefix.stringValue().c_str() : "Not Configured");
   }

   void tcpFlags(const Classification::TcpFlagAndMask& match) const {
      if (match.tcpFlagMask().value() == 0) {
         field("Tcp FlagAndMask:", "Not Configured");
         return;
      }
      field("Tcp FlagAndMask Data:", match.tcpFlag().value());
      field("Tcp FlagAndMask Mask:", match.tcpFlagMask().value());
   }

   void sample(const Classification::TcpUdpCheckSumOrIpId* sample) const {
      if (sample == nullptr) {
         dprintf(fd_, "%-6s %-15s\n", "", "Sample Data Ignored");
         return;
      }
      dprintf(fd_, "%-6s %-15s %u\n", "", "Data:", sample->data());
      dprintf(fd_, "%-6s %-15s %u\n", "", "Mask:", sample->mask());
   }

   // In a rule that sets the DSCP, the DSCP block follows every action, not only that one: tools
   // expect it there.
   void action(const RuleAction& action) const {
      for (const auto& member : action.action()) {
         if (const char* name = actionName(member)) {
            dprintf(fd_, "%-6s %s\n", "", name);
         }
         if (action.action(RuleAction::setDscpAction)) {
            dscpBounds();
         }
      }
   }

   static const char* actionName(RuleAction::Action action) {
      switch (action) {
      case RuleAction::sampleAction:
         return "sampleAction";
      case RuleAction::policeAction:
         return "policeAction";
      case RuleAction::setDscpAction:
         return "setDscpAction";
      }
      return nullptr;
   }

   // Writes the smallest and largest DSCP, not the configured one: tools expect these numbers.
   void dscpBounds() const {
      item("DSCP:");
      for (const char* label : {"Data:", "Mask:"}) {
         dprintf(fd_, "%-6s %-15s %s %-2d %-3s %s %-2d\n", "", label, "Min:", 0, "", "Max:", 63);
      }
   }

   int fd_;
   bool tcpFlags_;
};

} // namespace

void OruPostcardPolicyAclHelper::showPostcardAcl(U32 socket) const {
   RINGLOG_ENTRY();
   // On a descriptor that is not open, each dprintf of the C library leaks a buffer.
   if (::fcntl(static_cast<int>(socket), F_GETFD) == -1) {
      return;
   }
   const Show show{static_cast<int>(socket), tcpFlagsSupported(hwCapability())};
   for (const auto& config : aclConfigColl()) {
      show.aclConfig(*config.value());
   }
}

} // namespace OruPostcardTelemetry
