#include "postcard/report/explain/ExplainedAcl.h"

#include "postcard/host/RuleNames.h"
#include "postcard/policy/Classes.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace Postcard::Report {

namespace {

using Classifier::RuleMatch;
using Classes = std::vector<const Policy::Class*>;

// For each entry of the table the class that its rule was made for; the number of classes when its
// name is that of none.
std::vector<std::size_t> classesOfEntries(const Classifier::AclTable& table, const Classes& classes,
                                          Policy::Family family) {
   std::unordered_map<std::string_view, std::size_t> byName;
   for (std::size_t i = 0; i < classes.size(); ++i) {
      byName.emplace(classes[i]->name.text, i);
   }
   std::vector<std::size_t> indexes;
   indexes.reserve(table.entries().size());
   for (const Classifier::AclTable::Entry& entry : table.entries()) {
      const auto found = byName.find(Host::classOfRule(entry.rule.view(), family));
      indexes.push_back(found == byName.end() ? classes.size() : found->second);
   }
   return indexes;
}

RuleMatch addressesOf(const Policy::Filter& filter) {
   RuleMatch match;
   if (!filter.source.empty()) {
      match.source = Classifier::prefixOf(filter.source.front().value);
   }
   if (!filter.destination.empty()) {
      match.destination = Classifier::prefixOf(filter.destination.front().value);
   }
   return match;
}

} // namespace

ExplainedAcl::ExplainedAcl(const Policy::Policy& policy, Policy::Family family,
                           const Policy::Hardware& hardware,
                           const OruPostcardTelemetry::PostcardTelemetryAclConfig& acl)
   : policy_{&policy},
     family_{family},
     hardware_{&hardware},
     table_{acl},
     classes_{classesInOrder(policy, family)},
     classOfEntry_{classesOfEntries(table_, classes_, family)},
     reach_{table_.family(), reachOfClasses()} {}

std::vector<RuleMatch> ExplainedAcl::reachOfClasses() {
   std::vector<RuleMatch> matches;
   for (std::size_t i = 0; i < classes_.size(); ++i) {
      const Policy::Filter& filter = *classes_[i]->filter(family_);
      RuleMatch match = addressesOf(filter);
      const auto add = [&](U8 protocol) {
         match.protocol = protocol;
         matches.push_back(match);
         classOfMatch_.push_back(i);
      };
      for (const Policy::ProtocolMatch& each : filter.protocols) {
         add(each.low);
      }
      if (filter.protocols.empty()) {
         add(Packets::protocolTcp);
         add(Packets::protocolUdp);
      }
   }
   return matches;
}

void ExplainedAcl::originsFrom(const OruPostcardTelemetry::PostcardTelemetryAclConfig& acl) {
   std::vector<Host::RuleOrigin> origins;
   origins.reserve(acl.ruleByIndexs());
   Host::forEachRule({*policy_, family_, hardware_->tcpFlags, acl},
                     [&](U32 /*index*/, const auto& /*rule*/, const Host::RuleOrigin& origin) {
                        origins.push_back(origin);
                     });
   origins_ = std::move(origins);
}

std::size_t ExplainedAcl::placeOf(const Classifier::AclTable::Entry& entry) const {
   return static_cast<std::size_t>(&entry - table_.entries().data());
}

std::optional<Host::RuleOrigin>
ExplainedAcl::originOf(const Classifier::AclTable::Entry& entry) const {
   return origins_.empty() ? std::nullopt : std::optional{origins_[placeOf(entry)]};
}

bool ExplainedAcl::concerns(const Packets::Packet& packet) const {
   return packet.family == table_.family() && table_.attachedTo(packet.intf);
}

Verdict ExplainedAcl::explain(const Packets::Packet& packet) {
   Verdict verdict;
   verdict.entry = table_.hit(packet);
   for (const Policy::Class* each : classes_) {
      verdict.misses.push_back(firstMiss(*each, *hardware_, packet));
   }
   const auto matched = std::ranges::find_if(verdict.misses,
                                             [](const std::optional<Miss>& miss) { return !miss; });
   verdict.matched = static_cast<std::size_t>(matched - verdict.misses.begin());
   requireAgreement({verdict.entry, verdict.matched}, packet);
   return verdict;
}

Decision ExplainedAcl::decide(const Packets::Packet& packet, std::vector<std::size_t>& almost) {
   Decision decision{table_.hit(packet), classes_.size()};
   almost.clear();
   reach_.visitAll(packet, [&](std::size_t match) {
      const std::size_t each = classOfMatch_[match];
      const std::optional<Field> missed = missedField(*classes_[each], *hardware_, packet);
      if (!missed) {
         decision.matched = each;
      } else if (*missed == Field::sample) {
         almost.push_back(each);
      }
      return !missed;
   });
   requireAgreement(decision, packet);
   return decision;
}

// The rules and the classes describe the same policy and were evaluated independently. When they
// disagree, an explanation from the classes would be wrong about what the rules do.
void ExplainedAcl::requireAgreement(const Decision& decision, const Packets::Packet& packet) const {
   const std::size_t classOfRule =
         decision.entry == nullptr ? classes_.size() : classOfEntry_[placeOf(*decision.entry)];
   const bool matched = decision.matched < classes_.size();
   if (classOfRule != decision.matched || matched != (decision.entry != nullptr)) {
      throw std::logic_error{table_.key().str() +
                             " does something else than its classes say with " +
                             printPacket(packet)};
   }
}

} // namespace Postcard::Report
