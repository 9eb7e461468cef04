// `PolicyMapSmKey`: the name of a policy map. Relies on the value support of the framework.
#pragma once

#include "Kiv/String.h"
#include "Kiv/Value.h"

#include <compare>

namespace PolicyMap {

class PolicyMapSmKey : public Kiv::Value<PolicyMapSmKey> {
   KIV_VALUE(PolicyMapSmKey, "PolicyMap::PolicyMapSmKey");
   KIV_FIELD(1, Pello::String, name);
   KIV_FIELD(2, Pello::String, scope); // empty for a policy of the whole switch

 public:
   // The key of no policy: the name is empty.
   PolicyMapSmKey() = default;
   // A policy of the whole switch. Takes the text as the name and does not parse it, unlike the
   // text constructors of other values.
   explicit PolicyMapSmKey(Pello::String name) : name_{std::move(name)} {}
   // Implicit, so that `{"web", "linecard1"}` may stand for a key.
   PolicyMapSmKey(Pello::String name, Pello::String scope)
      : name_{std::move(name)}, scope_{std::move(scope)} {}

   // The text in messages: `name`, or `name/scope` when there is a scope. Not unique, because
   // nothing here forbids a slash in a name.
   Pello::String strDesc() const {
      return scope_.empty() ? name_ : Pello::String::join({name_, "/", scope_});
   }

   // By the name, then by the scope.
   friend std::strong_ordering operator<=>(const PolicyMapSmKey& a, const PolicyMapSmKey& b) {
      const auto byName = a.name_ <=> b.name_;
      return std::is_neq(byName) ? byName : a.scope_ <=> b.scope_;
   }
};

} // namespace PolicyMap
