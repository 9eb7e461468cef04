// What an agent does about each pair: the table of cases, and the order of its requests.
#include "postcard/changes/AgentPlan.h"

#include "postcard/policy/file/PolicyFile.h"

#include <gtest/gtest.h>

namespace {

using namespace Postcard::Changes;
namespace Policy = Postcard::Policy;
using Policy::Family;

Policy::PolicyFile fileOf(const std::string& policies) {
   auto loaded = Policy::File::parsePolicyText("policies:\n" + policies, "p.yaml");
   EXPECT_EQ(formatFindings(loaded), "");
   return *loaded.policyFile;
}

std::string policy(const std::string& name, const std::string& interfaces,
                   const std::string& filter = "ipv4: {}") {
   return "- { name: " + name + ", interfaces: { " + interfaces +
          " }, classes: [{ name: c, actions: [sample], " + filter + " }] }\n";
}

const std::string one = policy("p", "ipv4: [Ethernet1]");
const std::string two = policy("p", "ipv4: [Ethernet2, Ethernet3]");
const std::string other =
      policy("p", "ipv4: [Ethernet1]", "ipv4: { protocols: [{ protocol: tcp }] }");
const std::string six = policy("p", "ipv6: [Ethernet1]", "ipv6: {}");

struct Row {
   std::string before;
   std::string after;
   EntryCounts entries;
   std::string result; // "ACTION REQUESTS" and whether rules are replaced
};

const std::vector<Row> rows = {
      {one, one, {2, 2}, "none 0"},
      {one, two, {2, 2}, "interfaces 3"},
      {one, two, {0, 0}, "interfaces 0"},
      {one, other, {2, 1}, "re-create 1 replaces"},
      {one, other, {2, 0}, "re-create 1 replaces"},
      {one, other, {0, 1}, "re-create 1"},
      {one, other, {0, 0}, "re-create 0"},
      {one, other, {{}, 1}, "create 1"},
      {one, " []", {2, {}}, "remove 1 replaces"},
      {one, " []", {0, {}}, "remove 0"},
      {" []", one, {{}, 2}, "create 1"},
      {" []", one, {{}, 0}, "create 0"},
};

TEST(AgentPlan, tableOfPairs) {
   for (const Row& row : rows) {
      const auto before = fileOf(row.before);
      const auto after = fileOf(row.after);
      const auto pairs = aclPairs(before, after);
      ASSERT_EQ(pairs.size(), 1U);
      const bool same = sameRules(pairs[0], before.hardware, after.hardware);
      const AgentStep step = agentStep(pairs[0], same, row.entries);
      EXPECT_EQ(std::string{actionName(step.action)} + " " + std::to_string(step.requests) +
                      (step.replacesRules ? " replaces" : ""),
                row.result)
            << row.before << row.after;
   }
}

TEST(AgentPlan, otherHardwareMakesOtherRules) {
   const auto before = fileOf(one);
   auto after = fileOf(one);
   after.hardware.tcpFlags = !before.hardware.tcpFlags;
   EXPECT_FALSE(sameRules(aclPairs(before, after)[0], before.hardware, after.hardware));
}

TEST(AgentPlan, whatGoesComesFirstThenTheOrderOfTheLaterFile) {
   const auto before = fileOf(policy("z", "ipv4: [E1]") + policy("b", "ipv4: [E1], ipv6: [E1]") +
                              policy("a", "ipv6: [E1], ipv4: [E1]"));
   const auto after = fileOf(policy("y", "ipv4: [E1]") + policy("b", "ipv4: [E1]"));
   std::string order;
   for (const AclPair& pair : aclPairs(before, after)) {
      order += pair.policy + "-" + std::string{familyName(pair.family)} +
               (pair.after == nullptr    ? " goes\n"
                : pair.before == nullptr ? " comes\n"
                                         : " stays\n");
   }
   EXPECT_EQ(order, "a-ipv4 goes\na-ipv6 goes\nb-ipv6 goes\nz-ipv4 goes\ny-ipv4 comes\n"
                    "b-ipv4 stays\n");
}

TEST(AgentPlan, requestsAreNumberedInTheirOrder) {
   AgentStep first{AgentAction::remove, 1, 0, true};
   AgentStep silent{AgentAction::create, 0, 0, false};
   AgentStep interfaces{AgentAction::interfaces, 3, 0, false};
   AgentStep last{AgentAction::recreate, 1, 0, true};
   EXPECT_EQ(numberRequests({&first, &silent, &interfaces, &last}), 5U);
   EXPECT_EQ(first.firstRequest, 1U);
   EXPECT_EQ(silent.firstRequest, 0U);
   EXPECT_EQ(interfaces.firstRequest, 2U);
   EXPECT_EQ(last.firstRequest, 5U);
}

} // namespace
