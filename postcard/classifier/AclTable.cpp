#include "postcard/classifier/AclTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>

namespace Postcard::Classifier {

namespace {

using Classification::TcpUdpCheckSumOrIpId;
using Orlix::AddressFamily;
using Orlix::IpGenPrefix;
using OruPostcardTelemetry::L4PortDataMask;
using OruPostcardTelemetry::PostcardTelemetryAclConfig;
using OruPostcardTelemetry::RuleAction;
using OruPostcardTelemetry::RuleConfig;
using OruPostcardTelemetry::RuleFilter;

// ---- The layout: where each field stands in its word ----

constexpr std::size_t mostWords = 6;
constexpr std::size_t ipv4Words = 3;

// Word of ports and flags.
constexpr unsigned sourcePortAt = 0;
constexpr unsigned destinationPortAt = 16;
constexpr unsigned tcpFlagsAt = 32;
constexpr U64 hasPorts = U64{1} << 40;
constexpr U64 hasTcpFlags = U64{1} << 41;

// Word of the sampled fields.
constexpr unsigned checksumAt = 0;
constexpr unsigned identificationAt = 16;
constexpr U64 hasChecksum = U64{1} << 32;
constexpr U64 hasIdentification = U64{1} << 33;
constexpr U64 impossible = U64{1} << 63; // no packet has it

struct Words {
   std::array<U64, mostWords> value{};
   std::array<U64, mostWords> mask{};

   void require(std::size_t word, U64 bits) {
      value[word] |= bits;
      mask[word] |= bits;
   }
   // Under `fieldMask`, the field must read as `data`.
   void field(std::size_t word, unsigned at, U64 data, U64 fieldMask) {
      value[word] |= (data & fieldMask) << at;
      mask[word] |= fieldMask << at;
   }
};

constexpr std::size_t wordCount(AddressFamily family) {
   return family == AddressFamily::ipv4 ? ipv4Words : mostWords;
}
constexpr std::size_t portWord(AddressFamily family) {
   return wordCount(family) - 2;
}
constexpr std::size_t sampleWord(AddressFamily family) {
   return wordCount(family) - 1;
}

U64 bigEndian(std::span<const U8> bytes) {
   U64 value = 0;
   for (const U8 byte : bytes) {
      value = value << 8 | byte;
   }
   return value;
}

// The mask of the upper `length` of 64 bits; lengths beyond are all of them.
U64 upperBits(unsigned length) {
   return length == 0 ? 0 : ~U64{0} << (64 - std::min(length, 64U));
}

// ---- Packets ----

void layOutAddresses(const Packets::Packet& packet, std::array<U64, mostWords>& key) {
   if (packet.family == AddressFamily::ipv4) {
      key[0] = bigEndian(packet.sourceAddress()) << 32 | bigEndian(packet.destinationAddress());
      return;
   }
   key[0] = bigEndian(std::span{packet.source}.first(8));
   key[1] = bigEndian(std::span{packet.source}.last(8));
   key[2] = bigEndian(std::span{packet.destination}.first(8));
   key[3] = bigEndian(std::span{packet.destination}.last(8));
}

std::array<U64, mostWords> layOut(const Packets::Packet& packet) {
   std::array<U64, mostWords> key{};
   layOutAddresses(packet, key);
   U64& ports = key[portWord(packet.family)];
   if (packet.sourcePort && packet.destinationPort) {
      ports |= hasPorts | U64{*packet.sourcePort} << sourcePortAt |
               U64{*packet.destinationPort} << destinationPortAt;
   }
   if (packet.tcpFlags) {
      ports |= hasTcpFlags | U64{*packet.tcpFlags} << tcpFlagsAt;
   }
   U64& sample = key[sampleWord(packet.family)];
   if (packet.checksum) {
      sample |= hasChecksum | U64{*packet.checksum} << checksumAt;
   }
   if (packet.identification) {
      sample |= hasIdentification | U64{*packet.identification} << identificationAt;
   }
   return key;
}

// ---- Rules ----

// What is wrong with a rule is told with its name and that of its ACL.
class RuleReader {
 public:
   RuleReader(const Pello::String& acl, AddressFamily family, const RuleConfig& rule)
      : acl_{acl}, family_{family}, rule_{rule} {}

