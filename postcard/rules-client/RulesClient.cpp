#include "postcard/rules-client/RulesClient.h"

#include <utility>

namespace Postcard::RulesClient {

// Shared by the copies of a reply; the last of them settles what no call has settled.
struct Reply::Once {
   explicit Once(Settle settling) : settle{std::move(settling)} {}
   Once(const Once&) = delete;
   Once& operator=(const Once&) = delete;
   ~Once() { call(std::nullopt); }

   void call(std::optional<Outcome> outcome) {
      if (const Settle once = std::exchange(settle, nullptr)) {
         once(std::move(outcome));
      }
   }

   Settle settle; // null: has been called
};

Reply::Reply(Settle settle) : once_{std::make_shared<Once>(std::move(settle))} {}

void Reply::operator()(Outcome outcome) const {
   // Held here: the call may destroy whatever holds this reply.
   const std::shared_ptr<Once> once = once_;
   once->call(std::move(outcome));
}

RulesClient::~RulesClient() = default;

} // namespace Postcard::RulesClient
