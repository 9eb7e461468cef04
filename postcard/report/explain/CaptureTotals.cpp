#include "postcard/report/explain/CaptureTotals.h"

#include "postcard/policy/Classes.h"

#include <bit>
#include <utility>

namespace Postcard::Report {

namespace {

// The share of packets that a class samples when the compared field is random. 1 in 1 for a class
// without a sample match that counts, which samples every packet.
Share expectedShare(const Policy::Class& each, Policy::Family family) {
   if (!samples(each)) {
      return std::nullopt;
   }
   const Policy::SampleMatch* sample = sampleOf(each, family);
   // Every bit of the mask halves the share: a random bit agrees with the data half of the time.
   return static_cast<double>(U64{1} << (sample == nullptr ? 0 : std::popcount(sample->mask)));
}

// The totals of an ACL before the first packet: what is known without one, and zeros.
AclTotals noPackets(const ExplainedAcl& acl) {
   AclTotals totals;
   totals.acl = acl.table().key().str();
   totals.policy = acl.policy().name.text;
   totals.family = acl.family();
   for (const Policy::Class* each : acl.classes()) {
      totals.classes.emplace_back().name = each->name.text;
      totals.classes.back().expected = expectedShare(*each, acl.family());
   }
   return totals;
}

} // namespace

Share ClassTotals::observed() const {
   return sampled == 0 ? Share{} : static_cast<double>(candidates) / static_cast<double>(sampled);
}

CaptureCounter::CaptureCounter(std::vector<ExplainedAcl>& acls, Scope scope)
   : acls_{acls}, scope_{std::move(scope)} {
   for (const ExplainedAcl& acl : acls) {
      totals_.acls.push_back(noPackets(acl));
   }
}

void CaptureCounter::count(const std::variant<Packets::Packet, Packets::Undecodable>& frame) {
   totals_.frames += 1;
   if (const auto* packet = std::get_if<Packets::Packet>(&frame)) {
      countPacket(*packet);
   } else {
      totals_.undecodable.at(static_cast<std::size_t>(std::get<Packets::Undecodable>(frame))) += 1;
   }
}

void CaptureCounter::countPacket(const Packets::Packet& packet) {
   totals_.packets += 1;
   totals_.cutHeaders += packet.headerIsCut() ? 1U : 0U;
   // An interface may be attached to several policies: each of them counts the packet.
   bool concerned = false;
   for (std::size_t i = 0; i < acls_.size(); ++i) {
      if (acls_[i].concerns(packet)) {
         concerned = true;
         countIn(acls_[i], totals_.acls[i], packet);
      }
   }
   if (!concerned) {
      totals_.withoutAcl += 1;
      withoutAcl_.at(packet.family == Orlix::AddressFamily::ipv4 ? 0 : 1) += 1;
   }
}

void CaptureCounter::countIn(ExplainedAcl& acl, AclTotals& totals, const Packets::Packet& packet) {
   const Decision decision = acl.decide(packet, almost_);
   totals.packets += 1;
   // When only the sample match kept a packet out of an earlier class, the packet is a candidate of
   // that class.
   for (const std::size_t each : almost_) {
      totals.classes[each].candidates += 1;
   }
   if (decision.entry != nullptr) {
      ClassTotals& matched = totals.classes[decision.matched];
      const U64 sampled = decision.entry->sampled ? 1 : 0;
      matched.candidates += 1;
      matched.matched += 1;
      matched.sampled += sampled;
      totals.matched += 1;
      totals.sampled += sampled;
   }
}

// The tables have counted the packets of each rule already, so they are read from there. Rules
// without packets are left out: an ACL may have many thousands.
CaptureTotals CaptureCounter::totals() const {
   CaptureTotals totals = totals_;
   for (const Policy::Family family : {Policy::Family::ipv4, Policy::Family::ipv6}) {
      if (const U64 packets = withoutAcl_.at(static_cast<std::size_t>(family)); packets != 0) {
         totals.withoutAclBy.push_back({family, packets, whyNoAcl(scope_, family)});
      }
   }
   for (std::size_t i = 0; i < acls_.size(); ++i) {
      for (const auto& entry : acls_[i].table().entries()) {
         if (entry.hits != 0) {
            totals.acls[i].rules.push_back({entry.index, entry.rule.str(), entry.hits});
         }
      }
   }
   return totals;
}

} // namespace Postcard::Report
