// Objects as JSON, made from what their types declare.
#include "postcard/json/EntityJson.h"

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RulesClientSm.h"
#include "PolicyMap/PolicyMapSmCommonData.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <ctime>
#include <string>

namespace {

using Postcard::Json::entityJson;
using Json = nlohmann::ordered_json;
using OruPostcardTelemetry::PostcardTelemetryAclConfig;
using OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig;
using OruPostcardTelemetry::RuleAction;

// Two rules, the first at two indexes.
Pello::Ptr<PostcardTelemetryAclConfig> someAcl() {
   Pello::Ptr<PostcardTelemetryAclConfig> acl{new PostcardTelemetryAclConfig{"web-ipv4"}};
   const auto rule = acl->ruleByNameIs("b");
   rule->ruleActionIs()->actionIs(RuleAction::setDscpAction);
   rule->ruleActionIs()->actionIs(RuleAction::sampleAction);
   acl->ruleByIndexIs(0, rule);
   acl->ruleByIndexIs(1, acl->ruleByNameIs("a"));
   acl->ruleByIndexIs(10, rule);
   acl->policyIntfIs(Orlix::IntfId{"Ethernet2"});
   acl->policyIntfIs(Orlix::IntfId{"Ethernet1"});
   acl->aclConfigStatusIs()->statusInOrderIs(0, "say \"no\"\n");
   return acl;
}

TEST(EntityJson, showsAttributesInTheirOrder) {
   const Json expected = Json::parse(R"({
      "aclConfigKey": "web-ipv4",
      "aclType": "ipv4",
      "ruleByName": {
         "a": {"name": "a", "ruleFilter": null, "ruleAction": null},
         "b": {"name": "b", "ruleFilter": null,
               "ruleAction": {"dscpDataAndMask": {"dscpData": 0, "dscpMask": 0},
                              "action": ["sampleAction", "setDscpAction"]}}},
      "ruleByIndex": {"0": "b", "1": "a", "10": "b"},
      "policyIntf": ["Ethernet1", "Ethernet2"],
      "programmedPolicy": false,
      "rulesClientUpdated": false,
      "aclConfigStatus": {"statusInOrder": {"0": "say \"no\"\n"}, "currentIndex": 0}
   })");
   EXPECT_EQ(entityJson(*someAcl()).dump(), expected.dump());
}

TEST(EntityJson, anObjectOfSomebodyElsesIsItsKey) {
   const Pello::Ptr<PostcardTelemetryRulesClientSmConfig> request{
         new PostcardTelemetryRulesClientSmConfig};
   EXPECT_EQ(entityJson(*request).dump(),
             R"({"event":"policyCreate","aclConfig":null,"currIntf":"","kickRequest":0})");
   request->aclConfigIs(someAcl());
   EXPECT_EQ(entityJson(*request)["aclConfig"], "web-ipv4");
}

TEST(EntityJson, aKeyOfSeveralAttributesIsItsGenericText) {
   const Pello::Ptr<PolicyMap::RulePriorityData> order{
         new PolicyMap::RulePriorityData{Acl::AclType::ipv6}};
   const PolicyMap::AclRuleKey key{PolicyMap::PolicyMapSmKey{"p", ""}, "c", "a", 3,
                                   PolicyMap::matchIpv6AccessGroup()};
   order->entryIs(PolicyMap::RulePriority{7}, key);
   const Json json = entityJson(*order);
   EXPECT_EQ(json["rule"]["7"]["className"], "c");
   EXPECT_EQ(json["rule"]["7"]["policyMapKey"]["name"], "p");
   EXPECT_EQ(json["priority"][Kiv::valueText(key)], 7);
}

// Looking for each member among those before it would take minutes.
TEST(EntityJson, manyRulesTakeTimeInProportion) {
   const Pello::Ptr<PostcardTelemetryAclConfig> acl{new PostcardTelemetryAclConfig{"big"}};
   constexpr U32 rules = 100'000;
   for (U32 index = 0; index < rules; ++index) {
      acl->ruleByIndexIs(index, acl->ruleByNameIs(Pello::String{std::to_string(index)}));
   }
   const std::clock_t begin = std::clock(); // processor time: the machine may be busy
   EXPECT_EQ(entityJson(*acl)["ruleByIndex"].size(), rules);
   EXPECT_LT(std::clock() - begin, 30 * CLOCKS_PER_SEC);
}

} // namespace
