// What a rule does with a packet in the kernel: DSCP and checksum, samples and their losses, and
// the way through several ACLs.
#include "ComparedAcl.h"
#include "FixedFrames.h"
#include "postcard/rules-client/kernel/SampleReader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

namespace {

using namespace RulesClientTest;
using Postcard::RulesClient::Sample;
using Postcard::RulesClient::SampleReader;

const Bytes frame4 = joined({macs, type4, head4(20), tcp443});
const Bytes frame6 = joined({macs, type6, head6(6, 20), tcp443});

class Actions : public KernelTest {
 protected:
   // An ACL of one TCP rule that sets DSCP bits and does not sample.
   static AclRecords marking(U8 data, U8 mask, Acl::AclType type = Acl::AclType::ipv4) {
      AclRecords acl{"a", type};
      const auto action = acl.rule()->ruleAction();
      action->actionDelAll();
      action->actionIs(RuleAction::setDscpAction);
      action->dscpDataAndMaskIs({Orlix::DscpValue{data}, mask});
      return acl;
   }
   Bytes after(const AclRecords& acl, const Bytes& frame) {
      const AclProgram program{AclTable{*acl}, dispatcher().maps(), {}};
      return run(program.descriptor(), frame).frame;
   }
   Dispatcher& dispatcher(U32 sampleRoom = Dispatcher::defaultSampleRoom) {
      if (dispatcher_ == nullptr) {
         dispatcher_ = std::make_unique<Dispatcher>(sampleRoom);
      }
      return *dispatcher_;
   }

 private:
   std::unique_ptr<Dispatcher> dispatcher_;
};

// ---- DSCP ----

unsigned headerSum(const Bytes& frame, std::size_t at) {
   unsigned sum = 0;
   for (std::size_t i = 0; i < 20; i += 2) {
      sum += static_cast<unsigned>(frame[at + i] << 8 | frame[at + i + 1]);
   }
   while (sum > 0xffff) {
      sum = (sum & 0xffff) + (sum >> 16);
   }
   return sum;
}

// A frame with the DSCP and a header checksum that is right.
Bytes withDscp(Bytes frame, U8 dscp, U8 ecn, std::size_t at = 14) {
   frame[at + 1] = static_cast<U8>(dscp << 2 | ecn);
   frame[at + 10] = frame[at + 11] = 0;
   const unsigned sum = ~headerSum(frame, at);
   frame[at + 10] = static_cast<U8>(sum >> 8);
   frame[at + 11] = static_cast<U8>(sum);
   return frame;
}

TEST_F(Actions, everyDscpUnderEveryMaskOfIpv4) {
   for (const auto& [data, mask] :
        {std::pair<U8, U8>{46, 0x3f}, {0, 0x3f}, {0x2a, 0x30}, {63, 1}}) {
      const AclRecords acl = marking(data, mask);
      const AclProgram program{AclTable{*acl}, dispatcher().maps(), {}};
      for (U8 dscp = 0; dscp < 64; ++dscp) {
         const auto expected = static_cast<U8>((dscp & ~mask) | (data & mask));
         const U8 ecn = dscp % 4;
         EXPECT_EQ(run(program.descriptor(), withDscp(frame4, dscp, ecn)).frame,
                   withDscp(frame4, expected, ecn))
               << unsigned{dscp};
      }
   }
}

TEST_F(Actions, theDscpBehindTags) {
   const Bytes tagged = joined({macs, tag, tag, type4, head4(20), tcp443});
   EXPECT_EQ(after(marking(46, 0x3f), withDscp(tagged, 1, 2, 22)), withDscp(tagged, 46, 2, 22));
}

// More tags than the first part of a frame's memory holds.
TEST_F(Actions, theDscpBehindVeryManyTags) {
   const Bytes tagged = joined({macs, repeated(tag, 1500), type4, head4(20), tcp443});
   const std::size_t at = 14 + 1500 * 4;
   EXPECT_EQ(after(marking(46, 0x3f), withDscp(tagged, 1, 2, at)), withDscp(tagged, 46, 2, at));
}

TEST_F(Actions, theDscpOfIpv6) {
   Bytes before = frame6;
   before[14] = 0x6f; // DSCP 61, ECN 2, the upper bits of the flow label 0xb
   before[15] = 0x6b;
   Bytes expected = frame6;
   expected[14] = 0x6b; // DSCP 46
   expected[15] = 0xab;
   EXPECT_EQ(after(marking(46, 0x3f, Acl::AclType::ipv6), before), expected);
}

TEST_F(Actions, aMaskOf0RewritesNothing) {
   EXPECT_EQ(after(marking(46, 0), withDscp(frame4, 5, 1)), withDscp(frame4, 5, 1));
}

// ---- Samples ----

struct Taken {
   Sample sample;
   Bytes bytes;
};

class TakenSamples {
 public:
   explicit TakenSamples(const Dispatcher& dispatcher)
      : reader_{dispatcher.maps().samples, [this](const Sample& sample) {
                   taken_.push_back({sample, {sample.bytes.begin(), sample.bytes.end()}});
                }} {}

