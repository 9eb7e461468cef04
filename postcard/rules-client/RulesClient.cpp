#include "postcard/rules-client/RulesClient.h"

#include <utility>

namespace Postcard::RulesClient {

// Shared by all copies of a reply. Its destructor, which runs with the last copy, gives the request
// up when no call has settled it.
struct Reply::Once {
   explicit Once(Settle settling) : settle{std::move(settling)} {}
   Once(const Once&) = delete;
   Once& operator=(const Once&) = delete;
   ~Once() { call(std::nullopt); }

   void call(std::optional<Outcome> outcome) {
      // Cleared first, because `once` may call the reply again or destroy its last copy.
      if (const Settle once = std::exchange(settle, nullptr)) {
         once(std::move(outcome));
      }
   }

   Settle settle; // null when it has been called
};

Reply::Reply(Settle settle) : once_{std::make_shared<Once>(std::move(settle))} {}

void Reply::operator()(Outcome outcome) const {
   // A copy, because the call may destroy whatever holds this reply.
   const std::shared_ptr<Once> once = once_;
   once->call(std::move(outcome));
}

RulesClient::~RulesClient() = default;

} // namespace Postcard::RulesClient