   Words words() {
      if (rule_.ruleFilter() == nullptr) {
         fail("has no filter");
      }
      const RuleFilter& filter = *rule_.ruleFilter();
      addresses(filter.source(), filter.destination());
      port(filter.sportDataMaskValid(), filter.sportDataMask(), sourcePortAt);
      port(filter.dportDataMaskValid(), filter.dportDataMask(), destinationPortAt);
      if (const U8 mask = filter.tcpFlagAndMask().tcpFlagMask().value(); mask != 0) {
         words_.require(portWord(family_), hasTcpFlags);
         words_.field(portWord(family_), tcpFlagsAt, filter.tcpFlagAndMask().tcpFlag().value(),
                      mask);
      }
      if (filter.sampleDataAndMask() != nullptr && filter.sampleDataAndMask()->mask() != 0) {
         sample(*filter.sampleDataAndMask());
      }
      return words_;
   }

   AclTable::Entry entry(U32 index) const {
      if (rule_.ruleAction() == nullptr) {
         fail("has no action");
      }
      const RuleAction& action = *rule_.ruleAction();
      if (action.action(RuleAction::policeAction)) {
         fail("asks for policing, which is not supported");
      }
      const auto& dscp = action.dscpDataAndMask();
      // A code point has six bits.
      const unsigned mask = action.action(RuleAction::setDscpAction) ? dscp.dscpMask() & 0x3fU : 0;
      return {.index = index,
              .rule = rule_.name(),
              .sampled = action.action(RuleAction::sampleAction),
              .dscpData = static_cast<U8>(dscp.dscpData().value() & 0x3fU),
              .dscpMask = static_cast<U8>(mask)};
   }

 private:
   [[noreturn]] void fail(const std::string& what) const {
      throw AclError{fmt::format("rule '{}' of {} {}", rule_.name().view(), acl_.view(), what)};
   }

   void checkFamily(const char* side, const IpGenPrefix& prefix) const {
      if (prefix == OruPostcardTelemetry::anyPrefix() || prefix.family() == family_) {
         return;
      }
      if (prefix.family() == AddressFamily::none) {
         fail(fmt::format("has no {} prefix", side));
      }
      fail(fmt::format("has the {} prefix {}, which is not {}", side, prefix.stringValue(),
                       family_ == AddressFamily::ipv4 ? "IPv4" : "IPv6"));
   }

   void addresses(const IpGenPrefix& source, const IpGenPrefix& destination) {
      checkFamily("source", source);
      checkFamily("destination", destination);
      if (family_ == AddressFamily::ipv4) {
         words_.field(0, 0, bigEndian(source.address()) << 32, upperBits(source.length()));
         words_.field(0, 0, bigEndian(destination.address()),
                      upperBits(destination.length()) >> 32);
         return;
      }
      address(0, source);
      address(2, destination);
   }
   void address(std::size_t word, const IpGenPrefix& prefix) {
      if (prefix.length() == 0) {
         return; // also "0.0.0.0/0", whose address is of the other size
      }
      const unsigned length = prefix.length();
      words_.field(word, 0, bigEndian(prefix.address().first(8)), upperBits(length));
      words_.field(word + 1, 0, bigEndian(prefix.address().last(8)),
                   upperBits(length - std::min(length, 64U)));
   }

   void port(bool valid, const L4PortDataMask& match, unsigned at) {
      if (valid) {
         words_.require(portWord(family_), hasPorts);
         words_.field(portWord(family_), at, match.l4PortData(), match.l4PortMask());
      }
   }

   void sample(const TcpUdpCheckSumOrIpId& match) {
      const bool isChecksum = match.version() == Classification::sampleVersionChecksum;
      if (!isChecksum && match.version() != Classification::sampleVersionIpId) {
         fail(fmt::format("samples by the unknown field {}", match.version()));
      }
      words_.require(sampleWord(family_), isChecksum ? hasChecksum : hasIdentification);
      words_.field(sampleWord(family_), isChecksum ? checksumAt : identificationAt, match.data(),
                   match.mask() & 0xffffU);
      // The compared fields have 16 bits; the bits above read as zero.
      if ((match.data() & match.mask()) > 0xffffU) {
         words_.require(sampleWord(family_), impossible);
      }
   }

