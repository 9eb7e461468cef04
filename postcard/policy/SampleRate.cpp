#include "postcard/policy/SampleRate.h"

#include "postcard/policy/Classes.h"

#include <fmt/format.h>

#include <bit>

namespace Postcard::Policy {

U32 sampleRate(const SampleMatch& match) {
   return U32{1} << static_cast<unsigned>(std::popcount(match.mask));
}

bool isSampleRate(U64 rate) {
   return std::has_single_bit(rate) && rate >= leastSampleRate && rate <= greatestSampleRate;
}

SampleMatch sampleOfRate(U32 rate) {
   SampleMatch match;
   match.data = 1;
   match.mask = static_cast<U16>(rate - 1);
   return match;
}

std::string nearestSampleRates(U64 rate) {
   if (rate < leastSampleRate) {
      return fmt::format("nearest: {}", leastSampleRate);
   }
   if (rate > greatestSampleRate) {
      return fmt::format("nearest: {}", greatestSampleRate);
   }
   const U64 below = std::bit_floor(rate);
   return fmt::format("nearest: {} and {}", below, 2 * below);
}

bool choosesZeroChecksums(const SampleMatch& match) {
   return match.field == SampleField::checksum && match.data == 0;
}

SamplingRate samplingRate(const Class& each, Family family) {
   if (!samples(each)) {
      return {};
   }
   const SampleMatch* match = sampleOf(each, family);
   if (match == nullptr) {
      return {1, std::nullopt};
   }
   return {sampleRate(*match), match->field};
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
