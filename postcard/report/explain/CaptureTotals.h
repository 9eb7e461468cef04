// `CaptureTotals`: what happens to all packets of a capture, summed up by rule and class, as a
// value, as text and as JSON. `CaptureCounter` computes it frame by frame. Relies on
// `ExplainedAcl`. The caller reads the capture file; this room needs no libpcap.
//
// The share of packets that was sampled is given together with the share that the sample mask
// promises. When the two differ, the compared bits of this traffic are not as random as the mask
// assumes.
#pragma once

#include "postcard/packets/PacketFrame.h"
#include "postcard/report/Refusal.h"
#include "postcard/report/explain/ExplainedAcl.h"
#include "postcard/report/explain/NoAcl.h"

#include <nlohmann/json_fwd.hpp>

#include <array>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace Postcard::Report {

// A share of packets, as the number N in "1 in N", at least 1. Absent: no packet at all.
using Share = std::optional<double>;

// Packets of one class of an ACL.
struct ClassTotals {
   std::string name;
   // Packets that no earlier class matched, and that match everything in this class with the
   // possible exception of the sample match.
   U64 candidates = 0;
   U64 matched = 0; // of `candidates`, those that match the sample match too
   U64 sampled = 0; // of `matched`, those that are sampled: all or none
   Share expected;  // share of `candidates` that the sample mask promises; absent: it never samples

   // The share of `candidates` that was sampled. Absent when none was.
   Share observed() const;
};

// Packets of one rule of an ACL.
struct RuleTotals {
   U32 index; // in the order of matching
   std::string name;
   U64 packets;
};

// Packets of one family that are looked up in no ACL.
struct PacketsWithoutAcl {
   Policy::Family family = Policy::Family::ipv4;
   U64 packets = 0; // never 0
   NoAcl reason;    // a capture names no interface, so all of them have the same
};

// Packets that were looked up in one ACL.
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
   U64 cutHeaders = 0; // of `packets`, those whose TCP or UDP header is cut off
   U64 withoutAcl = 0; // of `packets`, those that are looked up in no ACL
   std::vector<PacketsWithoutAcl> withoutAclBy; // the same by family; one for each that occurred
   // Frames that could not be decoded, by the number of the `Packets::Undecodable` that says why.
   std::array<U64, Packets::undecodableReasons> undecodable{};
   std::vector<AclTotals> acls;
   std::vector<Refusal> refused; // policies without an ACL; they have no part in the totals
};

class CaptureCounter {
 public:
   // Refers to `acls`, which must outlive this object and keep its size; they are those that the
   // policies of `scope` became. The tables of `acls` count the hits of rules, so hits from before
   // are part of the totals: hand over fresh ones.
   CaptureCounter(std::vector<ExplainedAcl>& acls, Scope scope);

   // Counts one frame: a packet, or the reason why it could not be decoded. Throws what
   // `ExplainedAcl::decide` throws. Allocates nothing, once it has seen a few packets.
   void count(const std::variant<Packets::Packet, Packets::Undecodable>& frame);

   // The totals of all frames so far. `file` and `refused` are empty: the caller sets them.
   CaptureTotals totals() const;

 private:
   void countPacket(const Packets::Packet& packet);
   void countIn(ExplainedAcl& acl, AclTotals& totals, const Packets::Packet& packet);

   std::vector<ExplainedAcl>& acls_;
   Scope scope_;
   CaptureTotals totals_; // its `acls` stand in the order of `acls_`, without their `rules`
   std::array<U64, 2> withoutAcl_{}; // packets in no ACL, by the number of their family
   std::vector<std::size_t> almost_; // as `ExplainedAcl::decide` fills it; kept for its memory
};

// The counts of frames, then for each ACL a table of its classes and the rules that matched a
// packet. Refusals are not in the text: they are messages, on standard error.
std::string text(const CaptureTotals& totals);

// A whole document: {"schema", "capture", "refused"}. "observedOneIn" and "expectedOneIn" of a
// class are null where the share is absent. "withoutAclBy" has {"family", "packets", "code",
// "text", "guess"} for each family with packets that no ACL is asked about.
nlohmann::ordered_json json(const CaptureTotals& totals);

} // namespace Postcard::Report
