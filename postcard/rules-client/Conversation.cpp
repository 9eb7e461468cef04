#include "postcard/rules-client/Conversation.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <utility>

namespace Postcard::RulesClient {

// Shared with nobody but the conversation and calls under way. Replies and functions given to
// `Later` hold weak references, because they may outlive the conversation.
class Conversation::Implementation : public std::enable_shared_from_this<Implementation> {
 public:
   Implementation(Pello::Ptr<RequestRecord> requests, Pello::Ptr<StatusRecord> answers,
                  std::shared_ptr<RulesClient> client, Later later)
      : requests_{std::move(requests)},
        answers_{std::move(answers)},
        client_{std::move(client)},
        later_{std::move(later)} {}

   void listen() {
      subscription_ = requests_->publisher()->subscribe(
            [weak = weak_from_this()](const Pello::Change& change) {
               const auto self = weak.lock(); // keeps the object alive during the call
               if (self != nullptr && change.attribute == RequestRecord::kickRequestId) {
                  self->requested();
               }
            });
   }

   // Called when the conversation is destroyed. A call of `requested` or `settled` further up the
   // stack may still hold this object, and must find nothing to do.
   void close() {
      isClosed_ = true;
      subscription_ = {};
      pending_.clear();
   }

   U64 heard() const noexcept { return heard_; }

 private:
   // A request whose answer has not been sent. Thus: except inside `sendWhatIsSettled`, the oldest
   // one has neither an outcome nor been given up.
   struct Pending {
      U64 serial;  // unlike the counter, which wraps, never the same twice
      U32 request; // `kickRequest` of the request
      std::optional<Outcome> outcome;
      bool givenUp = false;
   };

   void requested() {
      const U64 serial = heard_++;
      pending_.push_back({serial, requests_->kickRequest(), {}});
      dispatch(Reply{[weak = weak_from_this(), serial](std::optional<Outcome> outcome) {
         if (const auto self = weak.lock()) {
            self->settled(serial, std::move(outcome));
         }
      }});
   }

   void dispatch(const Reply& reply) {
      const auto event = requests_->event();
      const auto acl = requests_->aclConfig();
      // A copy, which keeps the client alive when its reply destroys the conversation.
      const auto client = client_;
      // The record holds whatever byte somebody wrote, also one without an enumerator.
      if (event > OruPostcardTelemetry::policyIntfUpdate) {
         return reply({Outcome::invalid, fmt::format("unknown event {}", unsigned{event})});
      }
      if (acl == nullptr) {
         return reply({Outcome::invalid, fmt::format("{} without an ACL", stringValue(event))});
      }
      switch (event) {
      case OruPostcardTelemetry::policyCreate:
      case OruPostcardTelemetry::policyUpdate:
         return client->program(*acl, reply);
      case OruPostcardTelemetry::policyDelete:
         return client->remove(acl->aclConfigKey(), reply);
      case OruPostcardTelemetry::policyIntfUpdate:
         return client->interfacesChanged(*acl, reply);
      }
   }

   void settled(U64 serial, std::optional<Outcome> outcome) {
      const auto found = std::ranges::find(pending_, serial, &Pending::serial);
      if (found == pending_.end()) {
         return; // the conversation has been destroyed, and `close` has dropped all requests
      }
      found->givenUp = !outcome.has_value();
      found->outcome = std::move(outcome);
      sendWhatIsSettled();
   }

   // Sends the outcomes of the oldest requests, up to the first one that is still being acted on.
   void sendWhatIsSettled() {
      while (!pending_.empty() && (pending_.front().givenUp || pending_.front().outcome)) {
         const Pending first = std::move(pending_.front());
         // Removed before the answer is sent: a subscriber may post the next request, which may be
         // settled and get here again.
         pending_.pop_front();
         if (first.outcome) {
            send({first.request, *first.outcome});
         }
      }
   }

   void send(const Answer& answer) {
      if (!later_) {
         return writeAnswer(answers_, answer);
      }
      later_([weak = weak_from_this(), answer] {
         const auto self = weak.lock();
         if (self != nullptr && !self->isClosed_) {
            writeAnswer(self->answers_, answer);
         }
      });
   }

   Pello::Ptr<RequestRecord> requests_;
   Pello::Ptr<StatusRecord> answers_;
   std::shared_ptr<RulesClient> client_;
   Later later_;
   std::deque<Pending> pending_; // oldest first
   U64 heard_ = 0;
   bool isClosed_ = false; // once true: nothing is pending, and no answer is written any more
   Pello::Publisher::Subscription subscription_;
};

Conversation::Conversation(Pello::Ptr<RequestRecord> requests, Pello::Ptr<StatusRecord> answers,
                           std::shared_ptr<RulesClient> client, Later later)
   : implementation_{std::make_shared<Implementation>(std::move(requests), std::move(answers),
                                                      std::move(client), std::move(later))} {
   implementation_->listen();
}

Conversation::~Conversation() {
   implementation_->close();
}

U64 Conversation::requests() const noexcept {
   return implementation_->heard();
}

} // namespace Postcard::RulesClient
