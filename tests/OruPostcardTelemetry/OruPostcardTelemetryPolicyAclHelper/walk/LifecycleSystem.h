// `System`: the helper with its rules client, driven by the same commands as the model and looked
// at as a whole. Relies on the records of the tests.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/walk/LifecycleScript.h"
#include "support/LifecycleRecords.h"

namespace LifecycleWalk {

using LifecycleModel::Client;
using LifecycleModel::Command;
using LifecycleModel::Policy;
using TestSupport::Lines;

class System {
 public:
   // `client` says how the rules client behaves, and may change.
   explicit System(const Client& client);

   // Does what the command says. Returns the text.
   std::string perform(const Command& command, const Policy& policy);
   std::string answer(bool success, std::string_view text);
   OruPostcardTelemetry::PostcardTelemetryAclConfigStatus& history(const std::string& key);
   // Everything that can be seen.
   Lines seen();

 private:
   static U64 living();

   U64 before_ = living();
   TestSupport::HelperRecords records_;
   TestSupport::RecordLog log_{*records_.clientConfig, *records_.helper};
   Lines returned_;
   Pello::Publisher::Subscription requests_;
};

} // namespace LifecycleWalk
