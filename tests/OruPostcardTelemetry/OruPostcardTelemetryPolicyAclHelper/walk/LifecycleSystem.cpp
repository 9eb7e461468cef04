#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/walk/LifecycleSystem.h"

#include <algorithm>

namespace LifecycleWalk {

using namespace OruPostcardTelemetry;
using LifecycleModel::Content;
using LifecycleModel::Kind;

namespace {

// The records of the policy, as the agent would hand them over.
Pello::Ptr<const PolicyMap::PolicyMapSmCommonData> recordsOf(const Policy& policy) {
   TestSupport::PolicyRecords records{policy.name, policy.scope};
   for (const int family : {0, 1}) {
      const auto option = static_cast<PolicyMap::ClassMapMatchOption>(family);
      for (const std::string& name : policy.interfaces[family]) {
         family == 0 ? records.intf4(name) : records.intf6(name);
      }
      records.noRules(option);
      const Content content = policy.content[family];
      if (content != Content::nothing && content != Content::bad) {
         records.classMap("first").sample().filter(option, "acl");
      }
      if (content == Content::two) {
         records.classMap("second").sample().filter(option, "acl");
      }
      if (content == Content::oneThenBad || content == Content::bad) {
         records.classMap("third").sample().filter(option, "acl").data()->fragmentsIs();
      }
   }
   return records.data();
}

std::string configText(const PostcardTelemetryAclConfig& config) {
   std::string text = config.aclConfigKey().str() + " family " +
                      std::to_string(static_cast<U8>(config.aclType())) + " rules ";
   U32 expected = 0;
   for (const auto& rule : config.ruleByIndex()) {
      const bool fits = rule.key() == expected && config.ruleByName(rule->name()) == rule.value();
      text += (expected++ == 0 ? "" : ",") + rule->name().str() + (fits ? "" : " (misplaced)");
   }
   text += config.ruleByNames() == expected ? "" : " (and names without an index)";
   Lines interfaces;
   for (const auto& intf : config.policyIntf()) {
      interfaces.push_back(intf.stringValue().str());
   }
   std::ranges::sort(interfaces);
   text += " interfaces ";
   for (std::size_t i = 0; i != interfaces.size(); ++i) {
      // Like the model, which leaves no comma behind the empty name.
      text += (text.back() == ' ' ? "" : ",") + interfaces[i];
   }
   text += config.programmedPolicy() ? " programmed" : "";
   text += config.rulesClientUpdated() ? " updated" : "";
   text += " history";
   for (const auto& status : config.aclConfigStatus()->statusInOrder()) {
      text += " " + std::to_string(status.key()) + "='" + status.value().str() + "'";
   }
   return text + " next " + std::to_string(config.aclConfigStatus()->currentIndex());
}

} // namespace

System::System(const Client& client)
   : requests_{records_.clientConfig->publisher()->subscribe(
           [this, &client](const Pello::Change& change) {
              if (change.attribute == PostcardTelemetryRulesClientSmConfig::kickRequestId &&
                  client != Client::later) {
                 const bool success = client == Client::succeedsAtOnce;
                 returned_.push_back(answer(success, success ? "" : "busy"));
              }
           })} {}

std::string System::perform(const Command& command, const Policy& policy) {
   const auto data = recordsOf(policy);
   const auto option = static_cast<PolicyMap::ClassMapMatchOption>(command.family);
   const Orlix::IntfId intf{command.interface()};
   auto& helper = *records_.helper;
   switch (command.kind) {
   case Kind::create:
      return helper.createPolicy(data, option).str();
   case Kind::recreate:
      return helper.recreatePolicy(data, option).str();
   case Kind::commit:
      return helper.commitPolicy(data, option).str();
   case Kind::remove:
      return helper.deletePolicy(data, option).str();
   case Kind::addIntf:
      return helper.addIntfToPolicy(data, intf, {}, {}, option).str();
   case Kind::removeIntf:
      return helper.removeIntfFromPolicy(data, intf, {}, {}, option).str();
   default:
      return {};
   }
}

std::string System::answer(bool success, std::string_view text) {
   return records_.helper
         ->updatePolicyStatus(success ? statusSuccess : statusFailure, Pello::String{text})
         .str();
}

PostcardTelemetryAclConfigStatus& System::history(const std::string& key) {
   return *records_.config(key)->aclConfigStatus();
}

Lines System::seen() {
   Lines lines;
   for (const auto& config : records_.helper->aclConfigColl()) {
      lines.push_back("configuration " + configText(*config.value()));
   }
   std::ranges::sort(lines);
   const auto& request = *records_.clientConfig;
   lines.push_back("request " + std::to_string(request.event()) + " '" +
                   request.currIntf().stringValue().str() + "' " +
                   std::to_string(request.kickRequest()));
   if (const auto about = request.aclConfig()) {
      const bool current = records_.helper->aclConfigColl(about->aclConfigKey()) == about;
      lines.push_back((current ? "about " : "about what is gone ") + configText(*about));
   }
   lines.push_back("result " + records_.helper->asyncOperationResult().status().str());
   lines.push_back("living " + std::to_string(living() - before_));
   for (const std::string& line : log_.take()) {
      lines.push_back("published " + line);
   }
   for (const std::string& text : std::exchange(returned_, {})) {
      lines.push_back("returned to the client " + text);
   }
   return lines;
}

U64 System::living() {
   return PostcardTelemetryAclConfig::memAllocationTracker_.live();
}

} // namespace LifecycleWalk
