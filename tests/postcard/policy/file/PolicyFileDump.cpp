#include "postcard/policy/file/PolicyFileDump.h"

#include "postcard/policy/file/Keys.h"

#include <fmt/format.h>

namespace Postcard::Policy::File {

namespace {

std::string at(Location location) {
   return fmt::format("@{}:{}", location.line, location.column);
}

std::string text(const Name& name) {
   return name.text + at(name.location);
}

std::string text(const Prefix& prefix) {
   return prefix.value.stringValue() + at(prefix.location);
}

std::string text(const NumberRange& range) {
   return fmt::format("{}-{}{}", range.low, range.high, at(range.location));
}

std::string text(const TcpFlagMatch& match) {
   return fmt::format("{:#x}/{:#x}{}", match.flags, match.mask, at(match.location));
}

std::string text(const IcmpType& type) {
   return fmt::format("{}{}", type.type, at(type.location));
}

std::string text(const Action& action) {
   return fmt::format("{}={}{}", actionName(action.kind), action.dscp, at(action.location));
}

std::string text(const SampleMatch& sample) {
   return fmt::format("{:#x}/{:#x} {}{}", sample.data, sample.mask,
                      sample.field == SampleField::ipId ? "ip-id" : "checksum",
                      at(sample.location));
}

std::string text(const PortEntry& entry);

template <class Element>
std::string list(std::string_view label, const std::vector<Element>& elements) {
   std::string out;
   for (const Element& element : elements) {
      out += (out.empty() ? "" : ", ") + text(element);
   }
   return elements.empty() ? "" : fmt::format(" {}=[{}]", label, out);
}

template <class Element>
std::string one(std::string_view label, const std::optional<Element>& element) {
   return element ? fmt::format(" {}={}", label, text(*element)) : "";
}

std::string flag(std::string_view label, bool set) {
   return set ? fmt::format(" {}", label) : "";
}

std::string text(const PortEntry& entry) {
   return "{" + list("source", entry.source) + list("destination", entry.destination) +
          one("source-set", entry.sourceSet) + one("destination-set", entry.destinationSet) + " }" +
          at(entry.location);
}

std::string line(const ProtocolMatch& match) {
   return fmt::format("    protocol {}-{}{}{}{}{}\n", match.low, match.high, at(match.location),
                      list("ports", match.ports), list("tcp-flags", match.tcpFlags),
                      list("icmp-types", match.icmpTypes));
}

std::string lines(Family family, const Filter* filter) {
   if (filter == nullptr) {
      return "";
   }
   std::string out = fmt::format("   {}{}", familyName(family), at(filter->location));
   out += list("source", filter->source) + list("destination", filter->destination);
   out += list("source-except", filter->sourceExcept);
   out += list("destination-except", filter->destinationExcept);
   out += one("source-prefix-set", filter->sourcePrefixSet);
   out += one("destination-prefix-set", filter->destinationPrefixSet);
   out += one("payload-length", filter->payloadLength) + one("ip-ttl", filter->ipTtl);
   out += flag("fragments", filter->fragments) + flag("ip-options", filter->ipOptions);
   out += flag("protocol", filter->protocol) + flag("protocol-neighbor", filter->protocolNeighbor);
   out += one("sample", filter->sample) + "\n";
   for (const ProtocolMatch& match : filter->protocols) {
      out += line(match);
   }
   return out;
}

std::string lines(const Class& item) {
   return fmt::format("  class {} {}={}{}\n", text(item.name),
                      item.priorityGiven ? "priority" : "place", item.priority,
                      list("actions", item.actions)) +
          lines(Family::ipv4, item.filter(Family::ipv4)) +
          lines(Family::ipv6, item.filter(Family::ipv6));
}

std::string lines(const Policy& policy) {
   std::string out = fmt::format(" policy {}{}{}{}\n", text(policy.name),
                                 policy.scope.empty() ? "" : " scope=" + policy.scope,
                                 list("ipv4", policy.interfaces(Family::ipv4)),
                                 list("ipv6", policy.interfaces(Family::ipv6)));
   for (const Class& item : policy.classes) {
      out += lines(item);
   }
   return out;
}

} // namespace

std::string dump(const PolicyFile& file) {
   std::string out = fmt::format("tcp-flags={}", file.hardware.tcpFlags);
   if (file.collector) {
      out += fmt::format(" collector={}:{}{}", file.collector->address.stringValue(),
                         file.collector->port, at(file.collector->location));
   }
   for (const auto& [name, on] : file.featureToggles) {
      out += on ? "" : fmt::format(" {}=false", name);
   }
   out += "\n";
   for (const Policy& policy : file.policies) {
      out += lines(policy);
   }
   return out;
}

} // namespace Postcard::Policy::File