   const Pello::String& acl_;
   AddressFamily family_;
   const RuleConfig& rule_;
   Words words_;
};

AddressFamily familyOf(const PostcardTelemetryAclConfig& acl) {
   switch (acl.aclType()) {
   case Acl::AclType::ipv4:
      return AddressFamily::ipv4;
   case Acl::AclType::ipv6:
      return AddressFamily::ipv6;
   }
   throw AclError{fmt::format("{} is of the unknown type {}", acl.aclConfigKey().view(),
                              static_cast<unsigned>(acl.aclType()))};
}

// The place of the first match in `words`, which holds `count` entries; `count` when there is none.
template <std::size_t size>
std::size_t firstMatch(const U64* words, std::size_t count, const std::array<U64, mostWords>& key) {
   for (std::size_t entry = 0; entry < count; ++entry, words += 2 * size) {
      U64 difference = 0;
      for (std::size_t word = 0; word < size; ++word) {
         difference |= (key[word] ^ words[2 * word]) & words[2 * word + 1];
      }
      if (difference == 0) {
         return entry;
      }
   }
   return count;
}

} // namespace

AclTable::AclTable(const PostcardTelemetryAclConfig& acl)
   : key_{acl.aclConfigKey()}, family_{familyOf(acl)} {
   entries_.reserve(acl.ruleByIndexs());
   for (const auto& rule : acl.ruleByIndex()) {
      add(rule.key(), *rule.value());
   }
   interfacesFrom(acl);
}

void AclTable::add(U32 index, const RuleConfig& rule) {
   RuleReader reader{key_, family_, rule};
   const Words words = reader.words();
   const U8 protocol = rule.ruleFilter()->proto().value();
   auto bucket = std::ranges::find(buckets_, protocol, &Bucket::protocol);
   if (bucket == buckets_.end()) {
      bucket = buckets_.insert(bucket, Bucket{protocol, {}, {}});
   }
   bucket->entry.push_back(static_cast<U32>(entries_.size()));
   for (std::size_t word = 0; word < wordCount(family_); ++word) {
      bucket->words.push_back(words.value[word]);
      bucket->words.push_back(words.mask[word]);
   }
   entries_.push_back(reader.entry(index));
}

void AclTable::interfacesFrom(const PostcardTelemetryAclConfig& acl) {
   interfaces_.clear();
   for (const auto& intf : acl.policyIntf()) {
      interfaces_.push_back(intf);
   }
   std::ranges::sort(interfaces_);
}

bool AclTable::attachedTo(Orlix::IntfId intf) const {
   return intf == Orlix::IntfId{} || std::ranges::binary_search(interfaces_, intf);
}

std::size_t AclTable::find(const Packets::Packet& packet) const {
   if (packet.family != family_) {
      return notFound;
   }
   const auto bucket = std::ranges::find(buckets_, packet.protocol, &Bucket::protocol);
   if (bucket == buckets_.end()) {
      return notFound;
   }
   const auto key = layOut(packet);
   const std::size_t count = bucket->entry.size();
   const std::size_t found = family_ == AddressFamily::ipv4
                                   ? firstMatch<ipv4Words>(bucket->words.data(), count, key)
                                   : firstMatch<mostWords>(bucket->words.data(), count, key);
   return found == count ? notFound : bucket->entry[found];
}

const AclTable::Entry* AclTable::lookup(const Packets::Packet& packet) const {
   const std::size_t place = find(packet);
   return place == notFound ? nullptr : &entries_[place];
}

const AclTable::Entry* AclTable::hit(const Packets::Packet& packet) {
   const std::size_t place = find(packet);
   if (place == notFound) {
      return nullptr;
   }
   entries_[place].hits += 1;
   return &entries_[place];
}

} // namespace Postcard::Classifier
