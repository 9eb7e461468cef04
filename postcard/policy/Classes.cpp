#include "postcard/policy/Classes.h"

#include <algorithm>

namespace Postcard::Policy {

std::vector<const Class*> classesInOrder(const Policy& policy, Family family) {
   std::vector<const Class*> classes;
   for (const Class& each : policy.classes) {
      if (each.filter(family) != nullptr) {
         classes.push_back(&each);
      }
   }
   std::ranges::sort(classes, {}, &Class::priority);
   return classes;
}

const Action* actionOf(const Class& each, ActionKind kind) {
   const auto found = std::ranges::find(each.actions, kind, &Action::kind);
   return found == each.actions.end() ? nullptr : &*found;
}

bool samples(const Class& each) {
   return actionOf(each, ActionKind::sample) != nullptr ||
          actionOf(each, ActionKind::sampleAll) != nullptr;
}

const SampleMatch* sampleOf(const Class& each, Family family) {
   const Filter& filter = *each.filter(family);
   const bool counts = filter.sample && actionOf(each, ActionKind::sample) != nullptr;
   return counts ? &*filter.sample : nullptr;
}

} // namespace Postcard::Policy
