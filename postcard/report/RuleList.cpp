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

using namespace OruPostcardTelemetry;

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

// A rule of the helper always has a filter; one without it matches nothing that could be said.
void matchIs(Buffer& match, const RuleConfig& rule) {
   match.clear();
   if (rule.ruleFilter() != nullptr) {
      appendMatch(match, *rule.ruleFilter());
   }
}

struct Widths {
   std::size_t index = 0;
   std::size_t name = 0;
   std::size_t match = 0;
};

Widths widthsOf(const PostcardTelemetryAclConfig& acl) {
   Widths widths;
   Buffer match;
   for (const auto& entry : acl.ruleByIndex()) {
      matchIs(match, *entry.value());
      widths.index = std::max(widths.index, fmt::formatted_size("{}", entry.key()));
      widths.name = std::max(widths.name, entry.value()->name().view().size());
      widths.match = std::max(widths.match, match.size());
   }
   return widths;
}

} // namespace

void writeRuleList(const PostcardTelemetryAclConfig& acl, std::ostream& out) {
   constexpr std::size_t piece = std::size_t{64} * 1024;
   const Widths widths = widthsOf(acl);
   Buffer lines;
   Buffer match;
   append(lines, "{}\n", acl.aclConfigKey().view());
   for (const auto& entry : acl.ruleByIndex()) {
      const RuleConfig& rule = *entry.value();
      matchIs(match, rule);
      append(lines, "  {:>{}}  {:<{}}  {:<{}}  ", entry.key(), widths.index, rule.name().view(),
             widths.name, view(match), widths.match);
      appendActions(lines, rule.ruleAction().get());
      append(lines, "\n");
      if (lines.size() >= piece) {
         out << view(lines);
         lines.clear();
      }
   }
   out << view(lines);
}

} // namespace Postcard::Report
