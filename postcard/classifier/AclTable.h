// `AclTable`: one ACL as a ternary memory holds it, and the first match in it. Relies on the data
// model for the ACL and on `Packet` for what is matched.
//
// Everything that an entry can ask of a packet is laid out in a few 64-bit words, the same way for
// entries and packets: addresses, then one word of protocol, flags and ports, then one word of
// checksum and identification. An entry is value and mask of these words; it matches when no bit
// under its mask differs. So a match costs a handful of operations whatever the entry asks, and a
// look-up is a scan over a flat array. Since every rule names its protocol, entries are kept by
// protocol and only those of the packet's own are scanned. IPv4 takes three words, IPv6 six.
//
// A field that the packet does not have must not match, not even as zero. Therefore each kind of
// field has a bit that says "the packet has it", and an entry that asks for the field also asks for
// that bit. A port match whose mask is 0 still asks for the ports: a later fragment has none and
// does not match 0-65535.
//
// The table copies the ACL, except for the texts of names, which both share and nobody changes. So
// the ACL may be changed or dropped afterwards.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfig.h"
#include "postcard/packets/Packet.h"

#include <array>
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
   // The entries of one protocol, `2 * words()` numbers each: value and mask of the first word,
   // of the second word, and so on.
   struct Bucket {
      U8 protocol;
      std::vector<U64> words;
      std::vector<U32> entry; // place in `entries_`, ascending
   };

   static constexpr std::size_t notFound = static_cast<std::size_t>(-1);

   void add(U32 index, const OruPostcardTelemetry::RuleConfig& rule);
   std::size_t find(const Packets::Packet& packet) const;

   Pello::String key_;
   Orlix::AddressFamily family_;
   std::vector<Entry> entries_;
   std::vector<Bucket> buckets_; // in the order in which protocols first appear; one or two
   std::vector<Orlix::IntfId> interfaces_;
};

} // namespace Postcard::Classifier
