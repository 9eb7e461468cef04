// `RuleReader`: what one rule of an ACL asks of packets, and what it does with them. Internal to
// this room. Relies on the data model.
#pragma once

#include "postcard/classifier/AclTable.h"
#include "postcard/classifier/RuleMatch.h"

#include <string>

namespace Postcard::Classifier {

class RuleReader {
 public:
   // `acl` names the ACL in messages. Both references must outlive the reader.
   RuleReader(const Pello::String& acl, Orlix::AddressFamily family,
              const OruPostcardTelemetry::RuleConfig& rule)
      : acl_{acl}, family_{family}, rule_{rule} {}

   // What the rule asks of a packet. Throws AclError.
   RuleMatch match() const;
   // What the rule does with a packet, with `index` as its place. Throws AclError.
   AclTable::Entry entry(U32 index) const;

 private:
   [[noreturn]] void fail(const std::string& what) const;
   void checkFamily(const char* side, const Orlix::IpGenPrefix& prefix) const;
   Prefix address(const char* side, const Orlix::IpGenPrefix& prefix) const;
   void sample(RuleMatch& match, const Classification::TcpUdpCheckSumOrIpId& asked) const;

   const Pello::String& acl_;
   Orlix::AddressFamily family_;
   const OruPostcardTelemetry::RuleConfig& rule_;
};

} // namespace Postcard::Classifier
