// `CaptureTotals`: what happens to all packets of a capture, summed up by rule and class, as a
// value, as text and as JSON; `CaptureCounter` adds it up frame by frame. Relies on `ExplainedAcl`.
// Knows no capture file: who reads one hands over its frames.
//
// Beside the share of packets that is sampled stands the share that the sample mask promises, so
// that an operator sees whether the traffic is as random as the mask assumes.
#pragma once

#include "postcard/packets/PacketFrame.h"
#include "postcard/report/ExplainedAcl.h"
#include "postcard/report/Refusal.h"

#include <nlohmann/json_fwd.hpp>

#include <array>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace Postcard::Report {

// A share of packets, as the number N in "1 in N"; absent: none.
using Share = std::optional<double>;

// Packets of one class of an ACL.
struct ClassTotals {
   std::string name;
   U64 candidates = 0; // reached the class and met all of it except, perhaps, the sample match
   U64 matched = 0;    // of `candidates`, those that met the sample match too
   U64 sampled = 0;    // of `matched`, those that are sampled: all or none
   Share expected;     // share of `candidates` that the sample mask promises to sample

   // The share of `candidates` that was sampled.
   Share observed() const;
};

// Packets of one rule of an ACL.
struct RuleTotals {
   U32 index; // in the order of matching
   std::string name;
   U64 packets;
};

// Packets that one ACL was asked about.
struct AclTotals {
   std::string acl;    // its key, such as "web-ipv4"
   std::string policy; // its name
   Policy::Family family = Policy::Family::ipv4;
   U64 packets = 0;
   U64 matched = 0;                  // of `packets`, those that a rule matched
   U64 sampled = 0;                  // of `matched`, those that are sampled
   std::vector<ClassTotals> classes; // in the order of matching
   std::vector<RuleTotals> rules;    // those that matched a packet, in the order of matching
};

struct CaptureTotals {
   std::string file; // name of the capture; need not be UTF-8
   U64 frames = 0;
   U64 packets = 0;    // frames that could be decoded
   U64 withoutAcl = 0; // of `packets`, those that no ACL is asked about
   std::array<U64, Packets::undecodableReasons> undecodable{}; // frames by `Packets::Undecodable`
   std::vector<AclTotals> acls;
   std::vector<Refusal> refused; // policies that have no ACL and therefore no part in the totals
};

class CaptureCounter {
 public:
   // Refers to `acls`, which must outlive this object. Hits that their tables have counted before
   // are part of the totals of rules.
   explicit CaptureCounter(std::vector<ExplainedAcl>& acls);

   // Counts one frame. Throws what `ExplainedAcl::explain` throws.
   void count(const std::variant<Packets::Packet, Packets::Undecodable>& frame);

   // The totals of all frames so far, without `file` and `refused`, which the caller knows.
   CaptureTotals totals() const;

 private:
   void countPacket(const Packets::Packet& packet);
   static void countIn(ExplainedAcl& acl, AclTotals& totals, const Packets::Packet& packet);

   std::vector<ExplainedAcl>& acls_;
   CaptureTotals totals_; // `acls` as `acls_`, without `rules`
};

// The frames, then for each ACL a table of its classes and the rules that matched a packet.
// Refusals are not in it.
std::string text(const CaptureTotals& totals);

// A whole document: {"schema", "capture", "refused"}.
nlohmann::ordered_json json(const CaptureTotals& totals);

} // namespace Postcard::Report
