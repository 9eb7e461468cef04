// `RecordText`: formats a record, with the text that the text trace would have had. Relies on the
// registry of types (Kiv), which prints plain values; those of a type whose library is not loaded
// cannot be printed. Descriptors and arguments may be untrusted: no record ends the process, and
// the texts of all records together are limited.
#pragma once

#include "Pello/Types.h"

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace Ringlog {

// A call site as the ring describes it. Nothing in it has been checked, except that texts have at
// most `longestText` bytes and that there are at most `mostKinds` kinds.
struct Descriptor {
   U32 line = 0;
   U32 level = 0;         // as in TextTrace.h, if the ring is not damaged
   std::string source;    // the name of the trace source
   std::string className; // empty for a free function
   std::string functionName;
   std::string format; // in the notation of fmt
   // The kinds of the arguments of its records, with the members of `ArgumentKind`.
   struct Kind {
      char code;
      std::string type;
      std::string name;
   };
   std::vector<Kind> kinds;
};

class RecordText {
 public:
   // `most` limits the characters of all texts together. Once they are used up, each further record
   // gives a note instead of its text.
   explicit RecordText(std::size_t most) : left_{most} {}

   // Where a record stands. All sizes are in bytes; the record must lie inside its block.
   struct Place {
      std::span<const std::byte> block; // from its first record on; must outlive the call only
      std::size_t at;                   // where the record begins in it
      std::size_t headerSize;
      std::size_t size; // of the record, including its header

      std::span<const std::byte> arguments() const {
         return block.subspan(at + headerSize, size - headerSize);
      }
      // The records before this one, to whose texts its texts may refer.
      std::span<const std::byte> earlier() const { return block.first(at); }
   };
   // The text of a record of `site`. When the record cannot be formatted, the text is a note in
   // angle brackets: the format and the reason. Throws nothing that damage causes.
   std::string format(const Descriptor& site, const Place& record);

 private:
   std::size_t left_; // characters
};

} // namespace Ringlog
