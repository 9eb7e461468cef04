// `RecordText`: formats records as the text trace would have. Relies on the registered types, by
// which it prints values. Descriptors and arguments may come from anywhere: no record, however
// made, ends the process, and all of them together cost no more than they are given.
#pragma once

#include "Pello/Types.h"

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace Ringlog {

// A call site as the ring describes it.
struct Descriptor {
   U32 line = 0;
   U32 level = 0;
   std::string source;
   std::string className; // empty for a free function
   std::string functionName;
   std::string format;
   // What stands at one place of its records: see ArgumentKind.
   struct Kind {
      char code;
      std::string type;
      std::string name;
   };
   std::vector<Kind> kinds;
};

class RecordText {
 public:
   // `most` is how many characters all texts together may have before the rest is left out.
   explicit RecordText(std::size_t most) : left_{most} {}

   // The text of a record of `site` with these arguments, or a note in angle brackets that says why
   // it cannot be had.
   std::string format(const Descriptor& site, std::span<const std::byte> arguments);

 private:
   std::size_t left_;
};

} // namespace Ringlog
