// The agent's work with many policies: in proportion to their number, whatever is done to them.
// Counted in entries that it looks at, because times differ from machine to machine.
#include "postcard/agent/PolicyAgentFixture.h"

namespace Postcard::Agent {
namespace {

// `count` policies with the given interfaces and class.
std::string manyPolicies(int count, const std::string& interfaces, const std::string& classes) {
   std::string text = "policies:\n";
   for (int i = 0; i < count; ++i) {
      text += "  - { name: p" + std::to_string(i) + ", interfaces: { ipv4: [" + interfaces +
              "] }, classes: [" + classes + "] }\n";
   }
   return text;
}

class PolicyAgentScaleTest : public PolicyAgentTest {
 protected:
   struct Work {
      std::uint64_t start;
      std::uint64_t interfaces;
      std::uint64_t classes;
      std::uint64_t lost;
      std::uint64_t removal;
   };

   // The entries that were looked at since the previous call.
   std::uint64_t looked() {
      const std::uint64_t now = agent_->looks();
      return now - std::exchange(before_, now);
   }

   Work workOf(int count) {
      start(manyPolicies(count, "Ethernet1", oneClass));
      before_ = 0;
      Work work{};
      work.start = looked();
      reload(manyPolicies(count, "Ethernet1, Ethernet2", oneClass));
      work.interfaces = looked();
      reload(manyPolicies(count, "Ethernet1, Ethernet2", twoClasses));
      work.classes = looked();
      silent_ = count; // none of them is answered, and then all are tried again
      reload(manyPolicies(count, "Ethernet1", oneClass));
      while (silent_ > 0) {
         timeUp();
      }
      timeUp(); // the time for the last answer
      timeUp(); // the time to the next attempt, at all of them
      work.lost = looked();
      EXPECT_TRUE(allAre(PolicyState::programmed));
      reload("policies: []\n");
      work.removal = looked();
      EXPECT_TRUE(allAre(PolicyState::removed));
      return work;
   }
   bool allAre(PolicyState state) const {
      return std::ranges::all_of(agent_->report(),
                                 [&](const PolicyReport& one) { return one.state == state; });
   }

 private:
   std::uint64_t before_ = 0;
};

TEST_F(PolicyAgentScaleTest, tenTimesThePoliciesAreTenTimesTheWork) {
   const Work few = workOf(20);
   const Work many = workOf(200);
   for (const auto& [what, member] :
        {std::pair{"start", &Work::start}, std::pair{"interfaces", &Work::interfaces},
         std::pair{"classes", &Work::classes}, std::pair{"lost", &Work::lost},
         std::pair{"removal", &Work::removal}}) {
      EXPECT_GE(few.*member, 20U) << what;
      EXPECT_LE(many.*member, 12 * few.*member) << what << " of 20: " << few.*member;
   }
}

TEST_F(PolicyAgentScaleTest, aStepTellsOnlyWhatItChanged) {
   start(manyPolicies(50, "Ethernet1", oneClass));
   EXPECT_EQ(agent_->takeChanges().reports.size(), 50U);
   EXPECT_TRUE(agent_->takeChanges().reports.empty());
   silent_ = 1;
   std::string one = manyPolicies(50, "Ethernet1", oneClass);
   reload(one.replace(one.rfind("[sample]"), 8, "[sample-all]"));
   agent_->takeChanges(); // a reload looks at every policy
   timeUp();              // the answer is overdue
   const Changes changes = agent_->takeChanges();
   ASSERT_EQ(changes.reports.size(), 1U);
   EXPECT_EQ(changes.reports[0].name, "p49");
   EXPECT_TRUE(changes.reports[0].overdue);
   reload("policies: []\n");
   agent_->takeChanges();
   reload("policies: []\n");
   EXPECT_EQ(agent_->takeChanges().gone.size(), 50U);
}

} // namespace
} // namespace Postcard::Agent
