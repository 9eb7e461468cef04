// `ClassReader`: reads the classes of the policies of a file, one policy after another. Relies on
// `Filter` for filters and on `ruleCount` for the number of rules that they make.
//
// One object serves a whole file, because the limit of rules holds for all policies together.
#pragma once

#include "postcard/policy/Policy.h"
#include "postcard/policy/file/Definitions.h"
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
      U64 maxRules = 0; // how many rules all classes that this object reads may make together
   };

   // `definitions` and `values` must outlive this object. What is wrong goes to the findings of
   // `values`.
   ClassReader(const Surroundings& surroundings, Definitions& definitions, const Values& values)
      : surroundings_{surroundings}, definitions_{definitions}, values_{values} {}

   // Appends the classes of the list `node` to `target`, which must be empty: a class without a
   // priority gets its own from its position. A class that is wrong gets its findings and is
   // appended as far as it could be read, so that the classes behind it keep their positions.
   void read(std::vector<Class>& target, const Node& node);

 private:
   // From a priority to the position of the first class that has it.
   using PlaceOfPriority = std::map<U32, std::size_t>;

   // What a class says for both families.
   struct Both {
      const Node* value = nullptr;  // null: nothing
      std::optional<Filter> filter; // present exactly when `value` is not null
      bool good = true;             // reading it added no finding
   };

   Findings& findings() const { return values_.findings(); }
   void readClass(Class& item, const Fields& fields);
   void readFamily(const Class& item, std::optional<Filter>& target, const Fields& fields,
                   const Both& both, Family family);
   void checkNotInBoth(const Node& own, const Node& both, Family family) const;
   void countRules(const Class& item, const Filter& filter, Family family);
   bool readPriority(std::vector<Class>& classes, const Fields& fields) const;
   void checkPriority(const std::vector<Class>& classes, PlaceOfPriority& places,
                      Location location) const;

   Surroundings surroundings_;
   Definitions& definitions_;
   const Values& values_;
   U64 rules_ = 0; // how many rules the classes read so far make
};

} // namespace Postcard::Policy::File
