// `PostcardTelemetryPolicyKey`: names a policy in one address family.
#pragma once

#include "Kiv/Value.h"
#include "PolicyMap/ClassMapMatchOption.h"
#include "PolicyMap/PolicyMapSmKey.h"

#include <compare>

namespace OruPostcardTelemetry {

class PostcardTelemetryPolicyKey : public Kiv::Value<PostcardTelemetryPolicyKey> {
   KIV_VALUE(PostcardTelemetryPolicyKey, "OruPostcardTelemetry::PostcardTelemetryPolicyKey");
   KIV_FIELD(1, PolicyMap::PolicyMapSmKey, key);
   KIV_FIELD(2, PolicyMap::ClassMapMatchOption, option);

 public:
   PostcardTelemetryPolicyKey() = default;
   PostcardTelemetryPolicyKey(PolicyMap::PolicyMapSmKey key, PolicyMap::ClassMapMatchOption option)
      : key_{std::move(key)}, option_{option} {}
   // Reads the generic value text. Throws ParseError that names the attribute.
   explicit PostcardTelemetryPolicyKey(std::string_view text)
      : PostcardTelemetryPolicyKey{Kiv::parseValue<PostcardTelemetryPolicyKey>(text)} {}

   // The option first: it is one byte, and tells most keys apart.
   bool isEq(const PostcardTelemetryPolicyKey& other) const {
      return this == &other || (option_ == other.option_ && key_ == other.key_);
   }
   U64 hash(U64 seed) const {
      return Kiv::HashState{seed}.mix(key_.hash(0)).mix(static_cast<U8>(option_)).result();
   }
   // Whether it names anything: differs from the default key.
   explicit operator bool() const { return !isEq(PostcardTelemetryPolicyKey{}); }

   // By the key; on a tie by the option's number.
   friend std::strong_ordering operator<=>(const PostcardTelemetryPolicyKey& a,
                                           const PostcardTelemetryPolicyKey& b) {
      const auto byKey = a.key_ <=> b.key_;
      return std::is_neq(byKey) ? byKey : static_cast<U8>(a.option_) <=> static_cast<U8>(b.option_);
   }
};

} // namespace OruPostcardTelemetry
