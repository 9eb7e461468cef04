// What a running agent tells of itself: what its objects cost, and which traces it writes.
#include "Pello/Types.h"
#include "postcard/cli/AgentProgram.h"

#include <string>

namespace {

using CliTest::oneClass;
using CliTest::policyText;
using CliTest::program;
using CliTest::twoClasses;
using TestSupport::ProgramResult;
using TestSupport::runProgram;

class AgentLook : public CliTest::AgentProgram {
 protected:
   void programmed() {
      write(policyText("Ethernet1", oneClass));
      start();
      ASSERT_TRUE(eventually([this] { return allProgrammed(); }));
   }
   // Live objects of a type, from the agent.
   U64 live(const std::string& type) const {
      const auto report =
            nlohmann::json::parse(ask("status", {"--memory", "--format", "json"}).out);
      for (const auto& row : report.at("types")) {
         if (row.at("type") == "OruPostcardTelemetry::" + type) {
            EXPECT_EQ(row.at("bytes").get<U64>(),
                      row.at("live").get<U64>() * row.at("objectSize").get<U64>());
            return row.at("live");
         }
      }
      ADD_FAILURE() << type << " is not reported";
      return 0;
   }
};

TEST_F(AgentLook, memoryIsThatOfTheObjectsItHas) {
   programmed();
   EXPECT_EQ(live("RuleConfig"), 2U) << "TCP and UDP";
   EXPECT_EQ(live("PostcardTelemetryAclConfig"), 1U);
   EXPECT_EQ(live("OruPostcardPolicyAclHelper"), 1U);
   const ProgramResult text = ask("status", {"--memory"});
   EXPECT_EQ(text.exitCode, 0);
   EXPECT_TRUE(text.out.starts_with("      LIVE        BYTES    EVER MADE  TYPE\n")) << text.out;
   EXPECT_NE(text.out.find("  OruPostcardTelemetry::RuleConfig\n"), std::string::npos);
   EXPECT_NE(text.out.find("\nlive objects: "), std::string::npos);
}

TEST_F(AgentLook, aReloadLeavesNoObjectBehind) {
   programmed();
   const U64 filters = live("RuleFilter");
   write(policyText("Ethernet1", twoClasses));
   EXPECT_EQ(ask("reload").exitCode, 0);
   ASSERT_TRUE(eventually([this] { return allProgrammed(); }));
   EXPECT_GT(live("RuleFilter"), filters);
   write(policyText("Ethernet1", oneClass));
   EXPECT_EQ(ask("reload").exitCode, 0);
   ASSERT_TRUE(eventually([this] { return allProgrammed(); }));
   EXPECT_EQ(live("RuleFilter"), filters);
   EXPECT_EQ(live("OruPostcardPolicyAclHelper"), 1U) << "the scratch helper is gone";
}

TEST_F(AgentLook, traceLevelsAreSetWhileItRuns) {
   programmed();
   const std::string setting = "OruPostcardTelemetryPolicyAclHelper/5";
   EXPECT_EQ(ask("trace-levels").out, "\n") << "none at first";
   EXPECT_EQ(err().find("Class Map"), std::string::npos);
   EXPECT_EQ(ask("trace-levels", {setting}).out, setting + "\n");
   EXPECT_EQ(ask("trace-levels").out, setting + "\n");
   write(policyText("Ethernet1", twoClasses));
   EXPECT_EQ(ask("reload").exitCode, 0);
   EXPECT_NE(err().find("Class Map : dns"), std::string::npos) << err();
   EXPECT_EQ(ask("trace-levels", {""}).out, "\n");
   const std::string before = err();
   write(policyText("Ethernet1", oneClass));
   EXPECT_EQ(ask("reload").exitCode, 0);
   EXPECT_EQ(err().find("OruPostcard", before.size()), std::string::npos) << "and off again";
}

TEST_F(AgentLook, levelsThatAreNoneChangeNothing) {
   programmed();
   ask("trace-levels", {"*/0"});
   const ProgramResult bad = ask("trace-levels", {"*/12"});
   EXPECT_EQ(bad.exitCode, 2);
   EXPECT_EQ(bad.out, "");
   EXPECT_NE(bad.err.find("*/12"), std::string::npos) << bad.err;
   EXPECT_EQ(ask("trace-levels").out, "*/0\n");
}

TEST_F(AgentLook, nobodyAnswers) {
   EXPECT_EQ(ask("trace-levels").exitCode, 3);
   EXPECT_EQ(ask("status", {"--memory"}).exitCode, 3);
   EXPECT_EQ(runProgram({program, "trace-levels", "--format", "json"}).exitCode, 2);
}

} // namespace
