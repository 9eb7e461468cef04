// `AclTable`: one ACL as a ternary memory holds it, and the first match in it. Relies on the data
// model for the ACL, on `Packet` for what is matched, and on `RuleIndex` to find the match.
//
// The table copies the ACL, except for the texts of names, which both share and nobody changes. So
// the ACL may be changed or dropped afterwards. A changed ACL needs a new table, which replaces the
// old one as a whole; only the interfaces can be taken over alone.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfig.h"
#include "postcard/classifier/RuleIndex.h"
#include "postcard/packets/Packet.h"

#include <stdexcept>
#include <vector>

namespace Postcard::Classifier {

// The ACL cannot be held by a ternary memory; the text names the rule and says what is wrong.
class AclError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

class AclTable {
 public:
   // One rule in the memory.
   struct Entry {
      U32 index;          // of the rule in the ACL; ascending, the order of matching
      Pello::String rule; // its name
      bool sampled;       // a digest of the packet goes to the collector
      U8 dscpData;        // bits that are written into the packet's DSCP,
      U8 dscpMask;        // under this mask; 0: the packet keeps its DSCP
      U64 hits = 0;       // packets that `hit` has found here

      // The DSCP of a packet that came with `dscp`.
      U8 dscpAfter(U8 dscp) const noexcept {
         return static_cast<U8>((dscp & ~dscpMask) | (dscpData & dscpMask));
      }
   };

   // Copies rules and interfaces of `acl`. Throws AclError for a rule without filter or action,
   // with a prefix of another family (except "0.0.0.0/0", which means every address of any family),
   // with an unknown sample field, or with an action that is neither sampling nor marking.
   explicit AclTable(const OruPostcardTelemetry::PostcardTelemetryAclConfig& acl);

   const Pello::String& key() const noexcept { return key_; } // `aclConfigKey` of the ACL
   Orlix::AddressFamily family() const noexcept { return family_; }
   const std::vector<Entry>& entries() const noexcept { return entries_; }
   // The compiled rules; a place in it is a place in `entries`.
   const RuleIndex& index() const noexcept { return index_; }
   // Ascending by number; no two equal.
   const std::vector<Orlix::IntfId>& interfaces() const noexcept { return interfaces_; }
   // Whether packets of `intf` are looked up here. "No interface" stands for any.
   bool attachedTo(Orlix::IntfId intf) const;

   // Replaces the interfaces by those of `acl`, and takes over nothing else of it.
   void interfacesFrom(const OruPostcardTelemetry::PostcardTelemetryAclConfig& acl);

   // The first entry that matches, or null. Packets of the other family match nothing. Valid as
   // long as the table is.
   const Entry* lookup(const Packets::Packet& packet) const;
   // The same, and counts the hit.
   const Entry* hit(const Packets::Packet& packet);

 private:
   Pello::String key_;
   Orlix::AddressFamily family_;
   RuleIndex index_; // of `entries_`, place by place
   std::vector<Entry> entries_;
   std::vector<Orlix::IntfId> interfaces_;
};

} // namespace Postcard::Classifier
