// The reading side of the ring trace: `Reader` takes the bytes of a ring apart and formats its
// records. Relies on the layout and on the registered types, by which it prints values. The bytes
// may come from anywhere: nothing in them is believed unchecked.
#pragma once

#include "Kiv/Exception.h"
#include "Ringlog/Codec.h"

#include <map>
#include <span>
#include <string>
#include <vector>

namespace Ringlog {

// The bytes are not a ring, or not one of this layout.
class DamagedRing : public Kiv::Exception {
 public:
   using Exception::Exception;
   ~DamagedRing() override;
};

// A call site as the ring describes it.
struct Descriptor {
   U32 line = 0;
   U32 level = 0;
   std::string source;
   std::string className; // empty for a free function
   std::string functionName;
   std::string format;
   struct Kind {
      char code;
      std::string type;
      std::string name;
   };
   std::vector<Kind> kinds;
};

// One trace.
struct Record {
   const Descriptor* site; // owned by the reader
   U64 ticks;
   double time; // seconds since 1970-01-01 00:00 UTC
   U32 thread;
   std::string text; // formatted; a note in angle brackets when the record cannot be read
};

class Reader {
 public:
   // Takes apart what is in `bytes`, which need not outlive the reader. Throws DamagedRing.
   explicit Reader(std::span<const std::byte> bytes);

   // All records that are left in the ring, oldest first.
   const std::vector<Record>& records() const noexcept { return records_; }
   // Call sites by number.
   const std::map<U32, Descriptor>& descriptors() const noexcept { return descriptors_; }
   // Call sites whose descriptor found no room; their records are left out.
   U32 lostDescriptors() const noexcept { return lostDescriptors_; }
   U32 processId() const noexcept { return processId_; }

 private:
   void readDescriptors(std::span<const std::byte> area);
   void readBlock(std::span<const std::byte> block);
   double timeOf(U64 ticks) const;

   U64 openedTicks_ = 0;
   double openedTime_ = 0;      // seconds
   double secondsPerTick_ = 0;
   U32 processId_ = 0;
   U32 lostDescriptors_ = 0;
   std::map<U32, Descriptor> descriptors_;
   std::vector<Record> records_;
};

} // namespace Ringlog
