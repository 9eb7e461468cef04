// Programs in the kernel against the classifier of this process and against a reading of the rules
// one by one: random policies of few values, frames aimed at each rule, damaged ones and random
// ones. Counters must be equal rule by rule.
#include "postcard/rules-client/kernel/AclProgram.h"

#include "ComparedAcl.h"
#include "FixedFrames.h"

#include <gtest/gtest.h>

namespace {

using namespace RulesClientTest;
using Orlix::AddressFamily;

Bytes randomFrame(Random& random, const AclRecords& acl, AddressFamily family) {
   Packet packet = randomPacket(random, chance(random, 97)              ? family
                                        : family == AddressFamily::ipv4 ? AddressFamily::ipv6
                                                                        : AddressFamily::ipv4);
   const auto rules = (*acl).ruleByIndexs();
   if (rules != 0 && packet.family == family && chance(random, 40)) {
      const auto rule = (*acl).ruleByIndex(static_cast<U32>(random() % rules));
      aim(random, *rule->ruleFilter(), packet);
   }
   const Bytes frame = frameOf(random, packet);
   return chance(random, 25) ? damaged(random, frame) : frame;
}

class AgainstTheTcam : public KernelTest, public testing::WithParamInterface<AddressFamily> {};

// In either family 50 policies, by default of 1,000 frames each.
TEST_P(AgainstTheTcam, everyFrameHitsTheSameRule) {
   Random random{30};
   const auto type = GetParam() == AddressFamily::ipv4 ? Acl::AclType::ipv4 : Acl::AclType::ipv6;
   const Dispatcher dispatcher;
   const std::size_t frames = packetsToTry(100'000) / 2 / 50;
   std::size_t hits = 0;
   for (int round = 0; round < 50; ++round) {
      AclRecords acl{"a", type};
      for (std::size_t rules = random() % (round % 10 == 0 ? 900 : 40); rules > 0; --rules) {
         randomRule(random, GetParam(), acl);
      }
      Compared compared{acl, dispatcher};
      for (std::size_t i = 0; i < frames; ++i) {
         const std::string wrong = compared.tried(randomFrame(random, acl, GetParam()));
         ASSERT_EQ(wrong, "") << "round " << round;
      }
      ASSERT_TRUE(compared.countersAgree()) << "round " << round;
      hits += compared.hits();
   }
   EXPECT_GT(hits, frames * 50 / 5); // else the values do not collide, and this proves little
   EXPECT_LT(hits, frames * 50 / 10 * 9);
}
INSTANTIATE_TEST_SUITE_P(AclProgram, AgainstTheTcam,
                         testing::Values(AddressFamily::ipv4, AddressFamily::ipv6));

// ---- Numbers of rules ----

class AclProgramTest : public KernelTest {
 protected:
   Random random_{31};
   Dispatcher dispatcher_;
};

// Where words, leaves, chunks and heads of the bitmaps begin and end.
TEST_F(AclProgramTest, theLastRuleOfAnyNumber) {
   const Bytes frame = joined({macs, type4, head4(20), tcp443});
   for (const std::size_t count : {1U, 64U, 65U, 513U, 8192U, 8193U, 20'000U, 262'145U}) {
      AclRecords acl{"a"};
      acl.rules(count);
      for (std::size_t i = 0; i + 1 < count; ++i) { // none of them matches but the last
         RuleFilter& filter = *(*acl).ruleByIndex(static_cast<U32>(i))->ruleFilter();
         filter.dportDataMaskValidIs(true);
         filter.dportDataMaskIs({static_cast<U16>(i % 400), 0xffff});
      }
      const AclProgram program{AclTable{*acl}, dispatcher_.maps(), {}};
      run(program.descriptor(), frame);
      EXPECT_EQ(program.counter(count - 1), (AclProgram::Counter{1, frame.size()})) << count;
   }
}

TEST_F(AclProgramTest, anAclWithoutRulesLetsPacketsPass) {
   const AclProgram program{AclTable{*AclRecords{"a"}}, dispatcher_.maps(), {}};
   const Bytes frame = joined({macs, type4, head4(20), tcp443});
   const RunResult result = run(program.descriptor(), frame);
   EXPECT_EQ(result.verdict, static_cast<U32>(XDP_PASS));
   EXPECT_EQ(result.frame, frame);
   EXPECT_TRUE(program.counters().empty());
}

// Rules of every length around one address make the deepest tree.
TEST_F(AclProgramTest, prefixesOfEveryLength) {
   const Orlix::IpGenPrefix whole{"2001:db8:5a5a:a5a5:f00f:1234:8001:fedc"};
   AclRecords acl{"a", Acl::AclType::ipv6};
   for (unsigned length = 129; length-- > 0;) {
      acl.rule()->ruleFilter()->destinationIs(
            Orlix::IpGenPrefix{AddressFamily::ipv6, whole.address(), length});
   }
   Compared compared{acl, dispatcher_};
   for (unsigned flipped = 0; flipped <= 128; ++flipped) {
      Packet packet = Postcard::Packets::parsePacket("tcp [::1]:1 > [::2]:2");
      std::ranges::copy(whole.address(), packet.destination.begin());
      if (flipped < 128) {
         packet.destination.at(flipped / 8) ^= static_cast<U8>(0x80U >> flipped % 8);
      }
      EXPECT_EQ(compared.tried(frameOf(random_, packet)), "") << flipped;
   }
   EXPECT_TRUE(compared.countersAgree());
}

} // namespace
