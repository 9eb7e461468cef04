#include "Workload.h"

#include <fmt/format.h>

#include <random>

namespace Bench {

namespace {

using Orlix::AddressFamily;
using Postcard::Classifier::Bits;
using Postcard::Classifier::FieldMatch;
using Postcard::Classifier::firstOf64;
using Postcard::Classifier::Prefix;
using Postcard::Classifier::RuleMatch;
using Postcard::Packets::Packet;
using Random = std::mt19937_64;

constexpr std::size_t packetCount = 16'384;

// A prefix in 10.0.0.0/8 or 2001:db8::/32, of `length` bits behind these. At most 24.
Prefix somewhere(Random& random, AddressFamily family, unsigned length) {
   const unsigned fixed = family == AddressFamily::ipv4 ? 8 : 32;
   const U64 begin = family == AddressFamily::ipv4 ? U64{10} << 56 : U64{0x20010db8} << 32;
   const U64 bits = begin | random() >> fixed;
   return {{bits & firstOf64(fixed + length), 0}, static_cast<U8>(fixed + length)};
}

// The aligned blocks of a range of ports.
std::vector<FieldMatch<U16>> blocks(unsigned low, unsigned high) {
   std::vector<FieldMatch<U16>> blocks;
   while (low <= high) {
      unsigned size = 1;
      while (low % (2 * size) == 0 && low + 2 * size - 1 <= high) {
         size *= 2;
      }
      blocks.push_back({true, static_cast<U16>(low), static_cast<U16>(~(size - 1))});
      low += size;
   }
   return blocks;
}

std::vector<FieldMatch<U16>> randomBlocks(Random& random) {
   const auto low = static_cast<unsigned>(1 + random() % 40'000);
   const auto size = static_cast<unsigned>(random() % 3 == 0 ? random() % 5'000 : random() % 8);
   return blocks(low, low + size);
}

U16 under(Random& random, const FieldMatch<U16>& match) {
   const auto any = static_cast<U16>(random());
   return match.asked ? static_cast<U16>((any & ~match.mask) | (match.data & match.mask)) : any;
}

std::array<U8, 16> addressIn(Random& random, AddressFamily family, const Prefix& prefix) {
   const Prefix inside = prefix.length != 0 ? prefix : somewhere(random, family, 0);
   const Bits bits{inside.value.high | (random() & ~firstOf64(inside.length)), random()};
   std::array<U8, 16> bytes{};
   for (unsigned byte = 0; byte < (family == AddressFamily::ipv4 ? 4U : 16U); ++byte) {
      bytes.at(byte) = static_cast<U8>((byte < 8 ? bits.high : bits.low) >> (56 - byte % 8 * 8));
   }
   return bytes;
}

// A packet that the rule matches, and an earlier one may.
Packet packetFor(Random& random, AddressFamily family, const RuleMatch& rule) {
   Packet packet;
   packet.family = family;
   packet.source = addressIn(random, family, rule.source);
   packet.destination = addressIn(random, family, rule.destination);
   packet.protocol = rule.protocol;
   packet.sourcePort = under(random, rule.sourcePort);
   packet.destinationPort = under(random, rule.destinationPort);
   packet.checksum = under(random, rule.checksum);
   if (rule.protocol == Postcard::Packets::protocolTcp) {
      const auto any = static_cast<U8>(random());
      packet.tcpFlags = static_cast<U8>((any & ~rule.tcpFlags.mask) |
                                        (rule.tcpFlags.data & rule.tcpFlags.mask));
   }
   if (family == AddressFamily::ipv4) {
      packet.identification = under(random, rule.identification);
   }
   return packet;
}

// Three of four packets are made for some rule; one of four takes its fields from different rules
// and hardly ever matches.
void addPackets(Random& random, Workload& workload) {
   const auto rule = [&]() -> const RuleMatch& {
      return workload.rules[random() % workload.rules.size()];
   };
   for (std::size_t i = 0; i < packetCount; ++i) {
      Packet packet = packetFor(random, workload.family, rule());
      if (i % 4 == 3) {
         packet.destination = packetFor(random, workload.family, rule()).destination;
         packet.sourcePort = under(random, rule().sourcePort);
      }
      workload.packets.push_back(packet);
   }
}

Workload named(const char* what, AddressFamily family) {
   return {fmt::format("{}, {}", what, family == AddressFamily::ipv4 ? "IPv4" : "IPv6"),
           family,
           {},
           {}};
}

void addClass(Random& random, Workload& workload) {
   RuleMatch rule;
   if (random() % 4 == 0) {
      rule.source = somewhere(random, workload.family, static_cast<unsigned>(8 + random() % 8));
   }
   rule.destination = somewhere(random, workload.family, static_cast<unsigned>(8 + random() % 16));
   rule.protocol =
         random() % 3 == 0 ? Postcard::Packets::protocolUdp : Postcard::Packets::protocolTcp;
   if (rule.protocol == Postcard::Packets::protocolTcp && random() % 4 == 0) {
      rule.tcpFlags = {true, 2, 18};
   }
   const auto mask = static_cast<U16>((1U << random() % 8) - 1);
   rule.checksum = {mask != 0, static_cast<U16>(random() & mask), mask};
   const auto sources = random() % 3 == 0 ? randomBlocks(random) : blocks(1024, 65535);
   for (const FieldMatch<U16>& source : sources) {
      for (const FieldMatch<U16>& destination : randomBlocks(random)) {
         rule.sourcePort = source;
         rule.destinationPort = destination;
         workload.rules.push_back(rule);
      }
   }
}

} // namespace

Workload policy(AddressFamily family, std::size_t rules) {
   Random random{1};
   Workload workload = named("policy", family);
   while (workload.rules.size() < rules) {
      addClass(random, workload);
   }
   workload.rules.resize(rules);
   addPackets(random, workload);
   return workload;
}

Workload portPairs(AddressFamily family, std::size_t rules) {
   Random random{2};
   Workload workload = named("port pairs", family);
   RuleMatch rule;
   rule.protocol = Postcard::Packets::protocolTcp;
   rule.destination = somewhere(random, family, 8);
   for (std::size_t i = 0; i < rules; ++i) {
      rule.sourcePort = {true, static_cast<U16>(1024 + i / 100), 0xffff};
      rule.destinationPort = {true, static_cast<U16>(2000 + 3 * (i % 100)), 0xffff};
      workload.rules.push_back(rule);
   }
   addPackets(random, workload);
   return workload;
}

Workload scattered(AddressFamily family, std::size_t rules) {
   Random random{3};
   Workload workload = named("scattered", family);
   for (std::size_t i = 0; i < rules; ++i) {
      RuleMatch rule;
      rule.source = random() % 3 == 0
                          ? Prefix{}
                          : somewhere(random, family, static_cast<unsigned>(random() % 25));
      rule.destination = somewhere(random, family, static_cast<unsigned>(4 + random() % 21));
      rule.protocol =
            random() % 2 == 0 ? Postcard::Packets::protocolUdp : Postcard::Packets::protocolTcp;
      if (random() % 3 != 0) {
         rule.destinationPort = {true, static_cast<U16>(random() % 2'000), 0xffff};
      }
      workload.rules.push_back(rule);
   }
   addPackets(random, workload);
   return workload;
}

// ---- The ACL ----

namespace {

Orlix::IpGenPrefix prefixOf(AddressFamily family, const Prefix& prefix) {
   std::array<U8, 16> bytes{};
   for (unsigned byte = 0; byte < 16; ++byte) {
      const U64 half = byte < 8 ? prefix.value.high : prefix.value.low;
      bytes.at(byte) = static_cast<U8>(half >> (56 - byte % 8 * 8));
   }
   return {family, std::span{bytes}.first(Orlix::addressSize(family)), prefix.length};
}

void copyTo(OruPostcardTelemetry::RuleFilter& filter, AddressFamily family, const RuleMatch& rule) {
   filter.sourceIs(rule.source.length == 0 ? OruPostcardTelemetry::anyPrefix()
                                           : prefixOf(family, rule.source));
   filter.destinationIs(prefixOf(family, rule.destination));
   filter.protoIs(OruPostcardTelemetry::Protocol{rule.protocol});
   filter.sportDataMaskValidIs(rule.sourcePort.asked);
   filter.sportDataMaskIs({rule.sourcePort.data, rule.sourcePort.mask});
   filter.dportDataMaskValidIs(rule.destinationPort.asked);
   filter.dportDataMaskIs({rule.destinationPort.data, rule.destinationPort.mask});
   filter.tcpFlagAndMaskIs({rule.tcpFlags.data, rule.tcpFlags.mask});
   if (rule.checksum.asked) {
      const auto sample = filter.sampleDataAndMaskIs(Pello::String{"sample"});
      sample->versionIs(Classification::sampleVersionChecksum);
      sample->dataIs(rule.checksum.data);
      sample->maskIs(rule.checksum.mask);
   }
}

} // namespace

Pello::Ptr<OruPostcardTelemetry::PostcardTelemetryAclConfig> aclOf(const Workload& workload) {
   using OruPostcardTelemetry::PostcardTelemetryAclConfig;
   const Pello::Ptr<PostcardTelemetryAclConfig> acl{
         new PostcardTelemetryAclConfig{Pello::String{"bench"}}};
   acl->aclTypeIs(workload.family == AddressFamily::ipv4 ? Acl::AclType::ipv4 : Acl::AclType::ipv6);
   for (std::size_t i = 0; i < workload.rules.size(); ++i) {
      const auto rule = acl->ruleByNameIs(Pello::String{fmt::format("rule-{}", i)});
      copyTo(*rule->ruleFilterIs(), workload.family, workload.rules[i]);
      rule->ruleActionIs()->actionIs(OruPostcardTelemetry::RuleAction::sampleAction);
      acl->ruleByIndexIs(static_cast<U32>(i), rule);
   }
   return acl;
}

} // namespace Bench
