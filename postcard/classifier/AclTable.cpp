#include "postcard/classifier/AclTable.h"

#include "postcard/classifier/PacketWords.h"
#include "postcard/classifier/RuleReader.h"

#include <fmt/format.h>

#include <algorithm>

namespace Postcard::Classifier {

using Orlix::AddressFamily;
using OruPostcardTelemetry::PostcardTelemetryAclConfig;
using OruPostcardTelemetry::RuleConfig;

namespace {

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
std::size_t firstMatch(const U64* words, std::size_t count, const PacketWords& key) {
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
   const RuleWords words = reader.words();
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
   const PacketWords key = wordsOf(packet);
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
