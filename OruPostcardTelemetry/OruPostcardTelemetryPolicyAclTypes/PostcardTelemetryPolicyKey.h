// `PostcardTelemetryPolicyKey`: names a policy in one address family. Relies on the keys of the
// policy-map library.
#pragma once

#include "Kiv/Value.h"
#include "PolicyMap/ClassMapMatchOption.h"
#include "PolicyMap/PolicyMapSmKey.h"

#include <compare>
#include <utility>

namespace OruPostcardTelemetry {

class PostcardTelemetryPolicyKey : public Kiv::Value<PostcardTelemetryPolicyKey> {
   KIV_VALUE(PostcardTelemetryPolicyKey, "OruPostcardTelemetry::PostcardTelemetryPolicyKey");
   KIV_FIELD(1, PolicyMap::PolicyMapSmKey, key);         // the policy
   KIV_FIELD(2, PolicyMap::ClassMapMatchOption, option); // the address family

 public:
   // The empty key with option 0, which names no policy.
   PostcardTelemetryPolicyKey() = default;
   PostcardTelemetryPolicyKey(PolicyMap::PolicyMapSmKey key, PolicyMap::ClassMapMatchOption option)
      : key_{std::move(key)}, option_{option} {}
   // Reads the generic value text, also from a range of characters. Throws Kiv::ParseError, which
   // names the attribute that cannot be read.
   // A text is parsed, not taken as a policy's name.
   KIV_TEXT_CONSTRUCTORS(PostcardTelemetryPolicyKey);

   // Compares the option first: comparing one byte spares most comparisons of strings.
   bool isEq(const PostcardTelemetryPolicyKey& other) const {
      return this == &other || (option_ == other.option_ && key_ == other.key_);
   }
   // Mixes the hash of the key, which has seed 0, and the option into a state that begins with
   // `seed`.
   U64 hash(U64 seed) const {
      return Kiv::HashState{seed}.mix(key_.hash(0)).mix(static_cast<U8>(option_)).result();
   }
   // Whether the key names a policy, that is, differs from the default one.
   explicit operator bool() const { return !isEq(PostcardTelemetryPolicyKey{}); }

   // Orders by the key, and equal keys by the number of the option.
   friend std::strong_ordering operator<=>(const PostcardTelemetryPolicyKey& a,
                                           const PostcardTelemetryPolicyKey& b) {
      const auto byKey = a.key_ <=> b.key_;
      return std::is_neq(byKey) ? byKey : static_cast<U8>(a.option_) <=> static_cast<U8>(b.option_);
   }
};

} // namespace OruPostcardTelemetry
