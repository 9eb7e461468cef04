// The conversation of a rules client that does nothing but note what it is asked and reply when the
// test says so.
#include "postcard/rules-client/Conversation.h"

#include "support/AclRecords.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace OruPostcardTelemetry;
using namespace Postcard::RulesClient;
using RulesClientTest::AclRecords;
using Texts = std::vector<std::string>;

class NotingClient : public RulesClient {
 public:
   void program(const AclConfig& acl, Reply reply) override {
      note("program", acl.aclConfigKey(), reply);
   }
   void remove(const Pello::String& key, Reply reply) override { note("remove", key, reply); }
   void interfacesChanged(const AclConfig& acl, Reply reply) override {
      note("interfaces", acl.aclConfigKey(), reply);
   }

   Texts asked;
   std::vector<Reply> replies; // one per request, in their order
   bool throws = false;

 private:
   void note(const char* what, const Pello::String& key, const Reply& reply) {
      asked.push_back(fmt::format("{} {}", what, key.view()));
      if (throws) {
         throw std::runtime_error{"no connection"};
      }
      replies.push_back(reply);
   }
};

class ConversationTest : public testing::Test {
 protected:
   ConversationTest() { make(); }

   void make(Conversation::Later later = nullptr) {
      conversation_ = std::make_unique<Conversation>(requests_, answers_, client_, later);
   }
   void post(PostcardTelemetryRulesClientSmEvent event, std::string_view key = "a-ipv4") {
      requests_->eventIs(event);
      requests_->aclConfigIs(AclRecords{key}.data());
      requests_->kickRequestInc(1);
   }
   void post(int count) {
      for (int i = 0; i < count; ++i) {
         post(policyCreate);
      }
   }
   void reply(std::size_t request, Outcome outcome = {}) {
      const Reply copy = client_->replies.at(request);
      copy(std::move(outcome));
   }
   // What was answered since the last call: "counter text".
   Texts answered() { return std::exchange(answered_, {}); }

   Pello::Ptr<RequestRecord> requests_{postcardTelemetryRulesClientSmConfigFactory()};
   Pello::Ptr<StatusRecord> answers_{postcardTelemetryRulesClientSmStatusFactory()};
   std::shared_ptr<NotingClient> client_ = std::make_shared<NotingClient>();
   std::unique_ptr<Conversation> conversation_;
   std::function<void()> onAnswer_;

 private:
   Texts answered_;
   Pello::Publisher::Subscription subscription_{
         answers_->publisher()->subscribe([this](const Pello::Change& change) {
            if (change.attribute == StatusRecord::kickResponseId) {
               answered_.push_back(fmt::format("{}{} {}", answers_->kickResponse(),
                                               answers_->statusType() == statusSuccess ? "" : "!",
                                               answers_->status().view()));
               if (onAnswer_) {
                  onAnswer_();
               }
            }
         })};
};

TEST_F(ConversationTest, everyEventReachesTheClient) {
   post(policyCreate, "a-ipv4");
   post(policyUpdate, "b-ipv4");
   post(policyDelete, "c-ipv4");
   post(policyIntfUpdate, "d-ipv4");
   EXPECT_EQ(client_->asked,
             (Texts{"program a-ipv4", "program b-ipv4", "remove c-ipv4", "interfaces d-ipv4"}));
   EXPECT_EQ(conversation_->requests(), 4U);
   EXPECT_EQ(answered(), Texts{});
}

TEST_F(ConversationTest, malformedRequestsAreAnsweredWithoutTheClient) {
   requests_->kickRequestInc(1);
   post(static_cast<PostcardTelemetryRulesClientSmEvent>(4));
   EXPECT_EQ(answered(),
             (Texts{"1! invalid: policyCreate without an ACL", "2! invalid: unknown event 4"}));
   EXPECT_EQ(client_->asked, Texts{});
   EXPECT_EQ(conversation_->requests(), 2U);
}