   std::vector<Taken> read() {
      const std::size_t count = reader_.read();
      EXPECT_EQ(count, taken_.size());
      return std::exchange(taken_, {});
   }

 private:
   std::vector<Taken> taken_;
   SampleReader reader_;
};

// Rules 0: TCP from port 1, not sampled; 1: TCP, sampled.
AclRecords sampling() {
   AclRecords acl{"a"};
   const auto passed = acl.rule();
   passed->ruleFilter()->sportDataMaskIs({1, 0xffff});
   passed->ruleFilter()->sportDataMaskValidIs(true);
   passed->ruleAction()->actionDelAll();
   passed->ruleAction()->actionIs(RuleAction::setDscpAction);
   const auto action = acl.rule()->ruleAction();
   action->actionIs(RuleAction::setDscpAction);
   action->dscpDataAndMaskIs({Orlix::DscpValue{U8{46}}, 0x3f});
   return acl;
}

TEST_F(Actions, samplesAreTheFirstBytesAsTheyCame) {
   const AclProgram program{
         AclTable{*sampling()}, dispatcher().maps(), {.slot = 7, .version = 9, .sampleBytes = 128}};
   TakenSamples samples{dispatcher()};
   EXPECT_TRUE(samples.read().empty());
   Random random{40};
   for (const std::size_t payload : {0U, 73U, 74U, 75U, 1000U}) {
      const Bytes frame = joined({macs, type4, head4(20), tcp443, randomBytes(random, payload)});
      run(program.descriptor(), frame);
      const std::vector<Taken> taken = samples.read();
      ASSERT_EQ(taken.size(), 1U) << payload;
      const Sample& sample = taken[0].sample;
      EXPECT_EQ(sample.interface, testRunInterface);
      EXPECT_EQ(sample.slot, 7U);
      EXPECT_EQ(sample.version, 9U);
      EXPECT_EQ(sample.rule, 1U);
      EXPECT_EQ(sample.length, frame.size());
      EXPECT_GT(sample.time, 0U);
      const auto kept = static_cast<std::ptrdiff_t>(std::min<std::size_t>(frame.size(), 128));
      EXPECT_EQ(taken[0].bytes, Bytes(frame.begin(), frame.begin() + kept)) << payload;
   }
   EXPECT_EQ(program.totals().samples, 5U);
   EXPECT_EQ(program.totals().lostSamples, 0U);
}

TEST_F(Actions, onlyRulesThatSampleDo) {
   const AclProgram program{AclTable{*sampling()}, dispatcher().maps(), {}};
   TakenSamples samples{dispatcher()};
   Bytes unsampled = frame4;
   unsampled[34] = 0;
   unsampled[35] = 1;
   run(program.descriptor(), unsampled);
   EXPECT_TRUE(samples.read().empty());
   EXPECT_EQ(program.counter(0).packets, 1U);
}

TEST_F(Actions, lostSamplesAreCountedToThePacket) {
   const AclProgram program{AclTable{*sampling()}, dispatcher(4096).maps(), {.sampleBytes = 64}};
   TakenSamples samples{dispatcher()};
   for (int i = 0; i < 1000; ++i) {
      run(program.descriptor(), frame4);
   }
   const auto kept = samples.read().size();
   EXPECT_GT(kept, 10U);
   EXPECT_LT(kept, 100U);
   EXPECT_EQ(program.totals().samples, kept);
   EXPECT_EQ(program.totals().lostSamples, 1000 - kept);
   EXPECT_EQ(program.counter(1).packets, 1000U);
   run(program.descriptor(), frame4); // there is room again
   EXPECT_EQ(samples.read().size(), 1U);
}

// ---- The way through several ACLs ----

class Chain : public Actions {
 protected:
   AclProgram& add(U32 slot, Acl::AclType type = Acl::AclType::ipv4, U32 version = 0) {
      AclRecords acl{"a", type};
      acl.rule();
      programs_.push_back(
            std::make_unique<AclProgram>(AclTable{*acl}, dispatcher().maps(),
                                         AclProgram::Place{.slot = slot, .version = version}));
      dispatcher().put(slot, *programs_.back());
      return *programs_.back();
   }
   void hop(U32 from, U32 to) { dispatcher().setHop(testRunInterface, from, to); }
   void send(const Bytes& frame) {
      EXPECT_EQ(run(dispatcher().descriptor(), frame).verdict, static_cast<U32>(XDP_PASS));
   }
   // The packets that each program has counted.
   std::vector<U64> packets() const {
      std::vector<U64> packets;
      for (const auto& program : programs_) {
         packets.push_back(program->counter(0).packets);
      }
      return packets;
   }

