#include "postcard/policy/SamplingRate.h"

#include "postcard/policy/Classes.h"

#include <fmt/format.h>

#include <bit>

namespace Postcard::Policy {

SamplingRate samplingRate(const Class& each, Family family) {
   if (!samples(each)) {
      return {};
   }
   const SampleMatch* match = sampleOf(each, family);
   if (match == nullptr) {
      return {1, std::nullopt};
   }
   return {U32{1} << std::popcount(match->mask), match->field};
}

std::string text(const SamplingRate& rate) {
   if (rate.oneIn == 0) {
      return "not sampled";
   }
   if (!rate.field) {
      return "every packet";
   }
   return fmt::format("1 packet in {}, by {}", rate.oneIn,
                      rate.field == SampleField::checksum ? "checksum" : "IP identification");
}

} // namespace Postcard::Policy
