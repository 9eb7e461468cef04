#include "PolicyMap/TypeModule.h"

#include "Kiv/Reflection.h"
#include "PolicyMap/PolicyMapAclHelper.h"
#include "PolicyMap/SetDscpAction.h"

KIV_DEFINE_VALUE(PolicyMap::PolicyMapSmKey)
KIV_DEFINE_VALUE(PolicyMap::RulePriority)
KIV_DEFINE_VALUE(PolicyMap::AclRuleKey)
KIV_DEFINE_VALUE(PolicyMap::AsyncOperationResult)
KIV_DEFINE_ENTITY(PolicyMap::Action)
KIV_DEFINE_ENTITY(PolicyMap::SetDscpAction)
KIV_DEFINE_ENTITY(PolicyMap::ClassMapSmCommonData)
KIV_DEFINE_ENTITY(PolicyMap::RulePriorityData)
KIV_DEFINE_ENTITY(PolicyMap::PolicyMapSmCommonData)
KIV_DEFINE_ENTITY(PolicyMap::PolicyMapAclHelper)

namespace PolicyMap {

KIV_DEFINE_ENUM(ClassMapMatchOption, "PolicyMap::ClassMapMatchOption", {0, "matchIpAccessGroup"},
                {1, "matchIpv6AccessGroup"}, {2, "matchMacAccessGroup"})

KIV_DEFINE_ENUM(ActionType, "PolicyMap::ActionType", {0, "permit"}, {1, "drop"}, {2, "count"},
                {3, "police"}, {4, "redirect"}, {5, "mirror"}, {6, "setTrafficClass"},
                {7, "setDscp"}, {8, "setVlan"}, {9, "log"}, {10, "nat"}, {18, "sample"},
                {19, "sampleAll"})

const Kiv::TypeModule& typeModule() {
   static const Kiv::TypeModule module{
         "PolicyMap",
         {
               &kivTypeData(std::type_identity<ClassMapMatchOption>{}),
               &kivTypeData(std::type_identity<ActionType>{}),
               &PolicyMapSmKey::kivTypeData(),
               &RulePriority::kivTypeData(),
               &AclRuleKey::kivTypeData(),
               &AsyncOperationResult::kivTypeData(),
               &Action::kivTypeData(),
               &SetDscpAction::kivTypeData(),
               &ClassMapSmCommonData::kivTypeData(),
               &RulePriorityData::kivTypeData(),
               &PolicyMapSmCommonData::kivTypeData(),
               &PolicyMapAclHelper::kivTypeData(),
               // A type of another library. The helper's operations take a `VrfName`, but they use
               // no symbol of that library. Naming the descriptor makes the linker keep it.
               &L3::VrfName::kivTypeData(),
         }};
   return module;
}

KIV_REGISTER_WHEN_LOADED(typeModule())

} // namespace PolicyMap
