// `ClassReader`: reads the classes of the policies of a file, one policy after another. Relies on
// `Filter` for filters and on `ruleCount` for the number of rules they make.
#pragma once

#include "postcard/policy/Policy.h"
#include "postcard/policy/file/Document.h"
#include "postcard/policy/file/Fields.h"
#include "postcard/policy/file/Values.h"

#include <map>
#include <optional>
#include <vector>

namespace Postcard::Policy::File {

class ClassReader {
 public:
   // What the rest of the file and the caller decide about classes.
   struct Surroundings {
      bool tcpFlags = true;           // whether the hardware matches TCP flags
      bool severalPortEntries = true; // whether a protocol may have more than one port entry
      U64 maxRules = 0;               // that the classes read by this object may make together
   };

   // `values` must outlive this object. What is wrong goes to its findings.
   ClassReader(const Surroundings& surroundings, const Values& values)
      : surroundings_{surroundings}, values_{values} {}

   // Appends the classes of the list `node` to `target`, which must be empty.
   void read(std::vector<Class>& target, const Node& node);

 private:
   using PlaceOfPriority = std::map<U32, std::size_t>; // where in the list its class stands

   Findings& findings() const { return values_.findings(); }
   void readClass(Class& item, const Fields& fields);
   void readFamily(const Class& item, std::optional<Filter>& target, const Fields& fields,
                   Family family);
   void countRules(const Class& item, const Filter& filter, Family family);
   bool readPriority(std::vector<Class>& classes, const Fields& fields) const;
   void checkPriority(const std::vector<Class>& classes, PlaceOfPriority& places,
                      Location location) const;

   Surroundings surroundings_;
   const Values& values_;
   U64 rules_ = 0; // that the classes read so far make
};

} // namespace Postcard::Policy::File
