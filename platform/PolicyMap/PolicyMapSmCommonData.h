// `PolicyMapSmCommonData`: a policy map as its agent hands it to a feature: its classes, the order
// in which they match, and the interfaces to which it is attached.
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
   KIV_COLLECTION(131, intf4, Kiv::HashSet2018<Orlix::IntfId, 0x2b1f7c11, true>); // for IPv4
   KIV_COLLECTION(132, intf6, Kiv::HashSet2018<Orlix::IntfId, 0x51a8e90d, true>); // for IPv6
   // No entry for a family in which the policy takes no part.
   KIV_COLLECTION(
         133, rulePriority,
         Kiv::HashMap2018<Acl::AclType, RulePriorityData, &RulePriorityData::aclType, 0x1c40d8a3>);

   using ClassMap = Kiv::HashMap2018<Pello::String, ClassMapSmCommonData,
                                     &ClassMapSmCommonData::name, 0x77e3b2c9>;
   ClassMap classData_;

 public:
   explicit PolicyMapSmCommonData(PolicyMapSmKey key) : key_{std::move(key)} {}

   // The classes by name. Made elsewhere, because each feature has a class of its own for them.
   KIV_ROW(134, classData, collection, ClassMap)
   const ClassMap& classData() const { return classData_; }
   Pello::Ptr<ClassMapSmCommonData> classData(const Pello::String& name) const {
      return classData_.get(name);
   }
   bool classDataHas(const Pello::String& name) const { return classData_.has(name); }
   std::size_t classDatas() const { return classData_.size(); }
   // Takes `classMap` (never null) in place of another one of its name.
   void classDataIs(const Pello::Ptr<ClassMapSmCommonData>& classMap) {
      classData_.put(Kiv::collectionReport<134>(*this), classMap);
   }
   Pello::Ptr<ClassMapSmCommonData> classDataDel(const Pello::String& name) {
      return classData_.del(Kiv::collectionReport<134>(*this), name);
   }
   void classDataDelAll() { classData_.clear(Kiv::collectionReport<134>(*this)); }
};

} // namespace PolicyMap
