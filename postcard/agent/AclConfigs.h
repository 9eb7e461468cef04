// `AclConfigs`: finds an ACL configuration of a helper by its key. Relies on the plug-in host, and
// on what the helper publishes about its collection.
//
// Reflection can walk the helper's collection and cannot look a key up. With thousands of policies,
// a walk for each of them would take longer than everything else. Therefore this class notes which
// keys the helper has, and takes the configuration of a request from the request record.
#pragma once

#include "postcard/host/PluginHost.h"
#include "postcard/rules-client/Records.h"

#include <string>
#include <string_view>
#include <unordered_map>

namespace Postcard::Agent {

class AclConfigs {
 public:
   using AclConfig = OruPostcardTelemetry::PostcardTelemetryAclConfig;

   // `helper` must outlive this object, and must have no configurations yet.
   explicit AclConfigs(const Host::HelperHandle& helper);
   AclConfigs(const AclConfigs&) = delete;
   AclConfigs& operator=(const AclConfigs&) = delete;

   // Notes the configuration that `request` is about, so that `find` need not walk for it. Call it
   // after the helper has posted a request about a configuration that it still has.
   void learn(const RulesClient::RequestRecord& request);

   // Whether the helper has a configuration under `key`. Takes the same time for any number.
   bool has(std::string_view key) const { return found_.contains(std::string{key}); }
   // The configuration under `key`, which the helper owns, or null. Walks the collection once when
   // neither `learn` nor an earlier call has met the configuration.
   Pello::Ptr<AclConfig> find(std::string_view key);

 private:
   const Host::HelperHandle& helper_;
   // The keys that the helper has. Null: there is a configuration that nobody has met yet.
   std::unordered_map<std::string, Pello::Ptr<AclConfig>> found_;
   Pello::Publisher::Subscription subscription_;
};

} // namespace Postcard::Agent
