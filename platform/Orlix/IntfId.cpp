#include "Orlix/IntfId.h"

#include "Kiv/Reflection.h"

#include <deque>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>

KIV_DEFINE_VALUE(Orlix::IntfId)

namespace Orlix {

namespace {

// All names, by number and by name. The texts in `numbers_` are views of those in `names_`.
class NameTable {
 public:
   // An exclusive lock in any case: the name may be a new one.
   U32 numberOf(std::string_view name) {
      const auto lock = locked<std::unique_lock>();
      if (const auto known = numbers_.find(name); known != numbers_.end()) {
         return known->second;
      }
      const auto number = static_cast<U32>(names_.size());
      const Pello::String& kept = names_.emplace_back(name);
      try {
         numbers_.emplace(kept.view(), number);
      } catch (...) {
         names_.pop_back(); // else the name would get a second number when it comes again
         throw;
      }
      return number;
   }

   const Pello::String& name(U32 number) const {
      const auto lock = locked<std::shared_lock>();
      return names_[number];
   }

 private:
   // A process with one thread pays for no lock.
   template <template <class> class Lock>
   Lock<std::shared_mutex> locked() const {
      return Pello::threadSafe() ? Lock<std::shared_mutex>{mutex_} : Lock<std::shared_mutex>{};
   }

   mutable std::shared_mutex mutex_;
   // A deque, because references to names are handed out and it never moves them.
   std::deque<Pello::String> names_{Pello::String{}};
   std::unordered_map<std::string_view, U32> numbers_{{std::string_view{}, 0}};
};

// Never destroyed, because static objects of other libraries may print interfaces while the process
// ends.
NameTable& nameTable() {
   static NameTable& instance = *new NameTable;
   return instance;
}

} // namespace

IntfId::IntfId(std::string_view name) : number_{name.empty() ? 0 : nameTable().numberOf(name)} {}

const Pello::String& IntfId::stringValue() const {
   return nameTable().name(number_);
}

} // namespace Orlix