TEST_F(ConversationTest, requestsBeforeItBeganAreNotActedOn) {
   conversation_.reset();
   post(3);
   make();
   EXPECT_EQ(client_->asked, Texts{});
   post(1);
   reply(0);
   EXPECT_EQ(answered(), Texts{"4 "});
}

TEST_F(ConversationTest, everyKindOfOutcomeIsAnswered) {
   post(4);
   reply(0, {Outcome::done, ""});
   reply(1, {Outcome::full, "a-ipv4 needs 2 entries"});
   reply(2, {Outcome::invalid, "no filter"});
   reply(3, {Outcome::failed, "busy"});
   EXPECT_EQ(answered(),
             (Texts{"1 ", "2! full: a-ipv4 needs 2 entries", "3! invalid: no filter", "4! busy"}));
}

// ---- Order ----

TEST_F(ConversationTest, outcomesWaitForThoseBeforeThem) {
   post(3);
   reply(2, {Outcome::failed, "third"});
   reply(1, {Outcome::failed, "second"});
   EXPECT_EQ(answered(), Texts{});
   reply(0, {Outcome::failed, "first"});
   EXPECT_EQ(answered(), (Texts{"1! first", "2! second", "3! third"}));
}

TEST_F(ConversationTest, aMalformedRequestWaitsForItsTurnToo) {
   post(1);
   requests_->aclConfigIs(nullptr);
   requests_->kickRequestInc(1);
   EXPECT_EQ(answered(), Texts{});
   reply(0);
   EXPECT_EQ(answered(), (Texts{"1 ", "2! invalid: policyCreate without an ACL"}));
}

TEST_F(ConversationTest, aRequestThatTheClientGivesUpHoldsNothingUp) {
   post(3);
   reply(1);
   client_->replies.at(2)({Outcome::failed, "third"});
   const Reply copy = client_->replies.at(0);
   client_->replies.erase(client_->replies.begin());
   EXPECT_EQ(answered(), Texts{}) << "a copy can still answer";
   client_->replies.clear();
   EXPECT_EQ(answered(), Texts{});
   copy({Outcome::failed, "first"});
   EXPECT_EQ(answered(), (Texts{"1! first", "2 ", "3! third"}));

   post(2);
   reply(1, {Outcome::failed, "fifth"});
   EXPECT_EQ(answered(), Texts{});
   client_->replies.erase(client_->replies.begin());
   EXPECT_EQ(answered(), Texts{"5! fifth"}) << "the fourth stays unanswered";
}

TEST_F(ConversationTest, aClientThatThrowsGivesItsRequestUp) {
   client_->throws = true;
   testing::internal::CaptureStderr();
   post(1);
   EXPECT_NE(testing::internal::GetCapturedStderr().find("no connection"), std::string::npos);
   client_->throws = false;
   post(1);
   reply(0);
   EXPECT_EQ(answered(), Texts{"2 "});
}

TEST_F(ConversationTest, theCounterWraps) {
   requests_->kickRequestIs(4294967294U);
   answered(); // of a request without an ACL
   post(2);
   reply(1);
   reply(0);
   EXPECT_EQ(answered(), (Texts{"4294967295 ", "0 "}));
}

// ---- Repetition ----

TEST_F(ConversationTest, aSecondReplyIsIgnored) {
   post(1);
   reply(0);
   reply(0, {Outcome::failed, "busy"});
   EXPECT_EQ(answered(), Texts{"1 "});
}

TEST_F(ConversationTest, anAnswerThatTheRecordShowsAlreadyIsHeardAgain) {
   post(1);
   reply(0);
   answered();
   writeAnswer(answers_, {1, {Outcome::failed, "busy"}});
   EXPECT_EQ(answered(), (Texts{"0! busy", "1! busy"}));
}

// A fresh record shows the counter 0.
TEST_F(ConversationTest, theAnswerToRequestZeroIsHeard) {
   requests_->kickRequestIs(4294967295U);
   answers_->kickResponseIs(0);
   post(1);
   reply(0);
   EXPECT_EQ(answered().back(), "0 ");
}

