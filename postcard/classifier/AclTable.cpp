#include "postcard/classifier/AclTable.h"

#include "postcard/classifier/RuleReader.h"

#include <fmt/format.h>

#include <algorithm>

namespace Postcard::Classifier {

using Orlix::AddressFamily;
using OruPostcardTelemetry::PostcardTelemetryAclConfig;

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

std::vector<RuleMatch> matchesOf(const PostcardTelemetryAclConfig& acl, AddressFamily family) {
   std::vector<RuleMatch> matches;
   matches.reserve(acl.ruleByIndexs());
   for (const auto& rule : acl.ruleByIndex()) {
      matches.push_back(RuleReader{acl.aclConfigKey(), family, *rule.value()}.match());
   }
   return matches;
}

} // namespace

AclTable::AclTable(const PostcardTelemetryAclConfig& acl)
   : key_{acl.aclConfigKey()}, family_{familyOf(acl)}, index_{family_, matchesOf(acl, family_)} {
   entries_.reserve(acl.ruleByIndexs());
   for (const auto& rule : acl.ruleByIndex()) {
      entries_.push_back(RuleReader{key_, family_, *rule.value()}.entry(rule.key()));
   }
   interfacesFrom(acl);
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

const AclTable::Entry* AclTable::lookup(const Packets::Packet& packet) const {
   const std::size_t place = index_.first(packet);
   return place == RuleIndex::notFound ? nullptr : &entries_[place];
}

const AclTable::Entry* AclTable::hit(const Packets::Packet& packet) {
   const std::size_t place = index_.first(packet);
   if (place == RuleIndex::notFound) {
      return nullptr;
   }
   entries_[place].hits += 1;
   return &entries_[place];
}

} // namespace Postcard::Classifier
