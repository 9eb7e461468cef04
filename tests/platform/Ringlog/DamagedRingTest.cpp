// Real rings with random damage: the reader takes them or refuses them, and never does anything
// else. Meant to run under sanitizers too.
#include "LastRecord.h"
#include "Orlix/IpGenPrefix.h"
#include "PolicyMap/RulePriorityData.h"
#include "Ringlog/Trace.h"

#include <gtest/gtest.h>

#include <array>
#include <random>

namespace Ringlog {
namespace {

const Pello::TraceSource traceSource{"DamagedRingTest"};

// Every kind of argument, in two blocks.
void traceAllKinds() {
   const PolicyMap::AclRuleKey key{PolicyMap::PolicyMapSmKey{"policy", "scope"}, "class", "acl", 7,
                                   PolicyMap::matchIpAccessGroup()};
   TextMark mark;
   std::string name = "name";
   for (std::size_t i = 0; i < 30; ++i) {
      const SharedMoment moment;
      RINGLOG_TRACE(5, "{}", (ContinuedText{name, i == 0 ? 0 : name.size() - 3, mark, mark}));
      name += "-99";
      RINGLOG_TRACE(9, "{} {:x} {} {:>8} {}", i, 7U, 'c', true, 1.5F);
      RINGLOG_TRACE(5, "{} {:.3f} {}", Pello::String{"text"}, 2.25, std::string(i % 50, 'x'));
      RINGLOG_TRACE(0, "{} {}", Orlix::IpGenPrefix{"10.0.0.0/8"}, PolicyMap::matchIpAccessGroup());
      RINGLOG_TRACE(8, "{}", key);
      if (i == 15) { // the rest goes to the other block
         for (int filled = 0; filled < 16; ++filled) {
            RINGLOG_TRACE(9, "{}", std::string(4000, 'x'));
         }
      }
   }
}

class DamagedRingTest : public testing::Test {
 protected:
   void SetUp() override {
      const auto child = [&] {
         ::setenv("RINGLOG_SIZE", "128", 1);
         file_.use();
         traceAllKinds();
         std::_Exit(0);
      };
      EXPECT_EXIT(child(), testing::ExitedWithCode(0), "^$");
      ring_ = file_.bytes();
      ASSERT_EQ(TestSupport::RingReader{ring_}.records().size(), 166U);
      std::memcpy(&descriptorBytes_, ring_.data() + offsetof(RingHeader, descriptorBytes), 4);
   }

   // A place that means something.
   std::size_t place() {
      switch (random() % 4) {
      case 0:
         return random() % sizeof(RingHeader);
      case 1:
         return headerSize + random() % descriptorBytes_;
      case 2:
         return ringSize(random() % 2) + random() % 64; // a block's beginning
      default:
         return ringSize(random() % 2) + random() % 4096;
      }
   }

   void damage() {
      static constexpr std::array<U32, 8> odd{0,    1,          15,         16,
                                              4097, 0x7fffffff, 0x80000000, 0xffffffff};
      const std::size_t at = place();
      if (random() % 2 == 0) {
         ring_[at] ^= static_cast<std::byte>(1U << random() % 8);
      } else {
         const U32 number = odd[random() % odd.size()];
         std::memcpy(ring_.data() + at / 4 * 4, &number, sizeof number);
      }
   }

   // Whether the reader takes the ring; what it gives must be within reason.
   bool accepted() {
      try {
         const TestSupport::RingReader reader{ring_};
         std::size_t characters = 0;
         for (const Record& record : reader.records()) {
            characters += record.text.size();
            EXPECT_TRUE(reader.descriptors().contains(1) || record.site != nullptr);
         }
         EXPECT_LE(characters, 64 * ring_.size() + longestText);
         return true;
      } catch (const DamagedRing& error) {
         EXPECT_NE(std::string{error.what()}.find("trace ring: "), std::string::npos);
         return false;
      }
   }

   U32 random() { return static_cast<U32>(random_()); }

   TestSupport::RingFile file_;
   std::vector<std::byte> ring_;
   U32 descriptorBytes_ = 0;
   std::mt19937 random_{20240229};
};

TEST_F(DamagedRingTest, anyDamageIsReadOrRefused) {
   const std::vector<std::byte> whole = ring_;
   std::size_t taken = 0;
   constexpr std::size_t rounds = 4000;
   for (std::size_t round = 0; round < rounds; ++round) {
      if (round % 8 == 0) {
         ring_ = whole; // else the damage adds up
      }
      damage();
      taken += accepted() ? 1U : 0U;
   }
   // Both happen often, or the damage would not be of the kind that is meant.
   EXPECT_GT(taken, rounds / 10);
   EXPECT_LT(taken, rounds - rounds / 10);
}

TEST_F(DamagedRingTest, aRingCutShortAnywhereIsRefused) {
   const std::vector<std::byte> whole = ring_;
   for (int i = 0; i < 200; ++i) {
      ring_.assign(whole.begin(),
                   whole.begin() + static_cast<std::ptrdiff_t>(random() % whole.size()));
      EXPECT_FALSE(accepted()) << ring_.size();
   }
}

TEST_F(DamagedRingTest, noiseBehindAGoodHeaderIsReadOrRefused) {
   const std::vector<std::byte> whole = ring_;
   for (int i = 0; i < 20; ++i) {
      ring_ = whole;
      for (std::size_t at = ringSize(0) + 16; at < ring_.size(); ++at) {
         ring_[at] = static_cast<std::byte>(random());
      }
      EXPECT_TRUE(accepted()); // the descriptors are whole, the blocks are noise
   }
}

} // namespace
} // namespace Ringlog
