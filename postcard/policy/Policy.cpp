#include "postcard/policy/Policy.h"

#include <array>
#include <cstddef>

namespace Postcard::Policy {

namespace {

struct ActionRow {
   ActionKind kind;
   std::string_view name;
};

// In the order of `ActionKind`.
constexpr auto actionRows = std::to_array<ActionRow>({
      {ActionKind::sample, "sample"},
      {ActionKind::sampleAll, "sample-all"},
      {ActionKind::setDscp, "set-dscp"},
      {ActionKind::permit, "permit"},
      {ActionKind::drop, "drop"},
      {ActionKind::count, "count"},
      {ActionKind::police, "police"},
      {ActionKind::redirect, "redirect"},
      {ActionKind::mirror, "mirror"},
      {ActionKind::setTrafficClass, "set-traffic-class"},
      {ActionKind::setVlan, "set-vlan"},
      {ActionKind::log, "log"},
      {ActionKind::nat, "nat"},
});

// Whether `actionName` may use the number of a kind as an index.
constexpr bool inOrder() {
   for (std::size_t i = 0; i < actionRows.size(); ++i) {
      if (static_cast<std::size_t>(actionRows[i].kind) != i) {
         return false;
      }
   }
   return actionRows.size() == actionKinds;
}
static_assert(inOrder());

} // namespace

std::string_view actionName(ActionKind kind) {
   return actionRows[static_cast<std::size_t>(kind)].name;
}

std::string_view familyName(Family family) {
   return family == Family::ipv4 ? "ipv4" : "ipv6";
}

const Filter* Class::filter(Family family) const {
   const std::optional<Filter>& chosen = family == Family::ipv4 ? ipv4 : ipv6;
   return chosen ? &*chosen : nullptr;
}

const std::vector<Name>& Policy::interfaces(Family family) const {
   return family == Family::ipv4 ? ipv4Interfaces : ipv6Interfaces;
}

} // namespace Postcard::Policy
