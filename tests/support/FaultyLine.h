// `FaultyLine`: a line between the two records and a rules client on which answers go wrong, for
// tests of whoever waits for the answers. The rules client behind it is a sound one: it converses
// through two records of its own, and the line carries requests and answers between the two pairs.
#pragma once

#include "postcard/rules-client/Conversation.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace TestSupport {

// What can be made to go wrong. Each concerns one request.
struct InjectedFailure {
   enum Kind : U8 {
      refuse, // nothing is done; answered as a failure with `text`
      late,   // done; the answer waits for `releaseAnswers`
      never,  // nothing is done, nothing is answered
      twice,  // done and answered, and then answered again
      gone,   // an answer to the request before (a failure with `text`) comes before the right one
   };
   Kind kind = refuse;
   std::string text; // for `refuse` and `gone`
};

class FaultyLine {
 public:
   using Later = Postcard::RulesClient::Conversation::Later;

   // Stands where a conversation would; see its constructor. Answers under way when the line goes
   // are never given.
   FaultyLine(Pello::Ptr<Postcard::RulesClient::RequestRecord> requests,
              Pello::Ptr<Postcard::RulesClient::StatusRecord> answers,
              std::shared_ptr<Postcard::RulesClient::RulesClient> client, Later later = nullptr);
   FaultyLine(const FaultyLine&) = delete;
   FaultyLine& operator=(const FaultyLine&) = delete;
   ~FaultyLine();

   // The next `count` requests that no earlier call has taken go wrong in this way.
   void inject(const InjectedFailure& failure, std::size_t count = 1);
   // Gives the answers that `late` has held back, oldest first, through `later` like all others.
   void releaseAnswers();
   // Answers that `late` holds back.
   std::size_t heldAnswers() const noexcept { return held_.size(); }
   // Requests seen so far, those that were never answered included.
   U64 requests() const noexcept { return heard_; }

 private:
   using Answer = Postcard::RulesClient::Answer;

   void requested();
   Answer act();
   void actWrongly(const InjectedFailure& failure);
   void send(const Answer& answer);

   Pello::Ptr<Postcard::RulesClient::RequestRecord> requests_;
   Pello::Ptr<Postcard::RulesClient::StatusRecord> answers_;
   Later later_;
   // The records behind the line, and the conversation about them, whose answers come at once.
   Pello::Ptr<Postcard::RulesClient::RequestRecord> innerRequests_;
   Pello::Ptr<Postcard::RulesClient::StatusRecord> innerAnswers_;
   Postcard::RulesClient::Conversation conversation_;
   std::deque<InjectedFailure> failures_;
   std::vector<Answer> held_;
   U64 heard_ = 0;
   std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true); // answers under way look here
   Pello::Publisher::Subscription subscription_;
};

inline FaultyLine::FaultyLine(Pello::Ptr<Postcard::RulesClient::RequestRecord> requests,
                              Pello::Ptr<Postcard::RulesClient::StatusRecord> answers,
                              std::shared_ptr<Postcard::RulesClient::RulesClient> client,
                              Later later)
   : requests_{std::move(requests)},
     answers_{std::move(answers)},
     later_{std::move(later)},
     innerRequests_{OruPostcardTelemetry::postcardTelemetryRulesClientSmConfigFactory()},
     innerAnswers_{OruPostcardTelemetry::postcardTelemetryRulesClientSmStatusFactory()},
     conversation_{innerRequests_, innerAnswers_, std::move(client)},
     subscription_{requests_->publisher()->subscribe([this](const Pello::Change& change) {
        if (change.attribute == Postcard::RulesClient::RequestRecord::kickRequestId) {
           requested();
        }
     })} {}

inline FaultyLine::~FaultyLine() {
   *isAlive_ = false;
}

inline void FaultyLine::inject(const InjectedFailure& failure, std::size_t count) {
   failures_.insert(failures_.end(), count, failure);
}

inline void FaultyLine::releaseAnswers() {
   for (const Answer& answer : std::exchange(held_, {})) {
      send(answer);
   }
}

inline void FaultyLine::requested() {
   heard_ += 1;
   if (failures_.empty()) {
      return send(act());
   }
   const InjectedFailure failure = std::move(failures_.front());
   failures_.pop_front();
   actWrongly(failure);
}

inline void FaultyLine::actWrongly(const InjectedFailure& failure) {
   const U32 request = requests_->kickRequest();
   switch (failure.kind) {
   case InjectedFailure::refuse:
      return send({request, {Postcard::RulesClient::Outcome::failed, failure.text}});
   case InjectedFailure::late:
      held_.push_back(act());
      return;
   case InjectedFailure::never:
      return;
   case InjectedFailure::twice: {
      const Answer answer = act();
      send(answer);
      return send(answer);
   }
   case InjectedFailure::gone: {
      const Answer answer = act();
      send({request - 1, {Postcard::RulesClient::Outcome::failed, failure.text}});
      return send(answer);
   }
   }
}

// Carries the request over and returns the answer to it. The inner conversation must answer inside
// its request.
inline FaultyLine::Answer FaultyLine::act() {
   innerRequests_->eventIs(requests_->event());
   innerRequests_->aclConfigIs(requests_->aclConfig());
   innerRequests_->currIntfIs(requests_->currIntf());
   innerRequests_->kickRequestInc(1);
   return {requests_->kickRequest(), Postcard::RulesClient::outcomeOf(*innerAnswers_)};
}

inline void FaultyLine::send(const Answer& answer) {
   if (!later_) {
      return writeAnswer(answers_, answer);
   }
   later_([isAlive = isAlive_, answers = answers_, answer] {
      if (*isAlive) {
         writeAnswer(answers, answer);
      }
   });
}

} // namespace TestSupport
