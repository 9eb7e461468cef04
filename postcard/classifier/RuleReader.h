// `RuleReader`: what one rule of an ACL asks of packets, and what it does with them. Internal to
// this room. Relies on the layout in `PacketWords.h`.
#pragma once

#include "postcard/classifier/AclTable.h"
#include "postcard/classifier/PacketWords.h"

#include <string>

namespace Postcard::Classifier {

class RuleReader {
 public:
   // `acl` names the ACL in messages. Both references must outlive the reader.
   RuleReader(const Pello::String& acl, Orlix::AddressFamily family,
              const OruPostcardTelemetry::RuleConfig& rule)
      : acl_{acl}, family_{family}, rule_{rule} {}

   // What the rule asks of a packet, except its protocol. Called once. Throws AclError.
   RuleWords words();
   // What the rule does with a packet, with `index` as its place. Throws AclError.
   AclTable::Entry entry(U32 index) const;

 private:
   [[noreturn]] void fail(const std::string& what) const;
   void checkFamily(const char* side, const Orlix::IpGenPrefix& prefix) const;
   void addresses(const Orlix::IpGenPrefix& source, const Orlix::IpGenPrefix& destination);
   void address(std::size_t word, const Orlix::IpGenPrefix& prefix);
   void port(bool valid, const OruPostcardTelemetry::L4PortDataMask& match, unsigned at);
   void sample(const Classification::TcpUdpCheckSumOrIpId& match);

   const Pello::String& acl_;
   Orlix::AddressFamily family_;
   const OruPostcardTelemetry::RuleConfig& rule_;
   RuleWords words_;
};

} // namespace Postcard::Classifier
