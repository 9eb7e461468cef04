// `SoftwareTcam`: a rules client that programs a ternary memory (TCAM) simulated in this process.
// It holds ACLs up to a capacity and classifies packets with them. Relies on `AclTable` for the
// ACLs; a `Conversation` calls it.
//
// An ACL is held as a whole or not at all. A new version replaces the old one in one step and may
// use its room; when the new one does not fit, the old one stays in force. Outcomes are returned
// inside the call: `full` when entries are lacking, `invalid` for an ACL that a ternary memory
// cannot hold, such as one with an unknown action.
#pragma once

#include "postcard/classifier/AclTable.h"
#include "postcard/rules-client/RulesClient.h"

#include <map>
#include <vector>

namespace Postcard::RulesClient {

class SoftwareTcam : public RulesClient {
 public:
   static constexpr std::size_t defaultCapacity = 4096; // entries

   // What one ACL does with a packet.
   struct Verdict {
      Pello::String acl;  // its key
      U32 index;          // of the rule that matched
      Pello::String rule; // its name
      bool sampled;       // whether a digest of the packet goes to the collector
      U8 dscp;            // the DSCP of the packet after the rule has rewritten it, 0..63

      friend bool operator==(const Verdict&, const Verdict&) = default;
   };

   using Acls = std::map<Pello::String, Classifier::AclTable>;

   // `capacity` is the number of entries for all ACLs together. Each index of an ACL takes one.
   explicit SoftwareTcam(std::size_t capacity = defaultCapacity) : capacity_{capacity} {}

   // See `RulesClient` for the contracts.
   void program(const AclConfig& acl, Reply reply) override;
   void remove(const Pello::String& key, Reply reply) override;
   void interfacesChanged(const AclConfig& acl, Reply reply) override;

   std::size_t capacity() const noexcept { return capacity_; }
   std::size_t used() const noexcept { return used_; }          // entries
   std::size_t available() const { return capacity_ - used(); } // entries

   // The ACLs in force, by key, with their entries, interfaces and hit counters. A new version of
   // an ACL begins with counters of 0.
   const Acls& acls() const noexcept { return acls_; }
   // The ACL in force under `key`, or null. Valid until the next request for that ACL.
   const Classifier::AclTable* acl(const Pello::String& key) const;

   // Looks the packet up in every ACL of its family that has the packet's interface, and in all
   // ACLs of its family when the packet has no interface. Counts the hits and returns one verdict
   // for each ACL with a rule that matches, in the order of the keys of the ACLs.
   std::vector<Verdict> classify(const Packets::Packet& packet);

 private:
   // Puts `table` into force, or returns why it does not fit.
   Outcome hold(Classifier::AclTable table);

   std::size_t capacity_; // entries
   std::size_t used_ = 0; // entries of all `acls_`
   Acls acls_;
};

} // namespace Postcard::RulesClient
