// `PolicyMapSmCommonData`: a policy map as the agent hands it to a feature's helper: the classes,
// the order in which they match, and the interfaces to which the policy is attached. Helpers only
// read it. Relies on the entities of the framework.
#pragma once

#include "Acl/AclType.h"
#include "Kiv/Entity.h"
#include "Kiv/HashMap2018.h"
#include "Orlix/IntfId.h"
#include "PolicyMap/ClassMapSmCommonData.h"
#include "PolicyMap/PolicyMapSmKey.h"
#include "PolicyMap/RulePriorityData.h"

namespace PolicyMap {

class PolicyMapSmCommonData : public Kiv::Entity {
   KIV_ENTITY(PolicyMapSmCommonData, Kiv::Entity, "PolicyMap::PolicyMapSmCommonData");
   KIV_CONSTANT(130, PolicyMapSmKey, key);
   // The interfaces to which the policy is attached in IPv4 and in IPv6.
   KIV_COLLECTION(131, intf4, Kiv::HashSet2018<Orlix::IntfId, 0x2b1f7c11, true>);
   KIV_COLLECTION(132, intf6, Kiv::HashSet2018<Orlix::IntfId, 0x51a8e90d, true>);
   // The order of the rules, by address family. A family in which the policy is used has an entry
   // even when no class has a rule in it. `rulePriorityIs(family)` makes the entry.
   KIV_COLLECTION(
         133, rulePriority,
         Kiv::HashMap2018<Acl::AclType, RulePriorityData, &RulePriorityData::aclType, 0x1c40d8a3>);

   using ClassMap = Kiv::HashMap2018<Pello::String, ClassMapSmCommonData,
                                     &ClassMapSmCommonData::name, 0x77e3b2c9>;
   ClassMap classData_;

 public:
   // A policy map without classes, rules and interfaces.
   explicit PolicyMapSmCommonData(PolicyMapSmKey key) : key_{std::move(key)} {}

   // The class maps by name. The caller makes them, unlike the elements of a collection of the
   // framework, because each feature has a type of its own for them. The policy map shares
   // ownership of them.
   KIV_ROW(134, classData, collection, ClassMap)
   const ClassMap& classData() const { return classData_; }
   // The class map of that name, or null.
   Pello::Ptr<ClassMapSmCommonData> classData(const Pello::String& name) const {
      return classData_.get(name);
   }
   bool classDataHas(const Pello::String& name) const { return classData_.has(name); }
   std::size_t classDatas() const { return classData_.size(); }
   // Adds `classMap`, which must not be null, in place of the one of its name.
   void classDataIs(const Pello::Ptr<ClassMapSmCommonData>& classMap) {
      classData_.put(Kiv::collectionReport<134>(*this), classMap);
   }
   // Removes the class map of that name and returns it, or null when there was none.
   Pello::Ptr<ClassMapSmCommonData> classDataDel(const Pello::String& name) {
      return classData_.del(Kiv::collectionReport<134>(*this), name);
   }
   void classDataDelAll() { classData_.clear(Kiv::collectionReport<134>(*this)); }
};

} // namespace PolicyMap
