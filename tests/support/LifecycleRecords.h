// `Lifecycle`: the fixture for the life of a policy: a helper whose rule generation the test
// dictates, one policy, one-word verbs for the operations, and a log of everything that is
// published meanwhile. Relies on HelperRecords, PolicyRecords and TraceCapture.
#pragma once

#include "Kiv/System.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Naming.h"
#include "support/HelperRecords.h"
#include "support/PolicyRecords.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace TestSupport {

using Lines = std::vector<std::string>;

inline Lines together(std::initializer_list<Lines> parts) {
   Lines all;
   for (const Lines& part : parts) {
      all.insert(all.end(), part.begin(), part.end());
   }
   return all;
}

// A trace as a line "level operation: text"; the trace of entry into an operation is "8 operation".
inline std::string toldLine(const std::string& level, const std::string& operation,
                            const std::string& text) {
   return level + " " + operation + (level == "8" && text.empty() ? "" : ": " + text);
}

inline Lines told(const TraceCapture& capture) {
   Lines lines;
   for (const CapturedTrace& trace : capture.traces()) {
      lines.push_back(toldLine(std::to_string(trace.level), trace.functionName, trace.text));
   }
   return lines;
}

// The same for expected traces of one operation, each "level text", its entry "8".
inline Lines by(const std::string& operation, Lines lines) {
   for (std::string& line : lines) {
      line = toldLine(line.substr(0, 1), operation,
                      line.substr(std::min<std::size_t>(2, line.size())));
   }
   return lines;
}

// A helper that makes the rules that the test names, without a look at the policy.
class ScriptedHelper : public OruPostcardTelemetry::OruPostcardPolicyAclHelper {
 public:
   using OruPostcardPolicyAclHelper::OruPostcardPolicyAclHelper;

   Kiv::String updateRulesInAclConfig(const PolicyDataPtr& policyData,
                                      MatchOption option) override {
      const auto type = OruPostcardTelemetry::matchOptionToAclType(option);
      const AclConfigPtr config =
            aclConfigColl(OruPostcardTelemetry::aclName(policyData->key().name(), type));
      for (const std::string& name : rules) {
         const auto index = static_cast<U32>(config->ruleByIndexs());
         config->ruleByIndexIs(index, config->ruleByNameIs(Pello::String{name}));
      }
      if (whileMakingRules) {
         whileMakingRules(*config);
      }
      return rulesResult;
   }

   Lines rules{"rule"};
   Kiv::String rulesResult;
   std::function<void(OruPostcardTelemetry::PostcardTelemetryAclConfig&)> whileMakingRules;
};

// The name of the attribute of `owner` that has changed.
inline std::string nameOf(const Pello::Change& change, const Kiv::Entity& owner) {
   return std::string{owner.typeData().attribute(change.attribute).name};
}

// Every publication of the request record and of the helper, in order. A line is the attribute's
// name and, for the record, the old value ("aclConfig nothing" before the first configuration); for
// the collection of configurations, "aclConfigColl +key" or "aclConfigColl -key"; for an
// asynchronous result, its text.
class RecordLog {
 public:
   using Request = OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig;
   using Helper = OruPostcardTelemetry::OruPostcardPolicyAclHelper;

   // Both must outlive the log.
   RecordLog(const Request& request, const Helper& helper)
      : record_{request},
        helper_{helper},
        request_{request.publisher()->subscribe(
              [this](const Pello::Change& change) { requestChanged(change); })},
        results_{helper.publisher()->subscribe(
              [this](const Pello::Change& change) { helperChanged(change); })} {}
   RecordLog(const RecordLog&) = delete;
   RecordLog& operator=(const RecordLog&) = delete;

   // The lines since the last call.
   Lines take() { return std::exchange(lines_, {}); }
   // Called with every line, for what cannot wait.
   std::function<void(const std::string&)> onLine;

 private:
   void note(std::string line) {
      lines_.push_back(std::move(line));
      if (onLine) {
         onLine(lines_.back());
      }
   }
   void requestChanged(const Pello::Change& change) {
      using namespace OruPostcardTelemetry;
      using Reference = Pello::Ptr<const PostcardTelemetryAclConfig>;
      std::string old = "of an unknown type";
      if (const auto* event = change.oldValue.as<PostcardTelemetryRulesClientSmEvent>()) {
         old = std::string{stringValue(*event)};
      } else if (const auto* config = change.oldValue.as<Reference>()) {
         old = *config == nullptr ? "nothing" : (*config)->aclConfigKey().str();
      } else if (const auto* intf = change.oldValue.as<Orlix::IntfId>()) {
         old = intf->stringValue().str();
      } else if (const auto* count = change.oldValue.as<U32>()) {
         old = std::to_string(*count);
      }
      note(nameOf(change, record_) + " " + old);
   }
   void helperChanged(const Pello::Change& change) {
      std::string line = nameOf(change, helper_) + " ";
      if (const auto* key = change.key.as<Pello::String>()) {
         line += (change.oldValue.empty() ? "+" : "-") + key->str();
      } else {
         const auto& result = helper_.asyncOperationResult();
         const bool now = std::abs(Kiv::System::currentTime() - result.time()) < 10;
         line += result.status().str() + (now ? "" : " (at another time)");
      }
      note(std::move(line));
   }

