// `samplingRate`: which share of its packets a class samples. Relies on the plain values of
// `Policy.h`.
#pragma once

#include "postcard/policy/Policy.h"

#include <optional>
#include <string>

namespace Postcard::Policy {

struct SamplingRate {
   // One packet in so many: 0: none; 1: every packet; else a power of two up to 65,536.
   U32 oneIn = 0;
   std::optional<SampleField> field; // whose bits choose; present when `oneIn` is more than 1

   friend bool operator==(const SamplingRate&, const SamplingRate&) = default;
};

// The rate at which the class samples the packets of its filter. Each bit of the mask halves it, if
// the bits of the field are as good as random. The class must take part in `family`.
SamplingRate samplingRate(const Class& each, Family family);

// "not sampled", "every packet", "1 packet in 256, by checksum" or "1 packet in 256, by IP
// identification".
std::string text(const SamplingRate& rate);

} // namespace Postcard::Policy
