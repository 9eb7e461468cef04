// The rule of `Pello::Publisher` for what happens during a notification, line by line.
#include "Pello/Publisher.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using Pello::Change;
using Pello::Publisher;
using Pello::ValueView;
using Subscription = Pello::Publisher::Subscription;

static_assert(!std::is_copy_constructible_v<Publisher>);
static_assert(!std::is_move_constructible_v<Publisher>);
static_assert(!std::is_copy_constructible_v<Subscription>);
static_assert(std::is_nothrow_move_constructible_v<Subscription>);

class PublisherTest : public testing::Test {
 protected:
   // A subscriber that writes its name and the attribute into the log.
   [[nodiscard]] Subscription logger(const std::string& name) {
      return publisher->subscribe([this, name](const Change& change) {
         log += name + std::to_string(change.attribute) + " ";
      });
   }
   void publish(U16 attribute) { publisher->publish({attribute, {}, {}}); }

   std::unique_ptr<Publisher> publisher = std::make_unique<Publisher>();
   std::string log;
};

TEST(ValueView, showsTheValueByItsExactType) {
   const U32 number = 7;
   const ValueView view{number};
   ASSERT_NE(view.as<U32>(), nullptr);
   EXPECT_EQ(*view.as<U32>(), 7U);
   EXPECT_EQ(view.as<U32>(), &number);
   EXPECT_EQ(view.as<U16>(), nullptr);
   EXPECT_FALSE(view.empty());
}

TEST(ValueView, isEmptyByDefault) {
   EXPECT_TRUE(ValueView{}.empty());
   EXPECT_EQ(ValueView{}.as<U32>(), nullptr);
}

TEST_F(PublisherTest, withoutSubscribersNothingHappens) {
   publish(1);
   EXPECT_EQ(publisher->containedExceptions(), 0U);
}

TEST_F(PublisherTest, deliversInTheOrderOfSubscription) {
   const auto a = logger("a");
   const auto b = logger("b");
   const auto c = logger("c");
   publish(1);
   publish(2);
   EXPECT_EQ(log, "a1 b1 c1 a2 b2 c2 ");
}

TEST_F(PublisherTest, handsOverTheWholeChange) {
   const std::string key = "key";
   const U32 old = 5;
   std::vector<bool> seen;
   const auto subscription = publisher->subscribe([&](const Change& change) {
      seen = {change.attribute == 130, change.key.as<std::string>() == &key,
              change.oldValue.as<U32>() == &old};
   });
   publisher->publish({130, ValueView{key}, ValueView{old}});
   EXPECT_EQ(seen, (std::vector<bool>{true, true, true}));
}

TEST_F(PublisherTest, aNestedChangeIsDeliveredInsideTheOneUnderWay) {
   const auto a = logger("a");
   const auto setter = publisher->subscribe([this](const Change& change) {
      log += "s" + std::to_string(change.attribute) + "( ";
      if (change.attribute == 1) {
         publish(2);
      }
      log += ") ";
   });
   const auto b = logger("b");
   publish(1);
   EXPECT_EQ(log, "a1 s1( a2 s2( ) b2 ) b1 ");
}

TEST_F(PublisherTest, whoSubscribesDuringANotificationHearsOfLaterChanges) {
   std::optional<Subscription> late;
   const auto first = publisher->subscribe([&](const Change& change) {
      if (!late) {
         late = logger("late");
         publish(static_cast<U16>(change.attribute + 1)); // begins after it was added
      }
   });
   publish(1);
   EXPECT_EQ(log, "late2 ");
   publish(3);
   EXPECT_EQ(log, "late2 late3 ");
}

TEST_F(PublisherTest, manyMaySubscribeDuringOneNotification) {
   std::vector<Subscription> late;
   const auto first = publisher->subscribe([&](const Change& change) {
      for (int i = 0; change.attribute == 1 && i < 100; ++i) {
         late.push_back(logger("x"));
      }
   });
   const auto last = logger("last");
   publish(1);
   EXPECT_EQ(log, "last1 ");
   publish(2);
   EXPECT_EQ(log.size(), std::string{"last1 last2 "}.size() + 100 * std::string{"x2 "}.size());
}

TEST_F(PublisherTest, anEndedSubscriptionIsNotCalledByTheNotificationUnderWay) {
   std::optional<Subscription> victim;
   const auto killer = publisher->subscribe([&](const Change&) { victim.reset(); });
   victim = logger("victim");
   const auto b = logger("b");
   publish(1);
   EXPECT_EQ(log, "b1 ");
}

