#pragma once

// A helper with its two records, and the policies that most subjects start from.

#include "Guesses.h"

#include <string>
#include <vector>

namespace thirdparty {

struct Bench {
   Pello::Ptr<Oru::PostcardTelemetryRulesClientSmConfig> request{
         Oru::postcardTelemetryRulesClientSmConfigFactory()};
   Pello::Ptr<Oru::OruPostcardPolicyAclHelper> helper{};

   explicit Bench(bool tcpFlagsSupported = true)
      : helper{Oru::oruPostcardPolicyAclHelperFactory(request, capability(tcpFlagsSupported))} {}

   Pello::Ptr<Oru::PostcardTelemetryAclConfig> config(const Pello::Ptr<PolicyData>& policy,
                                                      MatchOption option = ipv4()) const {
      return helper->aclConfigColl(helper->getAclConfigKey(policy, option));
   }
};

// A policy attached to one interface of IPv4, with a table of priorities that has no entry yet.
inline Pello::Ptr<PolicyData> attachedPolicy(const char* name) {
   const Pello::Ptr<PolicyData> policy{makePolicy(name)};
   attachIntf4(policy, "Ethernet1");
   addPriorityTable(policy, ipv4());
   return policy;
}

// An attached policy whose one class samples everything.
inline Pello::Ptr<PolicyData> samplingPolicy(const char* name) {
   const Pello::Ptr<PolicyData> policy{attachedPolicy(name)};
   addAction(addClass(policy, ipv4(), 1, "web"), sampleAll);
   return policy;
}

// The name that the platform gives the family, as it stands in the names of rules.
inline std::string familyName(MatchOption option) {
   return text(Oru::aclName("", Oru::matchOptionToAclType(option))).substr(1);
}

// A name followed by the family, as rules and configurations are named.
inline std::string withFamily(const std::string& name, MatchOption option = ipv4()) {
   return name + "-" + familyName(option);
}

inline std::vector<std::string> namesInOrder(const Oru::PostcardTelemetryAclConfig& config) {
   std::vector<std::string> names{};
   for (const auto& [index, rule] : rulesByIndex(config)) {
      names.push_back(text(rule->name()));
   }
   return names;
}

} // namespace thirdparty
