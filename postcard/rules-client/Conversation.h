// `Conversation`: what every rules client has in common. It listens to the request record, has the
// client act on each request, and writes the outcomes into the status record. Relies on the
// publishers of the two records.
//
//    const Conversation conversation{requests, answers, std::make_shared<MyClient>(), later};
//
// A request is acted on inside the publication of its counter, which its writer changes last.
// Requests that are malformed (no ACL, an unknown event) are answered as `invalid` and never reach
// the client.
//
// Each request gets at most one answer, which names the request's counter. Answers are written in
// the order of the requests, whatever the order in which the client replies: an outcome waits until
// the requests before it are answered or given up. An answer is written even when a later request
// has replaced its own in the record; readers compare the counter with the request that they wait
// for. Answers that are still to come when the conversation is destroyed are dropped.
#pragma once

#include "postcard/rules-client/RulesClient.h"

#include <functional>
#include <memory>

namespace Postcard::RulesClient {

class Conversation {
 public:
   // Runs a function once, later, on the thread of the conversation.
   using Later = std::function<void(std::function<void()>)>;

   // Keeps both records and the client, none of which may be null. Listens to `requests` until the
   // conversation is destroyed; a request that was posted before is not acted on. `later` carries
   // the answers; null: they are written inside the client's reply. The conversation may be
   // destroyed inside an answer.
   Conversation(Pello::Ptr<RequestRecord> requests, Pello::Ptr<StatusRecord> answers,
                std::shared_ptr<RulesClient> client, Later later = nullptr);
   Conversation(const Conversation&) = delete;
   Conversation& operator=(const Conversation&) = delete;
   ~Conversation();

   // Requests heard so far; answered, unanswered and malformed ones.
   U64 requests() const noexcept;

 private:
   class Implementation;
   // Replies, and answers under way, refer to it weakly.
   std::shared_ptr<Implementation> implementation_;
};

} // namespace Postcard::RulesClient
