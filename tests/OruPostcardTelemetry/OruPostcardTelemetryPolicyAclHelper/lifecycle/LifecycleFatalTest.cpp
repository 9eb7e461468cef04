// Broken contracts in the life of a policy end the process: the error at level 0 where there is
// one, then the whole line of the assertion. Standard error also shows what was published before,
// in lines "! identifier what".
#include "support/FatalLine.h"
#include "support/LifecycleRecords.h"

#include <cstdio>

namespace OruPostcardTelemetry {
namespace {

using PolicyMap::ClassMapMatchOption;
using TestSupport::fatalLine;
using TestSupport::literally;

// The text of one of the helper's operations on a policy.
std::string functionText(const std::string& operation, bool intf = false) {
   return "virtual Kiv::String OruPostcardTelemetry::OruPostcardPolicyAclHelper::" + operation +
          "(const PtrConst&, " + (intf ? "Orlix::IntfId, Orlix::IntfId, L3::VrfName, " : "") +
          "PolicyMap::ClassMapMatchOption)";
}

const std::string deleteAclConfigText =
      "virtual void OruPostcardTelemetry::OruPostcardPolicyAclHelper::deleteAclConfig("
      "const PtrConst&, PolicyMap::ClassMapMatchOption)";
const std::string createAclConfigText =
      "virtual OruPostcardTelemetry::PostcardTelemetryAclConfig::Ptr "
      "OruPostcardTelemetry::OruPostcardPolicyAclHelper::createAclConfig(const PtrConst&, "
      "PolicyMap::ClassMapMatchOption)";
const std::string mappingText =
      "Acl::AclType OruPostcardTelemetry::matchOptionToAclType(PolicyMap::ClassMapMatchOption)";

const std::string updatePolicyStatusText =
      "virtual Kiv::String OruPostcardTelemetry::OruPostcardPolicyAclHelper::updatePolicyStatus("
      "OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatusType, const Pello::String&)";

// The line of the assertion right after another one, of which `before` is the pattern.
std::string fatalAfter(const std::string& before, const std::string& function,
                       std::string_view expression, std::string_view message = {}) {
   return before + "\n" + fatalLine(function, expression, message).substr(5);
}

// The pattern of an operation's error at level 0.
std::string errorTrace(const std::string& operation, const std::string& text) {
   return literally("OruPostcardTelemetryPolicyAclHelper 0 OruPostcardPolicyAclHelper::" +
                    operation + ": " + text);
}

class LifecycleDeathTest : public TestSupport::Lifecycle {
 protected:
   // Shows errors and publications, for the statement of a death test.
   void showAll() {
      TestSupport::showErrors();
      log.onLine = [](const std::string& line) { std::fprintf(stderr, "! %s\n", line.c_str()); };
   }
   ClassMapMatchOption unsupported(int number) { return static_cast<ClassMapMatchOption>(number); }
};

TEST_F(LifecycleDeathTest, commitOfAnUnknownPolicy) {
   for (const auto option : {ipv4, ipv6}) {
      const std::string number = option == ipv4 ? "0" : "1";
      EXPECT_DEATH((showAll(), commit(option)),
                   fatalAfter("^" + errorTrace("commitPolicy",
                                               "Error: Commit Policy received for a non-existent "
                                               "policy, Policy : p/s Match Option : " +
                                                     number),
                              functionText("commitPolicy"), "0"));
   }
}

TEST_F(LifecycleDeathTest, commitOfADeletedPolicy) {
   program();
   remove();
   EXPECT_DEATH((showAll(), commit()),
                fatalAfter("^" + errorTrace("commitPolicy",
                                            "Error: Commit Policy received for a non-existent "
                                            "policy, Policy : p/s Match Option : 0"),
                           functionText("commitPolicy"), "0"));
}

TEST_F(LifecycleDeathTest, interfacesOfAnUnknownPolicy) {
   for (const auto option : {ipv4, ipv6}) {
      const std::string rest = " Policy received for a non-existent policy, Policy : p/s "
                               "Match Option : " +
                               std::string{option == ipv4 ? "0" : "1"};
      EXPECT_DEATH((showAll(), addIntf("Ethernet1", option)),
                   fatalAfter("^" + errorTrace("addIntfToPolicy", "Error: Add Interface to" + rest),
                              functionText("addIntfToPolicy", true), "0"));
      EXPECT_DEATH((showAll(), removeIntf("Ethernet1", option)),
                   fatalAfter("^" + errorTrace("removeIntfFromPolicy",
                                               "Error: Remove Interface from" + rest),
                              functionText("removeIntfFromPolicy", true), "0"));
   }
}

TEST_F(LifecycleDeathTest, recreationOfAnUnknownPolicy) {
   EXPECT_DEATH((showAll(), recreate(ipv6)),
                fatalAfter("^" + errorTrace("deleteAclConfig",
                                            "Error : Acl Config does not exists for Policy : p/s "
                                            "Match Option : 1"),
                           deleteAclConfigText, "0"));
}

TEST_F(LifecycleDeathTest, aSecondCreation) {
   create();
   EXPECT_DEATH((showAll(), create()),
                fatalAfter("^" + errorTrace("createAclConfig",
                                            "Error: Acl Config already exists for Policy : p/s "
                                            "Match Option : 0"),
                           createAclConfigText, "0"));
   const auto other = TestSupport::PolicyRecords{"p", "t"}.intf4("Ethernet1");
   EXPECT_DEATH((showAll(), helper->createPolicy(other.data(), ipv4)),
                fatalAfter("^" + errorTrace("createAclConfig",
                                            "Error: Acl Config already exists for Policy : p/t "
                                            "Match Option : 0"),
                           createAclConfigText, "0"));
}

TEST_F(LifecycleDeathTest, creationForAnUnsupportedOption) {
   const auto line = [](const char* operation) {
      return "^" + fatalLine(functionText(operation),
                             "matchOption == PolicyMap::matchIpAccessGroup() || "
                             "matchOption == PolicyMap::matchIpv6AccessGroup()",
                             "unsupported match option");
   };
   create();
   for (const int number : {2, 255}) {
      EXPECT_DEATH((showAll(), create(unsupported(number))), line("createPolicy"));
      EXPECT_DEATH((showAll(), recreate(unsupported(number))), line("recreatePolicy"));
   }
}

// These look for the configuration's key without a check of their own.
TEST_F(LifecycleDeathTest, otherOperationsWithAnUnsupportedOption) {
   const std::string line = "^" + fatalLine(mappingText, R"(false && "unsupported match option")");
   for (const int number : {2, 255}) {
      EXPECT_DEATH((showAll(), commit(unsupported(number))), line);
      EXPECT_DEATH((showAll(), remove(unsupported(number))), line);
      EXPECT_DEATH((showAll(), addIntf("Ethernet1", unsupported(number))), line);
      EXPECT_DEATH((showAll(), removeIntf("Ethernet1", unsupported(number))), line);
   }
}

TEST_F(LifecycleDeathTest, creationWithoutInterfaces) {
   policy.changeable()->intf4DelAll();
   EXPECT_DEATH((showAll(), create(ipv4)),
                fatalAfter("^! aclConfigColl \\+p-ipv4", functionText("createPolicy"),
                           "policyData->intf4s()", "Policy without attached interfaces"));
   policy.intf4("Ethernet1").changeable()->intf6DelAll();
   EXPECT_DEATH((showAll(), create(ipv6)),
                fatalAfter("^! aclConfigColl \\+p-ipv6", functionText("createPolicy"),
                           "policyData->intf6s()", "Policy without attached interfaces"));
}

TEST_F(LifecycleDeathTest, recreationWithoutInterfaces) {
   create(ipv4);
   create(ipv6);
   policy.changeable()->intf4DelAll();
   EXPECT_DEATH((showAll(), recreate(ipv4)),
                fatalAfter("^! aclConfigColl -p-ipv4\n! aclConfigColl \\+p-ipv4",
                           functionText("recreatePolicy"), "policyData->intf4s()",
                           "Policy without attached interfaces"));
   policy.intf4("Ethernet1").changeable()->intf6DelAll();
   EXPECT_DEATH((showAll(), recreate(ipv6)),
                fatalAfter("^! aclConfigColl -p-ipv6\n! aclConfigColl \\+p-ipv6",
                           functionText("recreatePolicy"), "policyData->intf6s()",
                           "Policy without attached interfaces"));
}

TEST_F(LifecycleDeathTest, anAnswerForAConfigurationThatIsGone) {
   program();
   remove();
   const std::string line =
         fatalAfter("^" + errorTrace("updatePolicyStatus",
                                     "Acl Config not found for policy, Policy Key : p-ipv4"),
                    updatePolicyStatusText, "0");
   EXPECT_DEATH((showAll(), succeed()), line);
   EXPECT_DEATH((showAll(), fail("late")), line);
}

// There is no key to look for, so the error names none, even when a configuration has the empty
// key.
TEST_F(LifecycleDeathTest, anAnswerBeforeAnyRequest) {
   const std::string line = fatalAfter(
         "^" + errorTrace("updatePolicyStatus", "Acl Config not found for policy, Policy Key : "),
         updatePolicyStatusText, "0");
   create();
   helper->aclConfigCollIs("");
   EXPECT_DEATH((showAll(), succeed()), line);
   EXPECT_DEATH((showAll(), fail("early")), line);
}

TEST_F(LifecycleDeathTest, anAnswerToAHelperWithoutARequestRecord) {
   const auto bare = oruPostcardPolicyAclHelperFactory({}, {});
   EXPECT_DEATH((TestSupport::showErrors(), bare->updatePolicyStatus(statusSuccess, "")),
                fatalAfter("^" + errorTrace("updatePolicyStatus",
                                            "Acl Config not found for policy, Policy Key : "),
                           updatePolicyStatusText, "0"));
}

} // namespace
} // namespace OruPostcardTelemetry
