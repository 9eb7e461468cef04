// How ACL configurations are named, keyed, made and removed.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Naming.h"

#include "support/FatalLine.h"
#include "support/HelperRecords.h"
#include "support/PolicyRecords.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace OruPostcardTelemetry {
namespace {

using PolicyMap::ClassMapMatchOption;
using PolicyMap::matchIpAccessGroup;
using PolicyMap::matchIpv6AccessGroup;
using PolicyMap::matchMacAccessGroup;
using namespace TestSupport;

constexpr std::string_view mappingFunction =
      "Acl::AclType OruPostcardTelemetry::matchOptionToAclType(PolicyMap::ClassMapMatchOption)";
constexpr std::string_view unsupportedOption = R"(false && "unsupported match option")";

TEST(Naming, matchOptionToAclTypeKeepsTheNumber) {
   EXPECT_EQ(matchOptionToAclType(matchIpAccessGroup()), Acl::AclType{0});
   EXPECT_EQ(matchOptionToAclType(matchIpv6AccessGroup()), Acl::AclType{1});
}

TEST(NamingDeathTest, anyOtherMatchOptionEndsTheProcess) {
   for (const int number : {2, 3, 255}) {
      EXPECT_DEATH(matchOptionToAclType(static_cast<ClassMapMatchOption>(number)),
                   fatalLine(mappingFunction, unsupportedOption));
   }
}

TEST(Naming, nameAndTypeAreJoinedByAHyphen) {
   const struct {
      const char* name;
      Acl::AclType type;
      const char* expected;
   } rows[] = {
         {"p1", Acl::AclType{0}, "p1-ipv4"},
         {"p1", Acl::AclType{1}, "p1-ipv6"},
         {"", Acl::AclType{0}, "-ipv4"},
         {"a-ipv4", Acl::AclType{0}, "a-ipv4-ipv4"},
         {"%s 'x'", Acl::AclType{1}, "%s 'x'-ipv6"},
   };
   for (const auto& row : rows) {
      EXPECT_EQ(aclName(row.name, row.type), row.expected);
      EXPECT_EQ(ruleName(row.name, row.type), aclName(row.name, row.type));
   }
}

class AclConfigOfPolicy : public testing::Test {
 protected:
   Pello::String key(ClassMapMatchOption option) {
      return records.helper->getAclConfigKey(policy.data(), option);
   }
   HelperRecords records;
   PolicyRecords policy{"p1", "line card 3"};
};
using AclConfigOfPolicyDeathTest = AclConfigOfPolicy;

TEST_F(AclConfigOfPolicy, familiesHaveTwoKeys) {
   EXPECT_EQ(key(matchIpAccessGroup()), "p1-ipv4");
   EXPECT_EQ(key(matchIpv6AccessGroup()), "p1-ipv6");
}

TEST_F(AclConfigOfPolicy, keyDependsOnTheNameAlone) {
   const PolicyRecords sameName{"p1"};
   EXPECT_EQ(records.helper->getAclConfigKey(sameName.data(), matchIpAccessGroup()),
             key(matchIpAccessGroup()));
}

TEST_F(AclConfigOfPolicyDeathTest, keyOfAnUnsupportedOptionEndsTheProcess) {
   EXPECT_DEATH(key(matchMacAccessGroup()), fatalLine(mappingFunction, unsupportedOption));
   EXPECT_DEATH(records.helper->createAclConfig(policy.data(), matchMacAccessGroup()),
                fatalLine(mappingFunction, unsupportedOption));
   EXPECT_DEATH(records.helper->deleteAclConfig(policy.data(), matchMacAccessGroup()),
                fatalLine(mappingFunction, unsupportedOption));
}

// Gives every policy the same key, whatever the option.
class OneKey : public OruPostcardPolicyAclHelper {
 public:
   using OruPostcardPolicyAclHelper::OruPostcardPolicyAclHelper;
   Pello::String getAclConfigKey(const PolicyDataPtr&, MatchOption) override { return "key"; }
};

// The configuration is there, and published, when the option turns out to have no type.
TEST_F(AclConfigOfPolicyDeathTest, typeOfAnUnsupportedOptionEndsTheProcess) {
   const auto helper = HelperRecords::make<OneKey>(records.clientConfig, records.hwCapability);
   const auto subscription = helper->publisher()->subscribe([&](const Pello::Change& change) {
      std::fprintf(stderr, "%s %s %d\n", helper->typeData().attribute(change.attribute).name.data(),
                   change.key.as<Pello::String>()->c_str(),
                   helper->aclConfigColl("key") != nullptr ? 1 : 0);
   });
   for (const int number : {2, 255}) {
      EXPECT_DEATH(helper->createAclConfig(policy.data(), static_cast<ClassMapMatchOption>(number)),
                   "^aclConfigColl key 1\n" +
                         fatalLine(mappingFunction, unsupportedOption).substr(5));
   }
}

TEST_F(AclConfigOfPolicy, createdOneHasKeyTypeAndStatusAndNothingElse) {
   for (const auto option : {matchIpAccessGroup(), matchIpv6AccessGroup()}) {
      const auto config = records.helper->createAclConfig(policy.data(), option);
      EXPECT_EQ(config->aclConfigKey(), key(option));
      EXPECT_EQ(static_cast<U8>(config->aclType()), static_cast<U8>(option));
      ASSERT_NE(config->aclConfigStatus(), nullptr);
      EXPECT_EQ(config->aclConfigStatus()->currentIndex(), 0U);
      EXPECT_EQ(config->ruleByNames() + config->ruleByIndexs() + config->policyIntfs(), 0U);
      EXPECT_FALSE(config->programmedPolicy());
      EXPECT_FALSE(config->rulesClientUpdated());
      EXPECT_EQ(records.helper->aclConfigColl(key(option)), config);
   }
   EXPECT_EQ(records.helper->aclConfigColls(), 2U);
}

TEST_F(AclConfigOfPolicyDeathTest, secondCreationEndsTheProcess) {
   for (const auto option : {matchIpAccessGroup(), matchIpv6AccessGroup()}) {
      records.helper->createAclConfig(policy.data(), option);
      EXPECT_DEATH(
            (showErrors(), records.helper->createAclConfig(policy.data(), option)),
            errorThenFatalLine("createAclConfig",
                               "Error: Acl Config already exists for Policy : p1/line card 3 "
                               "Match Option : " +
                                     std::to_string(static_cast<U8>(option)),
                               "virtual OruPostcardTelemetry::PostcardTelemetryAclConfig::Ptr "
                               "OruPostcardTelemetry::OruPostcardPolicyAclHelper::createAclConfig("
                               "const PtrConst&, PolicyMap::ClassMapMatchOption)",
                               "0"));
   }
}

TEST_F(AclConfigOfPolicyDeathTest, deletionOfAMissingOneEndsTheProcess) {
   for (const auto option : {matchIpAccessGroup(), matchIpv6AccessGroup()}) {
      EXPECT_DEATH(
            (showErrors(), records.helper->deleteAclConfig(policy.data(), option)),
            errorThenFatalLine("deleteAclConfig",
                               "Error : Acl Config does not exists for Policy : p1/line card 3 "
                               "Match Option : " +
                                     std::to_string(static_cast<U8>(option)),
                               "virtual void OruPostcardTelemetry::OruPostcardPolicyAclHelper::"
                               "deleteAclConfig(const PtrConst&, PolicyMap::ClassMapMatchOption)",
                               "0"));
   }
}

TEST_F(AclConfigOfPolicy, deletionLeavesTheObjectToItsOtherHolders) {
   const auto config = records.helper->createAclConfig(policy.data(), matchIpAccessGroup());
   records.helper->createAclConfig(policy.data(), matchIpv6AccessGroup());
   records.helper->deleteAclConfig(policy.data(), matchIpAccessGroup());
   EXPECT_EQ(records.config("p1-ipv4"), nullptr);
   EXPECT_NE(records.config("p1-ipv6"), nullptr);
   EXPECT_EQ(config->references(), 1U);
   EXPECT_EQ(config->aclConfigKey(), "p1-ipv4");
}

TEST_F(AclConfigOfPolicy, canBeMadeAgainAfterItsDeletion) {
   const auto first = records.helper->createAclConfig(policy.data(), matchIpAccessGroup());
   records.helper->deleteAclConfig(policy.data(), matchIpAccessGroup());
   EXPECT_NE(records.helper->createAclConfig(policy.data(), matchIpAccessGroup()), first);
}

} // namespace
} // namespace OruPostcardTelemetry
