// `Conversation`: the part that all rules clients have in common. It subscribes to the request
// record, calls the client for each request, and writes the outcomes into the status record. Relies
// on the publishers of the two records.
//
//    const Conversation conversation{requests, answers, std::make_shared<MyClient>(), later};
//
// The client is called inside the publication of the request counter, which the writer of a request
// changes last. Malformed requests (no ACL, an unknown event) are answered as `invalid` and never
// reach the client.
//
// Each request gets at most one answer, which names the request's counter. Answers are written in
// the order of the requests, whatever the order in which the client replies: an outcome waits until
// the requests before it are answered or given up. An answer is written even when a later request
// has replaced its own in the record; readers compare the counter with the request that they wait
// for. Outcomes that arrive after the conversation has been destroyed are dropped.
//
// Everything runs on one thread, that of the two records.
#pragma once

#include "postcard/rules-client/RulesClient.h"

#include <functional>
#include <memory>

namespace Postcard::RulesClient {

class Conversation {
 public:
   // Takes a function and runs it once, later, on the thread of the conversation. It must run the
   // functions in the order in which it got them, because answers keep the order of the requests.
   // It may still run them after the conversation has been destroyed; then they do nothing.
   using Later = std::function<void(std::function<void()>)>;

   // Keeps both records and the client, none of which may be null. Subscribes to `requests` until
   // the conversation is destroyed; a request that was posted before is not acted on. Answers are
   // written by functions given to `later`, or, when `later` is null, inside the call of the
   // client's reply. A subscriber of `answers` may destroy the conversation.
   Conversation(Pello::Ptr<RequestRecord> requests, Pello::Ptr<StatusRecord> answers,
                std::shared_ptr<RulesClient> client, Later later = nullptr);
   Conversation(const Conversation&) = delete;
   Conversation& operator=(const Conversation&) = delete;
   ~Conversation();

   // The number of requests so far: answered, unanswered and malformed ones.
   U64 requests() const noexcept;

 private:
   class Implementation;
   // Never null. Shared, because replies and answers that outlive the conversation refer to it
   // weakly.
   std::shared_ptr<Implementation> implementation_;
};

} // namespace Postcard::RulesClient
