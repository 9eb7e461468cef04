#include "postcard/report/RuleList.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>

namespace Postcard::Report {

namespace {

using Host::CompiledPolicy;
using Host::RuleOrigin;
using OruPostcardTelemetry::L4PortDataMask;
using OruPostcardTelemetry::PostcardTelemetryAclConfig;
using OruPostcardTelemetry::RuleAction;
using OruPostcardTelemetry::RuleConfig;
using OruPostcardTelemetry::RuleFilter;

using Buffer = fmt::memory_buffer;

template <class... Arguments>
void append(Buffer& out, fmt::format_string<Arguments...> format, Arguments&&... arguments) {
   fmt::format_to(std::back_inserter(out), format, std::forward<Arguments>(arguments)...);
}

std::string_view view(const Buffer& buffer) {
   return {buffer.data(), buffer.size()};
}

void appendProtocol(Buffer& out, unsigned number) {
   switch (number) {
   case 1:
      append(out, "icmp");
      break;
   case 6:
      append(out, "tcp");
      break;
   case 17:
      append(out, "udp");
      break;
   default:
      append(out, "protocol {}", number);
   }
}

void appendPrefix(Buffer& out, const Orlix::IpGenPrefix& prefix) {
   const std::string text{prefix.stringValue()};
   append(out, "{}", text.ends_with("/0") ? "any" : text);
}

// A block of ports as a range. Its mask is ones followed by zeros, else data and mask are written.
void appendPort(Buffer& out, std::string_view side, const L4PortDataMask& port) {
   const unsigned data = port.l4PortData();
   const unsigned mask = port.l4PortMask();
   const unsigned free = ~mask & 0xffffU; // the bits that may be anything
   if ((free & (free + 1)) != 0 || (data & free) != 0) {
      append(out, " {} {:#x}/{:#x}", side, data, mask);
   } else if (free == 0) {
      append(out, " {} {}", side, data);
   } else {
      append(out, " {} {}-{}", side, data, data | free);
   }
}

void appendSample(Buffer& out, const Classification::TcpUdpCheckSumOrIpId& sample) {
   append(out, " {} {:#x}/{:#x}",
          sample.version() == Classification::sampleVersionIpId ? "ip-id" : "checksum",
          sample.data(), sample.mask());
}

void appendMatch(Buffer& out, const RuleFilter& filter) {
   appendProtocol(out, filter.proto().value());
   append(out, " ");
   appendPrefix(out, filter.source());
   append(out, " > ");
   appendPrefix(out, filter.destination());
   if (filter.sportDataMaskValid()) {
      appendPort(out, "sport", filter.sportDataMask());
   }
   if (filter.dportDataMaskValid()) {
      appendPort(out, "dport", filter.dportDataMask());
   }
   const Classification::TcpFlagAndMask& flags = filter.tcpFlagAndMask();
   if (flags.tcpFlagMask().value() != 0) {
      append(out, " flags {:#x}/{:#x}", flags.tcpFlag().value(), flags.tcpFlagMask().value());
   }
   if (filter.sampleDataAndMask() != nullptr) {
      appendSample(out, *filter.sampleDataAndMask());
   }
}

void appendActions(Buffer& out, const RuleAction* action) {
   const std::size_t before = out.size();
   const auto add = [&](RuleAction::Action which, std::string_view word) {
      if (action != nullptr && action->action(which)) {
         append(out, "{}{}", out.size() == before ? "" : ", ", word);
      }
   };
   add(RuleAction::sampleAction, "sample");
   add(RuleAction::policeAction, "police");
   add(RuleAction::setDscpAction, "set-dscp");
   if (out.size() == before) {
      append(out, "none");
   }
}

// The middle columns of a line. The buffers are filled anew for each rule.
struct Columns {
   Buffer match;
   Buffer actions;

   // A rule of the helper always has a filter; one without it matches nothing that could be said.
   void fill(const RuleConfig& rule) {
      match.clear();
      actions.clear();
      if (rule.ruleFilter() != nullptr) {
         appendMatch(match, *rule.ruleFilter());
      }
      appendActions(actions, rule.ruleAction().get());
   }
};

struct Widths {
   std::size_t index = 0;
   std::size_t name = 0;
   std::size_t match = 0;
   std::size_t actions = 0;
};

Widths widthsOf(const PostcardTelemetryAclConfig& acl) {
   Widths widths;
   Columns columns;
   for (const auto& entry : acl.ruleByIndex()) {
      columns.fill(*entry.value());
      widths.index = std::max(widths.index, fmt::formatted_size("{}", entry.key()));
      widths.name = std::max(widths.name, entry.value()->name().view().size());
      widths.match = std::max(widths.match, columns.match.size());
      widths.actions = std::max(widths.actions, columns.actions.size());
   }
   return widths;
}

} // namespace

void writeRuleList(const CompiledPolicy& compiled, std::ostream& out) {
   constexpr std::size_t piece = std::size_t{64} * 1024;
   const Widths widths = widthsOf(compiled.acl);
   Buffer lines;
   Columns columns;
   append(lines, "{}\n", compiled.acl.aclConfigKey().view());
   forEachRule(compiled, [&](U32 index, const RuleConfig& rule, const RuleOrigin& origin) {
      columns.fill(rule);
      append(lines, "  {:>{}}  {:<{}}  {:<{}}  {:<{}}  {}\n", index, widths.index,
             rule.name().view(), widths.name, view(columns.match), widths.match,
             view(columns.actions), widths.actions, text(origin));
      if (lines.size() >= piece) {
         out << view(lines);
         lines.clear();
      }
   });
   out << view(lines);
}

std::string ruleText(const RuleConfig& rule) {
   Columns columns;
   columns.fill(rule);
   return fmt::format("{}  {}", view(columns.match), view(columns.actions));
}

} // namespace Postcard::Report
