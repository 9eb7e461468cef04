// `AclProgram`: one ACL as a program that the kernel has accepted, with its image and its counters.
// It sees packets once a `Dispatcher` has it. Relies on `AclImage` and the BPF library.
//
// An ACL is never changed, only replaced: a new version is another `AclProgram`, filled beside the
// old one. When this object is destroyed, the kernel keeps the program and its maps for the packets
// that are inside, and no longer.
#pragma once

#include "postcard/classifier/AclTable.h"

#include <memory>
#include <vector>

namespace Postcard::RulesClient {

// Maps that all programs share, as file descriptors of their owner, the dispatcher.
struct SharedMaps {
   int acls;
   int hops;
   int samples;
};

class AclProgram {
 public:
   struct Place {
      U32 slot = 0;          // below `postcardMostAcls`
      U32 version = 0;       // of the ACL in this slot; samples carry it
      U32 sampleBytes = 128; // of each sampled packet that are kept, 1 to 65,535
   };
   // Packets that a rule was the first to match.
   struct Counter {
      U64 packets = 0;
      U64 bytes = 0; // whole frames, with their link header

      friend bool operator==(const Counter&, const Counter&) = default;
   };
   struct Totals {
      U64 samples = 0;     // handed over
      U64 lostSamples = 0; // not handed over, because the ring of samples was full
   };

   // Loads the program and writes its image. Nothing of `table` is referred to afterwards. Throws
   // ImageTooLarge, and KernelError when the kernel refuses.
   AclProgram(const Classifier::AclTable& table, const SharedMaps& shared, const Place& place);
   AclProgram(const AclProgram&) = delete;
   AclProgram& operator=(const AclProgram&) = delete;
   ~AclProgram();

   // Of the program; valid as long as this object.
   int descriptor() const noexcept;
   // By place in the table's entries; all processors together. Packets go on while they are read.
   std::vector<Counter> counters() const;
   Counter counter(std::size_t rule) const;
   Totals totals() const;

 private:
   class Implementation;
   std::unique_ptr<Implementation> implementation_;
};

} // namespace Postcard::RulesClient
