#include "postcard/report/ExplainCapture.h"

#include "postcard/packets/CaptureFile.h"
#include "postcard/policy/Classes.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <optional>

namespace Postcard::Report {

namespace {

using Packets::Packet;
using Packets::Undecodable;
using Json = nlohmann::ordered_json;

// One packet in this many is sampled; absent: none is.
using Share = std::optional<double>;

Share observedShare(const ClassTotals& totals) {
   return totals.sampled == 0
                ? Share{}
                : static_cast<double>(totals.candidates) / static_cast<double>(totals.sampled);
}

// Every mask bit halves the share.
Share expectedShare(const Policy::Class& each, Policy::Family family) {
   if (!Policy::samples(each)) {
      return std::nullopt;
   }
   const Policy::SampleMatch* sample = Policy::sampleOf(each, family);
   return static_cast<double>(U64{1} << (sample == nullptr ? 0 : std::popcount(sample->mask)));
}

std::string shareText(const Share& share) {
   if (!share) {
      return "none";
   }
   return *share == static_cast<double>(static_cast<U64>(*share))
                ? fmt::format("1 in {:.0f}", *share)
                : fmt::format("1 in {:.1f}", *share);
}

Json shareJson(const Share& share) {
   return share ? Json(*share) : Json(nullptr);
}

} // namespace

CaptureTotals::CaptureTotals(std::vector<ExplainedAcl>& acls) : acls_{acls} {
   for (const ExplainedAcl& acl : acls) {
      totals_.emplace_back().classes.resize(acl.classes().size());
   }
}

std::string CaptureTotals::count(const std::string& file) {
   file_ = file;
   return Packets::readCapture(
         file, [this](const std::variant<Packets::Packet, Packets::Undecodable>& decoded) {
            frames_ += 1;
            if (const auto* packet = std::get_if<Packets::Packet>(&decoded)) {
               countPacket(*packet);
            } else {
               undecodable_.at(static_cast<std::size_t>(std::get<Packets::Undecodable>(decoded))) +=
                     1;
            }
         });
}

void CaptureTotals::countPacket(const Packets::Packet& packet) {
   packets_ += 1;
   bool asked = false;
   for (std::size_t i = 0; i < acls_.size(); ++i) {
      if (acls_[i].concerns(packet)) {
         asked = true;
         countIn(acls_[i], totals_[i], packet);
      }
   }
   unasked_ += asked ? 0U : 1U;
}

void CaptureTotals::countIn(ExplainedAcl& acl, AclTotals& totals, const Packets::Packet& packet) {
   const Explanation explanation = acl.explain(packet);
   totals.packets += 1;
   for (std::size_t i = 0; i < explanation.matched; ++i) {
      // The sample bits are the last that is looked at.
      const std::optional<Miss>& miss = explanation.misses[i];
      totals.classes[i].candidates += miss && miss->field == Field::sample ? 1U : 0U;
   }
   if (explanation.entry != nullptr) {
      ClassTotals& matched = totals.classes[explanation.matched];
      const U64 sampled = explanation.entry->sampled ? 1 : 0;
      matched.candidates += 1;
      matched.matched += 1;
      matched.sampled += sampled;
      totals.matched += 1;
      totals.sampled += sampled;
   }
}

// ---- Text ----

std::string CaptureTotals::aclText(const ExplainedAcl& acl, const AclTotals& totals) const {
   std::string text =
         fmt::format("\n{}: {} packets, {} match a rule, {} sampled\n", acl.table().key().view(),
                     totals.packets, totals.matched, totals.sampled);
   std::size_t width = 5; // "class"
   for (const Policy::Class* each : acl.classes()) {
      width = std::max(width, each->name.text.size());
   }
   text += fmt::format("   {:<{}}  {:>10}  {:>10}  {:>10}  {:>12}  {:>12}\n", "class", width,
                       "candidates", "matched", "sampled", "observed", "expected");
   for (std::size_t i = 0; i < totals.classes.size(); ++i) {
      const ClassTotals& counts = totals.classes[i];
      const Policy::Class& each = *acl.classes()[i];
      text += fmt::format("   {:<{}}  {:>10}  {:>10}  {:>10}  {:>12}  {:>12}\n", each.name.text,
                          width, counts.candidates, counts.matched, counts.sampled,
                          shareText(observedShare(counts)),
                          shareText(expectedShare(each, acl.family())));
   }
   for (const auto& entry : acl.table().entries()) {
      if (entry.hits != 0) {
         text += fmt::format("   rule {} {}: {}\n", entry.index, entry.rule.view(), entry.hits);
      }
   }
   return text;
}

std::string CaptureTotals::text() const {
   std::string text = fmt::format("{}: {} frames, {} packets, {} undecodable\n", file_, frames_,
                                  packets_, frames_ - packets_);
   for (std::size_t reason = 0; reason < undecodable_.size(); ++reason) {
      if (undecodable_[reason] != 0) {
         text += fmt::format("   {}: {}\n",
                             undecodableText(static_cast<Packets::Undecodable>(reason)),
                             undecodable_[reason]);
      }
   }
   if (unasked_ != 0) {
      text += fmt::format("   no ACL is asked about: {}\n", unasked_);
   }
   for (std::size_t i = 0; i < acls_.size(); ++i) {
      text += aclText(acls_[i], totals_[i]);
   }
   return text;
}

// ---- JSON ----

Json CaptureTotals::aclJson(const ExplainedAcl& acl, const AclTotals& totals) const {
   Json classes = Json::array();
   for (std::size_t i = 0; i < totals.classes.size(); ++i) {
      const ClassTotals& counts = totals.classes[i];
      const Policy::Class& each = *acl.classes()[i];
      classes.push_back({{"class", each.name.text},
                         {"candidates", counts.candidates},
                         {"matched", counts.matched},
                         {"sampled", counts.sampled},
                         {"observedOneIn", shareJson(observedShare(counts))},
                         {"expectedOneIn", shareJson(expectedShare(each, acl.family()))}});
   }
   Json rules = Json::array();
   for (const auto& entry : acl.table().entries()) {
      if (entry.hits != 0) {
         rules.push_back(
               {{"index", entry.index}, {"name", entry.rule.view()}, {"packets", entry.hits}});
      }
   }
   return {{"acl", acl.table().key().view()},    {"policy", acl.policy().name.text},
           {"family", familyName(acl.family())}, {"packets", totals.packets},
           {"matched", totals.matched},          {"sampled", totals.sampled},
           {"classes", std::move(classes)},      {"rules", std::move(rules)}};
}

Json CaptureTotals::json() const {
   Json undecodable = Json::object();
   for (std::size_t reason = 0; reason < undecodable_.size(); ++reason) {
      if (undecodable_[reason] != 0) {
         undecodable[std::string{undecodableText(static_cast<Packets::Undecodable>(reason))}] =
               undecodable_[reason];
      }
   }
   Json acls = Json::array();
   for (std::size_t i = 0; i < acls_.size(); ++i) {
      acls.push_back(aclJson(acls_[i], totals_[i]));
   }
   return {{"file", file_},
           {"frames", frames_},
           {"packets", packets_},
           {"withoutAcl", unasked_},
           {"undecodable", std::move(undecodable)},
           {"acls", std::move(acls)}};
}

} // namespace Postcard::Report
