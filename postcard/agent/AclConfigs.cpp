#include "postcard/agent/AclConfigs.h"

#include "Kiv/TypeData.h"

namespace Postcard::Agent {

AclConfigs::AclConfigs(const Host::HelperHandle& helper) : helper_{helper} {
   const U16 collection = helper->typeData().attribute("aclConfigColl").id;
   subscription_ = helper->publisher()->subscribe([this, collection](const Pello::Change& change) {
      const auto* key = change.key.as<Pello::String>();
      if (change.attribute != collection || key == nullptr) {
         return;
      }
      // A change with an old value is a removal: the collection never replaces an element.
      if (change.oldValue.empty()) {
         found_.try_emplace(key->str());
      } else {
         found_.erase(key->str());
      }
   });
}

void AclConfigs::learn(const RulesClient::RequestRecord& request) {
   const auto found = found_.find(request.aclConfig()->aclConfigKey().str());
   if (found != found_.end()) {
      // The record shows rules clients a constant object; the helper, whose object it is, hands it
      // out as one that may be changed (`HelperHandle::forEachAclConfig`).
      found->second = const_cast<AclConfig*>(request.aclConfig().get());
   }
}

Pello::Ptr<AclConfigs::AclConfig> AclConfigs::find(std::string_view key) {
   const auto found = found_.find(std::string{key});
   if (found == found_.end()) {
      return nullptr;
   }
   if (found->second == nullptr) {
      helper_.forEachAclConfig([&](AclConfig& config) {
         if (config.aclConfigKey() == key) {
            found->second = &config;
         }
      });
   }
   return found->second;
}

} // namespace Postcard::Agent