// ---- Answers for requests that are gone ----

TEST_F(ConversationTest, anAnswerNamesItsOwnRequestAfterALaterOneHasReplacedIt) {
   post(policyCreate, "a-ipv4");
   post(policyDelete, "b-ipv4");
   reply(0, {Outcome::failed, "busy"});
   EXPECT_EQ(answered(), Texts{"1! busy"});
   EXPECT_EQ(requests_->kickRequest(), 2U);
   reply(1);
   EXPECT_EQ(answered(), Texts{"2 "});
}

TEST_F(ConversationTest, theNextRequestMayBePostedInsideAnAnswer) {
   post(3);
   onAnswer_ = [this] {
      if (requests_->kickRequest() < 5) {
         post(1);
      }
   };
   reply(1);
   reply(2);
   reply(0);
   reply(4);
   reply(3);
   EXPECT_EQ(answered(), (Texts{"1 ", "2 ", "3 ", "4 ", "5 "}));
}

// ---- Later, and the end ----

class DeferredConversation : public ConversationTest {
 protected:
   DeferredConversation() {
      conversation_.reset();
      make([this](std::function<void()> work) { queue_.push_back(std::move(work)); });
   }
   void runQueue() {
      for (const auto& work : std::exchange(queue_, {})) {
         work();
      }
   }
   std::vector<std::function<void()>> queue_;
};

TEST_F(DeferredConversation, answersGoThroughTheOwnersLoopInOrder) {
   post(2);
   reply(1, {Outcome::failed, "busy"});
   EXPECT_EQ(queue_.size(), 0U);
   reply(0);
   EXPECT_EQ(queue_.size(), 2U);
   EXPECT_EQ(answered(), Texts{});
   runQueue();
   EXPECT_EQ(answered(), (Texts{"1 ", "2! busy"}));
}

TEST_F(DeferredConversation, answersUnderWayAreDroppedWithTheConversation) {
   post(2);
   reply(0);
   EXPECT_EQ(queue_.size(), 1U);
   conversation_.reset();
   runQueue();
   EXPECT_EQ(answered(), Texts{});
}

TEST_F(ConversationTest, repliesAfterTheConversationDoNothing) {
   post(2);
   conversation_.reset();
   reply(1);
   reply(0);
   client_->replies.clear();
   post(1);
   EXPECT_EQ(client_->asked.size(), 2U) << "nobody listens any more";
   EXPECT_EQ(answered(), Texts{});
}

TEST_F(ConversationTest, theClientGoesWithTheConversation) {
   post(2); // whose replies the client holds
   const std::weak_ptr<NotingClient> client = client_;
   client_.reset();
   EXPECT_FALSE(client.expired());
   conversation_.reset();
   EXPECT_TRUE(client.expired());
   EXPECT_EQ(answered(), Texts{});
}

TEST_F(ConversationTest, theConversationMayGoInsideAnAnswer) {
   post(2);
   reply(1);
   onAnswer_ = [this] { conversation_.reset(); };
   reply(0);
   EXPECT_EQ(conversation_, nullptr);
   EXPECT_EQ(answered(), Texts{"1 "}) << "the second answer was dropped";
}

// Replies at once, and is let go inside its own answer.
class PromptClient : public RulesClient {
 public:
   void program(const AclConfig&, Reply reply) override {
      reply({});
      touched = true; // it must still be there
   }
   void remove(const Pello::String&, Reply) override {}
   void interfacesChanged(const AclConfig&, Reply) override {}
   bool touched = false;
};

TEST_F(ConversationTest, theConversationMayGoInsideAnAnswerInsideItsRequest) {
   conversation_ =
         std::make_unique<Conversation>(requests_, answers_, std::make_shared<PromptClient>());
   onAnswer_ = [this] { conversation_.reset(); };
   post(1);
   EXPECT_EQ(conversation_, nullptr);
   EXPECT_EQ(answered(), Texts{"1 "});
   post(1);
   EXPECT_EQ(answered(), Texts{});
}

} // namespace