   const U32 start4_ = Dispatcher::start(Orlix::AddressFamily::ipv4);
   const U32 start6_ = Dispatcher::start(Orlix::AddressFamily::ipv6);
   std::vector<std::unique_ptr<AclProgram>> programs_;
};

using Counts = std::vector<U64>;

TEST_F(Chain, withoutHopsPacketsPass) {
   add(0);
   send(frame4);
   send(frame6);
   send(joined({macs, bytesOf("0806"), Bytes(28, 0)}));
   EXPECT_EQ(packets(), (Counts{0}));
}

TEST_F(Chain, eachFamilyHasItsOwn) {
   add(3);
   add(200, Acl::AclType::ipv6);
   hop(start4_, 3);
   hop(start6_, 200);
   send(frame4);
   send(frame6);
   send(joined({macs, tag, tag, tag, type6, head6(6, 20), tcp443}));
   EXPECT_EQ(packets(), (Counts{1, 2}));
   dispatcher().dropHop(testRunInterface, start6_);
   dispatcher().dropHop(testRunInterface, start6_); // which is no error
   send(frame6);
   EXPECT_EQ(packets(), (Counts{1, 2}));
}

TEST_F(Chain, everyAclOfTheInterfaceIsAsked) {
   add(0);
   add(1);
   add(2);
   hop(start4_, 2);
   hop(2, 0);
   send(frame4);
   EXPECT_EQ(packets(), (Counts{1, 0, 1}));
   hop(0, 1);
   send(frame4);
   EXPECT_EQ(packets(), (Counts{2, 1, 2}));
   hop(2, 1);
   dispatcher().waitForPackets();
   send(frame4);
   EXPECT_EQ(packets(), (Counts{2, 2, 3}));
}

TEST_F(Chain, otherInterfacesHaveTheirOwn) {
   add(0);
   dispatcher().setHop(testRunInterface + 1, start4_, 0);
   send(frame4);
   EXPECT_EQ(packets(), (Counts{0}));
}

TEST_F(Chain, aSlotIsReplacedInOneStep) {
   add(0);
   hop(start4_, 0);
   send(frame4);
   add(0, Acl::AclType::ipv4, 1);
   send(frame4);
   EXPECT_EQ(packets(), (Counts{1, 1}));
   dispatcher().clear(0);
   dispatcher().clear(0); // which is no error
   send(frame4);
   EXPECT_EQ(packets(), (Counts{1, 1}));
}

TEST_F(Chain, asManyAclsAsAnInterfaceMayHave) {
   constexpr U32 most = 32;
   for (U32 slot = 0; slot < most; ++slot) {
      add(slot);
      hop(slot == 0 ? start4_ : slot - 1, slot);
   }
   send(frame4);
   EXPECT_EQ(packets(), Counts(most, 1));
}

} // namespace