   const Request& record_;
   const Helper& helper_;
   Lines lines_;
   Pello::Publisher::Subscription request_;
   Pello::Publisher::Subscription results_;
};

class Lifecycle : public testing::Test {
 protected:
   using MatchOption = PolicyMap::ClassMapMatchOption;
   using Config = OruPostcardTelemetry::PostcardTelemetryAclConfig;
   static constexpr MatchOption ipv4 = PolicyMap::matchIpAccessGroup();
   static constexpr MatchOption ipv6 = PolicyMap::matchIpv6AccessGroup();

   Lifecycle() { policy.intf4("Ethernet1").intf6("Ethernet6"); }

   Kiv::String create(MatchOption option = ipv4) {
      return helper->createPolicy(policy.data(), option);
   }
   Kiv::String commit(MatchOption option = ipv4) {
      return helper->commitPolicy(policy.data(), option);
   }
   Kiv::String recreate(MatchOption option = ipv4) {
      return helper->recreatePolicy(policy.data(), option);
   }
   Kiv::String remove(MatchOption option = ipv4) {
      return helper->deletePolicy(policy.data(), option);
   }
   Kiv::String addIntf(std::string_view name, MatchOption option = ipv4) {
      return helper->addIntfToPolicy(policy.data(), Orlix::IntfId{name},
                                     Orlix::IntfId{"Port-Channel9"}, L3::VrfName{"red"}, option);
   }
   Kiv::String removeIntf(std::string_view name, MatchOption option = ipv4) {
      return helper->removeIntfFromPolicy(policy.data(), Orlix::IntfId{name},
                                          Orlix::IntfId{"Port-Channel9"}, L3::VrfName{"red"},
                                          option);
   }
   // The rules client's answers.
   Kiv::String succeed(std::string_view text = {}) {
      return helper->updatePolicyStatus(OruPostcardTelemetry::statusSuccess, Pello::String{text});
   }
   Kiv::String fail(std::string_view text) {
      return helper->updatePolicyStatus(OruPostcardTelemetry::statusFailure, Pello::String{text});
   }
   // Created, committed and answered with success; what was published on the way is forgotten.
   void program(MatchOption option = ipv4) {
      create(option);
      commit(option);
      succeed();
      log.take();
   }

   Pello::Ptr<Config> config(std::string_view key = "p-ipv4") const {
      return helper->aclConfigColl(Pello::String{key});
   }
   // Names, sorted.
   static Lines interfaces(const Config& config) {
      Lines names;
      for (const auto& intf : config.policyIntf()) {
         names.push_back(intf.stringValue().str());
      }
      std::ranges::sort(names);
      return names;
   }
   // "key text", and last "next key".
   static Lines history(const Config& config) {
      const auto& status = *config.aclConfigStatus();
      Lines lines;
      for (const auto& text : status.statusInOrder()) {
         lines.push_back(std::to_string(text.key()) + " " + text.value().str());
      }
      lines.push_back("next " + std::to_string(status.currentIndex()));
      return lines;
   }
   // What looking up the key of the policy traces.
   static Lines keyTraces(MatchOption option = ipv4) {
      const bool six = option == ipv6;
      const std::string type = six ? "ipv6" : "ipv4";
      return by("getAclConfigKey",
                {"8",
                 std::string{"9 Policy : p/s, Match Option : "} +
                       (six ? "matchIpv6AccessGroup" : "matchIpAccessGroup"),
                 "5 Policy : p, Acl Type : " + type, "5 Acl Config Key : p-" + type});
   }
   // What posting a request that leaves the interface alone traces.
   static Lines requestTraces(int event) {
      return by("updateRulesClientConfig", {"8",
                                            "5 Acl Config Key : p-ipv4, Event : " +
                                                  std::to_string(event) + ", Current Interface : ",
                                            "5 Rules Client Updated : true"});
   }
   // What entering (or removing) an interface traces.
   static Lines intfTraces(const std::string& name, bool removal = false,
                           const std::string& key = "p-ipv4") {
      const std::string what = removal ? "5 Removing " : "5 Adding ";
      return by("updateIntfInAclConfig",
                {"8",
                 "9 Acl Config Key : " + key + ", Interface : " + name +
                       ", Remove Interface : " + (removal ? "true" : "false"),
                 what + name + (removal ? " from" : " to") + " aclConfig->policyIntf()"});
   }

   HelperRecords records;
   Pello::Ptr<ScriptedHelper> helper{
         HelperRecords::make<ScriptedHelper>(records.clientConfig, records.hwCapability)};
   const Pello::Ptr<RecordLog::Request>& request = records.clientConfig;
   PolicyRecords policy{"p", "s"};
   RecordLog log{*records.clientConfig, *helper};
};

} // namespace TestSupport
