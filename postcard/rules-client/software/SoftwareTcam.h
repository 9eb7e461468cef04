// `SoftwareTcam`: a rules client in this process. It holds ACLs as far as there is room, and
// classifies packets with them. Relies on `AclTable` for the ACLs; a `Conversation` drives it.
//
// An ACL is held as a whole or not at all. A new version replaces the old one in one step and may
// use its room; when it does not fit, the old one stays in force. Outcomes come at once: `full`
// when entries are lacking, `invalid` for an ACL that a ternary memory cannot hold.
#pragma once

#include "postcard/classifier/AclTable.h"
#include "postcard/rules-client/RulesClient.h"

#include <map>
#include <vector>

namespace Postcard::RulesClient {

class SoftwareTcam : public RulesClient {
 public:
   static constexpr std::size_t defaultCapacity = 4096; // entries

   // What became of a packet in one ACL.
   struct Verdict {
      Pello::String acl;  // its key
      U32 index;          // of the rule that matched
      Pello::String rule; // its name
      bool sampled;
      U8 dscp; // the packet's, after rewriting

      friend bool operator==(const Verdict&, const Verdict&) = default;
   };

   using Acls = std::map<Pello::String, Classifier::AclTable>;

   // `capacity` counts the entries of all ACLs together; one rule takes one entry.
   explicit SoftwareTcam(std::size_t capacity = defaultCapacity) : capacity_{capacity} {}

   // What it does for a conversation; see `RulesClient`.
   void program(const AclConfig& acl, Reply reply) override;
   void remove(const Pello::String& key, Reply reply) override;
   void interfacesChanged(const AclConfig& acl, Reply reply) override;

   std::size_t capacity() const noexcept { return capacity_; }
   std::size_t used() const;                                    // entries
   std::size_t available() const { return capacity_ - used(); } // entries

   // The ACLs in force, by key, with their entries, interfaces and hit counters.
   const Acls& acls() const noexcept { return acls_; }
   // The ACL, or null when there is none. Valid until the next request for that ACL.
   const Classifier::AclTable* acl(const Pello::String& key) const;

   // Looks the packet up in every ACL of its family that its interface is attached to, counts the
   // hits, and returns them in the order of the ACLs' keys. A packet without interface is looked up
   // in every ACL of its family.
   std::vector<Verdict> classify(const Packets::Packet& packet);

 private:
   Outcome hold(Classifier::AclTable table);

   std::size_t capacity_;
   Acls acls_;
};

} // namespace Postcard::RulesClient
