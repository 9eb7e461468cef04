#include "postcard/report/explain/Expectation.h"

#include "Pello/VisibleCharacters.h"
#include "postcard/policy/Words.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace Postcard::Report {

namespace {

constexpr std::string_view classKey = "class=";

// "class 'web' of ACL p-ipv4", for the rule that has the packet there.
std::string whoHas(const AclExplanation& acl) {
   return fmt::format("class {} of ACL {}", Policy::inQuotes(acl.classes[acl.matched].name),
                      acl.acl);
}

// What happens to the packet in each ACL, such as "class 'web' of ACL p-ipv4 samples it".
std::string outcome(const PacketExplanation& packet) {
   if (packet.noAcl) {
      return "no ACL is asked about it: " + text(*packet.noAcl);
   }
   std::vector<std::string> parts;
   parts.reserve(packet.acls.size());
   for (const AclExplanation& acl : packet.acls) {
      parts.push_back(!acl.rule     ? fmt::format("no rule of ACL {} matches it", acl.acl)
                      : acl.sampled ? whoHas(acl) + " samples it"
                                    : whoHas(acl) + " has it and does not sample it");
   }
   return fmt::format("{}", fmt::join(parts, ", "));
}

} // namespace

bool isExpectation(std::string_view text) {
   return text == "sampled" || text == "not-sampled" ||
          (text.starts_with(classKey) && text.size() > classKey.size());
}

Expectation::Expectation(std::string text) : text_{std::move(text)} {
   if (text_.starts_with(classKey)) {
      className_ = text_.substr(classKey.size());
   }
}

std::optional<std::string> Expectation::mistake(const Scope& scope) const {
   std::vector<std::string_view> names;
   for (const Policy::Policy* policy : scope.policies) {
      for (const Policy::Class& each : policy->classes) {
         names.emplace_back(each.name.text);
      }
   }
   if (className_.empty() || std::ranges::find(names, className_) != names.end()) {
      return std::nullopt;
   }
   return fmt::format("no policy has a class {}{}", Policy::inQuotes(className_),
                      Policy::didYouMean(Policy::closest(className_, names)));
}

// An interface may have several policies, so several ACLs may be asked about one packet.
bool Expectation::isMet(const PacketExplanation& packet) const {
   const auto inAnAcl = [&](const auto& holds) { return std::ranges::any_of(packet.acls, holds); };
   if (!className_.empty()) {
      return inAnAcl([&](const AclExplanation& acl) {
         return acl.rule && acl.classes[acl.matched].name == className_;
      });
   }
   const bool sampled = inAnAcl([](const AclExplanation& acl) { return acl.sampled; });
   return sampled == (text_ == "sampled");
}

std::string Expectation::judge(Explanation& explanation) const {
   explanation.expected = text_;
   std::string lines;
   for (PacketExplanation& packet : explanation.packets) {
      packet.asExpected = isMet(packet);
      if (!*packet.asExpected) {
         lines += fmt::format("not as expected ({}): {}: {}\n", text_,
                              packet.packet.empty() ? "the frame" : Pello::escaped(packet.packet),
                              outcome(packet));
      }
   }
   return lines;
}

} // namespace Postcard::Report