TEST_F(PublisherTest, aSubscriptionMayEndItselfWhileItRuns) {
   Subscription own;
   const std::string text(100, 'x'); // captured: must live until the callback returns
   own = publisher->subscribe([this, &own, text](const Change&) {
      own.end();
      log += text.substr(0, 1);
   });
   publish(1);
   publish(2);
   EXPECT_EQ(log, "x");
}

TEST_F(PublisherTest, aSubscriptionThatEndsInANestedChangeFinishesTheOuterCall) {
   Subscription own;
   const std::string text(100, 'x');
   own = publisher->subscribe([this, &own, text](const Change& change) {
      if (change.attribute == 1) {
         publish(2);
      } else {
         own.end();
      }
      log += text.substr(0, 1) + std::to_string(change.attribute) + " ";
   });
   publish(1);
   publish(3);
   EXPECT_EQ(log, "x2 x1 ");
}

TEST_F(PublisherTest, endingTwiceIsAllowed) {
   auto a = logger("a");
   a.end();
   a.end();
   Subscription{}.end();
   publish(1);
   EXPECT_EQ(log, "");
}

TEST_F(PublisherTest, endingLetsGoOfWhatTheCallbackHolds) {
   auto held = std::make_shared<int>();
   auto subscription = publisher->subscribe([held](const Change&) {});
   EXPECT_EQ(held.use_count(), 2);
   subscription.end();
   EXPECT_EQ(held.use_count(), 1);
}

TEST_F(PublisherTest, endingWhileItRunsLetsGoAfterTheCall) {
   auto held = std::make_shared<int>();
   long countInside = 0;
   Subscription own;
   own = publisher->subscribe([&countInside, &own, held](const Change&) {
      own.end();
      countInside = held.use_count();
   });
   publish(1);
   EXPECT_EQ(countInside, 2);
   EXPECT_EQ(held.use_count(), 1);
}

TEST_F(PublisherTest, thePublisherMayGoDuringANotification) {
   const auto killer = publisher->subscribe([this](const Change&) { publisher.reset(); });
   const auto b = logger("b");
   publish(1);
   EXPECT_EQ(publisher, nullptr);
   EXPECT_EQ(log, "b1 ");
}

TEST_F(PublisherTest, aSubscriptionMayOutliveThePublisher) {
   auto a = logger("a");
   publisher.reset();
   a.end();
   EXPECT_EQ(log, "");
}

TEST_F(PublisherTest, exceptionsAreContainedCountedAndReported) {
   const auto thrower =
         publisher->subscribe([](const Change&) { throw std::runtime_error{"no room left"}; });
   const auto stranger = publisher->subscribe([](const Change&) { throw 7; });
   const auto b = logger("b");
   testing::internal::CaptureStderr();
   publish(131);
   EXPECT_EQ(testing::internal::GetCapturedStderr(),
             "subscriber of attribute 131 failed: no room left\n"
             "subscriber of attribute 131 failed\n");
   EXPECT_EQ(log, "b131 ");
   EXPECT_EQ(publisher->containedExceptions(), 2U);
}

TEST_F(PublisherTest, whoThrewIsCalledAgain) {
   int calls = 0;
   const auto thrower = publisher->subscribe([&](const Change&) {
      ++calls;
      throw std::runtime_error{"again"};
   });
   testing::internal::CaptureStderr();
   publish(1);
   publish(1);
   testing::internal::GetCapturedStderr();
   EXPECT_EQ(calls, 2);
}

TEST_F(PublisherTest, moveAssignmentEndsTheOneHeldBefore) {
   auto a = logger("a");
   auto b = logger("b");
   a = std::move(b);
   publish(1);
   EXPECT_EQ(log, "b1 ");
   b.end(); // NOLINT(bugprone-use-after-move): holds nothing, ends nothing
   publish(2);
   EXPECT_EQ(log, "b1 b2 ");
   a = Subscription{};
   publish(3);
   EXPECT_EQ(log, "b1 b2 ");
}

TEST_F(PublisherTest, assignmentToItselfKeepsTheSubscription) {
   auto a = logger("a");
   auto& alias = a;
   a = std::move(alias);
   publish(1);
   EXPECT_EQ(log, "a1 ");
}

TEST_F(PublisherTest, moveConstructionTakesTheSubscriptionOver) {
   auto a = logger("a");
   {
      const Subscription inner{std::move(a)};
      publish(1);
   }
   publish(2);
   EXPECT_EQ(log, "a1 ");
}

TEST_F(PublisherTest, endedSubscriptionsDoNotPileUp) {
   const auto held = std::make_shared<int>();
   for (int i = 0; i < 1000; ++i) {
      const auto brief = publisher->subscribe([held](const Change&) {});
   }
   EXPECT_EQ(held.use_count(), 1);
   const auto a = logger("a");
   publish(1);
   EXPECT_EQ(log, "a1 ");
}

} // namespace
