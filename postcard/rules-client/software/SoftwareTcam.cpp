#include "postcard/rules-client/software/SoftwareTcam.h"

#include <fmt/format.h>

#include <utility>

namespace Postcard::RulesClient {

// ---- Requests ----

void SoftwareTcam::program(const AclConfig& acl, Reply reply) {
   Outcome outcome;
   try {
      outcome = hold(Classifier::AclTable{acl});
   } catch (const Classifier::AclError& error) {
      outcome = {Outcome::invalid, error.what()};
   }
   // Outside the `try`, and last: the reply may destroy this object.
   reply(std::move(outcome));
}

Outcome SoftwareTcam::hold(Classifier::AclTable table) {
   const Classifier::AclTable* old = acl(table.key());
   // The new version may use the entries of the old one, because it replaces it in one step.
   const std::size_t freed = old == nullptr ? 0 : old->entries().size();
   const std::size_t free = available() + freed;
   const std::size_t needed = table.entries().size();
   if (needed > free) {
      return {Outcome::full, fmt::format("{} needs {} entries, {} of {} are free",
                                         table.key().view(), needed, free, capacity_)};
   }
   const Pello::String key = table.key(); // a copy, because the next line moves the table
   acls_.insert_or_assign(key, std::move(table));
   used_ = used_ - freed + needed;
   return {};
}

void SoftwareTcam::remove(const Pello::String& key, Reply reply) {
   const auto found = acls_.find(key);
   if (found == acls_.end()) {
      return reply({Outcome::invalid,
                    fmt::format("{} cannot be deleted: it is not programmed", key.view())});
   }
   used_ -= found->second.entries().size();
   acls_.erase(found);
   reply({});
}

void SoftwareTcam::interfacesChanged(const AclConfig& acl, Reply reply) {
   const auto found = acls_.find(acl.aclConfigKey());
   if (found == acls_.end()) {
      return reply({Outcome::invalid,
                    fmt::format("the interfaces of {} cannot be updated: it is not programmed",
                                acl.aclConfigKey().view())});
   }
   found->second.interfacesFrom(acl);
   reply({});
}

// ---- What is held ----

const Classifier::AclTable* SoftwareTcam::acl(const Pello::String& key) const {
   const auto found = acls_.find(key);
   return found == acls_.end() ? nullptr : &found->second;
}

std::vector<SoftwareTcam::Verdict> SoftwareTcam::classify(const Packets::Packet& packet) {
   std::vector<Verdict> verdicts;
   for (auto& [key, table] : acls_) {
      if (!table.attachedTo(packet.intf)) {
         continue;
      }
      if (const Classifier::AclTable::Entry* entry = table.hit(packet)) {
         verdicts.push_back(
               {key, entry->index, entry->rule, entry->sampled, entry->dscpAfter(packet.dscp)});
      }
   }
   return verdicts;
}

} // namespace Postcard::RulesClient
