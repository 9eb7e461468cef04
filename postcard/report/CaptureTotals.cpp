#include "postcard/report/CaptureTotals.h"

#include "postcard/policy/Classes.h"

#include <bit>

namespace Postcard::Report {

namespace {

Share expectedShare(const Policy::Class& each, Policy::Family family) {
   if (!samples(each)) {
      return std::nullopt;
   }
   const Policy::SampleMatch* sample = sampleOf(each, family);
   // Every bit of the mask halves the share.
   return static_cast<double>(U64{1} << (sample == nullptr ? 0 : std::popcount(sample->mask)));
}

// The totals of an ACL before the first packet.
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

CaptureCounter::CaptureCounter(std::vector<ExplainedAcl>& acls) : acls_{acls} {
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
   bool concerned = false;
   for (std::size_t i = 0; i < acls_.size(); ++i) {
      if (acls_[i].concerns(packet)) {
         concerned = true;
         countIn(acls_[i], totals_.acls[i], packet);
      }
   }
   totals_.withoutAcl += concerned ? 0U : 1U;
}

void CaptureCounter::countIn(ExplainedAcl& acl, AclTotals& totals, const Packets::Packet& packet) {
   const Verdict verdict = acl.explain(packet);
   totals.packets += 1;
   // A class before the matching one did not have the packet. When only the sample match kept the
   // packet out, the packet is a candidate of that class; the sample match is compared last, so
   // that a miss there means that all other fields match.
   for (std::size_t i = 0; i < verdict.matched; ++i) {
      const std::optional<Miss>& miss = verdict.misses[i];
      totals.classes[i].candidates += miss && miss->field == Field::sample ? 1U : 0U;
   }
   if (verdict.entry != nullptr) {
      ClassTotals& matched = totals.classes[verdict.matched];
      const U64 sampled = verdict.entry->sampled ? 1 : 0;
      matched.candidates += 1;
      matched.matched += 1;
      matched.sampled += sampled;
      totals.matched += 1;
      totals.sampled += sampled;
   }
}

CaptureTotals CaptureCounter::totals() const {
   CaptureTotals totals = totals_;
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
