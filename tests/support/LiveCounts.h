// `LiveCounts`: how many objects of each registered type exist, to be compared before and after.
// Every test program compares them around every test, so that a leaked reference fails the test
// that leaks it. Relies on the type registry.
#pragma once

#include "Pello/Types.h"

#include <map>
#include <string>

namespace TestSupport {

class LiveCounts {
 public:
   // Those of now.
   static LiveCounts taken();

   // A line per type whose number is another one now, empty when there is none: "Type: 2 objects
   // more than before".
   std::string differences(const LiveCounts& before) const;

 private:
   std::map<std::string, U64> byType_; // a type that is not registered has no objects
};

} // namespace TestSupport
