// `CaptureTotals`: what happens to the packets of a capture, summed up by rule and class, with the
// share of packets that is sampled beside the share that the mask promises. Relies on
// `ExplainedAcl` and on the capture reader.
#pragma once

#include "postcard/packets/PacketFrame.h"
#include "postcard/report/ExplainAcl.h"

#include <nlohmann/json.hpp>

#include <array>
#include <string>
#include <vector>

namespace Postcard::Report {

// Of one class of an ACL.
struct ClassTotals {
   // Packets that came to the class and met all of it but, perhaps, the sample bits.
   U64 candidates = 0;
   U64 matched = 0; // of these, those that met the sample bits too
   U64 sampled = 0; // of these, those that are sampled: all or none
};

class CaptureTotals {
 public:
   // `acls` must outlive this.
   explicit CaptureTotals(std::vector<ExplainedAcl>& acls);

   // Counts every frame of the file. Returns what is wrong with the file behind the frames counted,
   // else the empty text. Throws RulesClient::CaptureError.
   std::string count(const std::string& file);

   std::string text() const;
   nlohmann::ordered_json json() const;

 private:
   struct AclTotals {
      U64 packets = 0;
      U64 matched = 0;
      U64 sampled = 0;
      std::vector<ClassTotals> classes; // as in `ExplainedAcl::classes`
   };

   void countPacket(const Packets::Packet& packet);
   static void countIn(ExplainedAcl& acl, AclTotals& totals, const Packets::Packet& packet);
   std::string aclText(const ExplainedAcl& acl, const AclTotals& totals) const;
   nlohmann::ordered_json aclJson(const ExplainedAcl& acl, const AclTotals& totals) const;

   std::vector<ExplainedAcl>& acls_;
   std::vector<AclTotals> totals_; // as `acls_`
   std::string file_;
   U64 frames_ = 0;
   U64 packets_ = 0;
   U64 unasked_ = 0; // packets that no ACL is asked about
   std::array<U64, Packets::undecodableReasons> undecodable_{};
};

} // namespace Postcard::Report
