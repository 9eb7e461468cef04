// `showPostcardAcl`: the text of the show command. Tools read it, so labels and column widths are
// part of the interface. Errors of writing are ignored, because the reader may have closed its end.
// Relies on TcpControl.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Helper.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TcpControl.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TraceSource.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <string_view>

namespace OruPostcardTelemetry {

using HelperTrace::traceSource;

namespace {

// A rule's lines leave in one call, several rules in one call while they are fewer bytes than this.
// A call of its own for each line takes ten times as long.
constexpr std::size_t callSize = std::size_t{32} * 1024;

// Writes the text of ACL configurations to a file descriptor.
class Show {
 public:
   // `tcpFlags`: whether the hardware matches TCP flags; lines on them are written only then.
   Show(int fd, bool tcpFlags) : fd_{fd}, tcpFlags_{tcpFlags} {}

   void aclConfig(const PostcardTelemetryAclConfig& config) {
      separator();
      attribute("Policy Name:", config.aclConfigKey().c_str());
      attribute("Policy Type:", stringValue(config.aclType()).c_str());
      for (const auto& rule : config.ruleByIndex()) {
         ruleConfig(*rule.value());
         if (text_.size() >= callSize) {
            leave();
         }
      }
      line("\nPolicy Interfaces:");
      for (const auto& intf : config.policyIntf()) {
         item(intf.stringValue().c_str());
      }
      attribute("Programmed Policy:", Kiv::valueText(config.programmedPolicy()).c_str());
      attribute("Rules Client Updated:", Kiv::valueText(config.rulesClientUpdated()).c_str());
      line("Policy Event Status:");
      if (config.aclConfigStatus() != nullptr) {
         for (const auto& status : config.aclConfigStatus()->statusInOrder()) {
            item(status.value().c_str());
         }
      }
      separator();
      leave();
   }

 private:
   void leave() {
      dprintf(fd_, "%s", text_.c_str());
      text_.clear();
   }

   // Values are C strings: a text ends at its first null character, as everywhere in C output.
   void line(const char* text) { text_.append(text).append("\n"); }
   void separator() { line("---------------------------------------------------------"); }

   // Appends `label` and blanks up to `width`. A longer label is not cut.
   void column(std::string_view label, std::size_t width) {
      text_.append(label).append(width - std::min(width, label.size()), ' ').append(1, ' ');
   }
   void attribute(std::string_view label, const char* value) {
      column(label, attributeWidth);
      line(value);
   }
   void item(const char* text) {
      text_.append(itemIndent);
      line(text);
   }
   void field(std::string_view label, const char* value) {
      text_.append(itemIndent);
      column(label, fieldWidth);
      line(value);
   }
   void field(std::string_view label, U32 value) {
      text_.append(itemIndent);
      column(label, fieldWidth);
      number(value);
   }
   void number(U32 value) {
      std::array<char, 12> digits{}; // of 2^32 - 1, a line feed and a null character
      *std::to_chars(digits.begin(), digits.end() - 2, value).ptr = '\n';
      text_.append(digits.data());
   }

   void ruleConfig(const RuleConfig& rule) {
      text_.append("\n");
      attribute("Rule Name:", rule.name().c_str());
      line("Rule Filter:");
      if (rule.ruleFilter() != nullptr) {
         filter(*rule.ruleFilter());
      }
      line("Rule Action:");
      item("Actions:");
      if (rule.ruleAction() != nullptr) {
         action(*rule.ruleAction());
      }
   }

   void filter(const RuleFilter& filter) {
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

   void prefix(std::string_view label, const Orlix::IpGenPrefix& prefix) {
      const bool configured = prefix.family() != Orlix::AddressFamily::none;
      field(label, configured ? prefix.stringValue().c_str() : "Not Configured");
   }

   void tcpFlags(const Classification::TcpFlagAndMask& match) {
      if (match.tcpFlagMask().value() == 0) {
         field("Tcp FlagAndMask:", "Not Configured");
         return;
      }
      field("Tcp FlagAndMask Data:", match.tcpFlag().value());
      field("Tcp FlagAndMask Mask:", match.tcpFlagMask().value());
   }

   void sample(const Classification::TcpUdpCheckSumOrIpId* sample) {
      text_.append(detailIndent);
      if (sample == nullptr) {
         line("Sample Data Ignored");
         return;
      }
      column("Data:", detailWidth);
      number(sample->data());
      text_.append(detailIndent);
      column("Mask:", detailWidth);
      number(sample->mask());
   }

   // In a rule that sets the DSCP, the DSCP block follows every action, not only that one: tools
   // expect it there.
   void action(const RuleAction& action) {
      for (const auto& member : action.action()) {
         if (const char* name = actionName(member)) {
            text_.append(detailIndent);
            line(name);
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
   void dscpBounds() {
      item("DSCP:");
      for (const std::string_view label : {"Data:", "Mask:"}) {
         text_.append(detailIndent);
         column(label, detailWidth);
         line("Min: 0      Max: 63");
      }
   }

   static constexpr std::string_view itemIndent = "    ";
   static constexpr std::string_view detailIndent = "       ";
   // Columns of a label. A blank follows each.
   static constexpr std::size_t attributeWidth = 22;
   static constexpr std::size_t fieldWidth = 18;
   static constexpr std::size_t detailWidth = 15;

   int fd_;
   bool tcpFlags_;
   std::string text_; // what has not left yet
};

} // namespace

void OruPostcardPolicyAclHelper::showPostcardAcl(U32 socket) const {
   RINGLOG_ENTRY();
   // On a descriptor that is not open, each dprintf of the C library leaks a buffer.
   if (::fcntl(static_cast<int>(socket), F_GETFD) == -1) {
      return;
   }
   Show show{static_cast<int>(socket), tcpFlagsSupported(hwCapability())};
   for (const auto& config : aclConfigColl()) {
      show.aclConfig(*config.value());
   }
}

} // namespace OruPostcardTelemetry
