#include "postcard/report/explain/NoAcl.h"

#include "postcard/policy/Words.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <utility>

namespace Postcard::Report {

namespace {

using Policies = std::vector<const Policy::Policy*>;

Policy::Family otherThan(Policy::Family family) {
   return family == Policy::Family::ipv4 ? Policy::Family::ipv6 : Policy::Family::ipv4;
}

// "policy 'a'", or "policies 'a', 'b', 'c' and 2 more".
std::string namesOf(const Policies& policies) {
   constexpr std::size_t most = 3; // keeps the line readable
   std::vector<std::string> names;
   for (std::size_t i = 0; i < policies.size() && i < most; ++i) {
      names.push_back(Policy::inQuotes(policies[i]->name.text));
   }
   const std::size_t more = policies.size() - names.size();
   return fmt::format("{} {}{}", policies.size() == 1 ? "policy" : "policies",
                      fmt::join(names, ", "), more == 0 ? "" : fmt::format(" and {} more", more));
}

// The subject and the verb of "policy 'a' has no interfaces" or "none of the 3 policies has
// interfaces"; `positive` and `negative` are the verbs of the two forms.
std::string nonePhrase(const Policies& policies, std::string_view negative,
                       std::string_view positive) {
   switch (policies.size()) {
   case 0:
      return fmt::format("no policy {}", positive);
   case 1:
      return fmt::format("{} {}", namesOf(policies), negative);
   default:
      return fmt::format("none of the {} policies {}", policies.size(), positive);
   }
}

bool hasInterface(const Policy::Policy& policy, Policy::Family family, std::string_view name) {
   const std::vector<Policy::Name>& names = policy.interfaces(family);
   return std::ranges::any_of(names, [&](const Policy::Name& each) { return each.text == name; });
}

NoAcl noInterfaces(const Policies& policies, Policy::Family family) {
   return {NoAclCause::noInterfaces,
           fmt::format("{} interfaces for {}", nonePhrase(policies, "has no", "has"),
                       familyName(family)),
           {}};
}

// `attached` is not empty.
NoAcl refused(const Policies& attached, Policy::Family family) {
   return {NoAclCause::refused,
           fmt::format("the plug-in refused {} for {}", namesOf(attached), familyName(family)),
           {}};
}

NoAcl noSuchInterface(const Policies& policies, Policy::Family family, std::string_view name) {
   const Policy::Family other = otherThan(family);
   if (std::ranges::any_of(policies, [&](const Policy::Policy* policy) {
          return hasInterface(*policy, other, name);
       })) {
      return {NoAclCause::otherFamily,
              fmt::format("interface {} has policies for {} only, and the packet is {}",
                          Policy::inQuotes(name), familyName(other), familyName(family)),
              {}};
   }
   // Interfaces of the other family would be wrong guesses: no ACL of this family is there either.
   std::vector<std::string_view> known;
   for (const Policy::Policy* policy : policies) {
      for (const Policy::Name& each : policy->interfaces(family)) {
         known.emplace_back(each.text);
      }
   }
   return {NoAclCause::unknownInterface,
           fmt::format("{} attached to interface {}", nonePhrase(policies, "is not", "is"),
                       Policy::inQuotes(name)),
           std::string{Policy::closest(name, known)}};
}

// Tries the causes from the widest to the narrowest: a guess at an interface is of no use to
// somebody whose policies have none of that family. `interface` is empty when it is not known.
NoAcl reasonFor(const Scope& scope, Policy::Family family, std::string_view interface) {
   if (scope.family && *scope.family != family) {
      return {NoAclCause::familyLeftOut,
              fmt::format("the packet is {}, and only ACLs of {} are looked at", familyName(family),
                          familyName(*scope.family)),
              {}};
   }
   Policies ofFamily = scope.policies;
   std::erase_if(ofFamily,
                 [&](const Policy::Policy* policy) { return policy->interfaces(family).empty(); });
   if (ofFamily.empty()) {
      return noInterfaces(scope.policies, family);
   }
   if (interface.empty()) {
      return refused(ofFamily, family);
   }
   std::erase_if(ofFamily, [&](const Policy::Policy* policy) {
      return !hasInterface(*policy, family, interface);
   });
   return ofFamily.empty() ? noSuchInterface(scope.policies, family, interface)
                           : refused(ofFamily, family);
}

} // namespace

std::string_view causeName(NoAclCause cause) {
   switch (cause) {
   case NoAclCause::undecodable:
      return "undecodable";
   case NoAclCause::familyLeftOut:
      return "family-left-out";
   case NoAclCause::noInterfaces:
      return "no-interfaces";
   case NoAclCause::otherFamily:
      return "other-family";
   case NoAclCause::unknownInterface:
      return "unknown-interface";
   case NoAclCause::refused:
      break;
   }
   return "refused";
}

NoAcl whyNoAcl(const Scope& scope, const Packets::Packet& packet) {
   const Policy::Family family =
         packet.family == Orlix::AddressFamily::ipv4 ? Policy::Family::ipv4 : Policy::Family::ipv6;
   return reasonFor(scope, family, packet.intf.stringValue().view());
}

NoAcl whyNoAcl(const Scope& scope, Policy::Family family) {
   return reasonFor(scope, family, {});
}

NoAcl whyNoAcl(Packets::Undecodable reason) {
   return {NoAclCause::undecodable, std::string{undecodableText(reason)}, {}};
}

std::string text(const NoAcl& reason) {
   return reason.text + Policy::didYouMean(reason.guess);
}

nlohmann::ordered_json json(const NoAcl& reason) {
   return {{"code", causeName(reason.cause)},
           {"text", reason.text},
           {"guess", reason.guess.empty() ? nlohmann::ordered_json(nullptr)
                                          : nlohmann::ordered_json(reason.guess)}};
}

} // namespace Postcard::Report
