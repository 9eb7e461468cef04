// `NumericalRange`: a range of numbers, such as protocol numbers or ports. Relies on the value
// support of the framework.
#pragma once

#include "Kiv/Value.h"

#include <compare>

namespace Classification {

// Both bounds belong to the range. Nothing here checks that `low` is at most `high`, nor that the
// bounds suit the field that is compared: whoever makes a filter answers for that.
class NumericalRange : public Kiv::Value<NumericalRange> {
   KIV_VALUE(NumericalRange, "Classification::NumericalRange");
   KIV_FIELD(1, U32, low);
   KIV_FIELD(2, U32, high);

 public:
   // The number 0 alone.
   NumericalRange() = default;
   NumericalRange(U32 low, U32 high) : low_{low}, high_{high} {}
   // From the generic text. Throws Kiv::ParseError.
   KIV_TEXT_CONSTRUCTORS(NumericalRange);

   // By the lower bound, then by the upper one.
   friend std::strong_ordering operator<=>(const NumericalRange& a, const NumericalRange& b) {
      const auto byLow = a.low_ <=> b.low_;
      return std::is_neq(byLow) ? byLow : a.high_ <=> b.high_;
   }
};

} // namespace Classification
