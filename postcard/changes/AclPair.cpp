#include "postcard/changes/AclPair.h"

#include "postcard/policy/PolicyDiff.h"

#include <map>
#include <set>
#include <string_view>
#include <tuple>
#include <utility>

namespace Postcard::Changes {

namespace {

using Key = std::pair<std::string_view, Policy::Family>;

constexpr Policy::Family families[] = {Policy::Family::ipv4, Policy::Family::ipv6};

// In the order in which an agent removes policies. The keys refer to the names in `file`.
std::map<Key, const Policy::Policy*> policiesOf(const Policy::PolicyFile& file) {
   std::map<Key, const Policy::Policy*> policies;
   for (const Policy::Policy& policy : file.policies) {
      for (const Policy::Family family : families) {
         if (!policy.interfaces(family).empty()) {
            policies.emplace(Key{policy.name.text, family}, &policy);
         }
      }
   }
   return policies;
}

const Policy::Policy* find(const std::map<Key, const Policy::Policy*>& policies, const Key& key) {
   const auto found = policies.find(key);
   return found == policies.end() ? nullptr : found->second;
}

} // namespace

std::vector<AclPair> aclPairs(const Policy::PolicyFile& before, const Policy::PolicyFile& after) {
   const auto old = policiesOf(before);
   const auto wanted = policiesOf(after);
   std::vector<AclPair> pairs;
   for (const auto& [key, policy] : old) {
      if (!wanted.contains(key)) {
         pairs.push_back({policy->name.text, key.second, policy, nullptr});
      }
   }
   for (const Policy::Policy& policy : after.policies) {
      for (const Policy::Family family : families) {
         const Key key{policy.name.text, family};
         if (wanted.contains(key)) {
            pairs.push_back({policy.name.text, family, find(old, key), &policy});
         }
      }
   }
   return pairs;
}

bool sameRules(const AclPair& pair, const Policy::Hardware& before, const Policy::Hardware& after) {
   return pair.before != nullptr && pair.after != nullptr && before.tcpFlags == after.tcpFlags &&
          samePolicyClasses(*pair.before, *pair.after, pair.family);
}

std::vector<std::string> interfacesOnlyIn(const Policy::Policy* policy, const Policy::Policy* other,
                                          Policy::Family family) {
   std::set<std::string_view> others;
   if (other != nullptr) {
      for (const Policy::Name& name : other->interfaces(family)) {
         others.insert(name.text);
      }
   }
   std::vector<std::string> names;
   if (policy != nullptr) {
      for (const Policy::Name& name : policy->interfaces(family)) {
         if (!others.contains(name.text)) {
            names.push_back(name.text);
         }
      }
   }
   return names;
}

} // namespace Postcard::Changes
