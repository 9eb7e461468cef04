// `sampleRate` and `sampleOfRate`: one packet in how many a sample match chooses, and the match
// that chooses one in so many; `samplingRate`: what a class samples. Relies on the plain values of
// `Policy.h`.
//
// The rates are those of a field whose bits are spread evenly. What a field really holds can change
// them: see `choosesZeroChecksums`.
#pragma once

#include "postcard/policy/Policy.h"

#include <optional>
#include <string>

namespace Postcard::Policy {

// The rates that can be had are the powers of two between these, both included: a mask compares 1
// to 16 bits of the field. One packet in one would need a mask of 0, which the helper refuses.
inline constexpr U32 leastSampleRate = 2;
inline constexpr U32 greatestSampleRate = 65536;

// N, when `match` chooses one packet in N: 2 to the number of bits of the mask, 2 to 65536.
U32 sampleRate(const SampleMatch& match);

// Whether a match can choose one packet in `rate`.
bool isSampleRate(U64 rate);

// The match that chooses one packet in `rate`, by the checksum: mask `rate` - 1 and data 1. Not
// data 0, because a UDP packet without a checksum carries 0 (RFC 768) and would always be chosen.
// `isSampleRate(rate)` must hold. The location is the default.
SampleMatch sampleOfRate(U32 rate);

// Which rates can be had instead of `rate`, for a message: "nearest: 256 and 512", or only one when
// `rate` lies outside all of them. `isSampleRate(rate)` must not hold.
std::string nearestSampleRates(U64 rate);

// Whether `match` chooses every packet whose checksum is 0, which is what UDP over IPv4 without
// checksums sends: then it samples more than its rate says. False for other fields than the
// checksum.
bool choosesZeroChecksums(const SampleMatch& match);

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
