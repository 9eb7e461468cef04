// `SampleReader`: takes the sampled packets out of the ring that the programs in the kernel fill.
// Relies on the BPF library.
#pragma once

#include "Pello/Types.h"

#include <functional>
#include <memory>
#include <span>

namespace Postcard::RulesClient {

struct Sample {
   U64 time = 0;      // CLOCK_MONOTONIC, nanoseconds
   U32 interface = 0; // index of the interface in the kernel
   U32 slot = 0;      // of the ACL, and which of the ACLs
   U32 version = 0;   // that this slot has had
   U32 rule = 0;      // place of the rule in the ACL
   U32 length = 0;    // of the frame, in bytes
   // The frame's beginning, as it was before a rule changed it. Valid during the call.
   std::span<const U8> bytes;
};

class SampleReader {
 public:
   using Take = std::function<void(const Sample&)>;

   // `ring` is the map of samples; the reader keeps it. `take` must not be null. Throws
   // KernelError.
   SampleReader(int ring, Take take);
   SampleReader(const SampleReader&) = delete;
   SampleReader& operator=(const SampleReader&) = delete;
   ~SampleReader();

   // Readable, for an event loop, when there are samples.
   int descriptor() const noexcept;
   // Hands over the samples that are there, oldest first, and returns how many they were. Does not
   // wait. Passes exceptions of `take` on; the sample that it was called for is gone.
   std::size_t read();

 private:
   class Implementation;
   std::unique_ptr<Implementation> implementation_;
};

} // namespace Postcard::RulesClient
