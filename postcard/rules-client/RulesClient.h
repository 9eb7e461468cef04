// `RulesClient`: what a rules client does with an ACL. `Conversation` drives it: the client sees
// neither the two published records nor the order and the form of their answers. Relies on the data
// model for the ACL.
#pragma once

#include "postcard/rules-client/Records.h"

#include <functional>
#include <memory>
#include <optional>

namespace Postcard::RulesClient {

// The way back for the outcome of one request. Copies are the same way back.
class Reply {
 public:
   // Takes the outcome; nullopt means that the request was given up without one.
   using Settle = std::function<void(std::optional<Outcome>)>;

   // `settle` is called exactly once.
   explicit Reply(Settle settle);

   // Hands the outcome over. The first call counts, later ones do nothing. The rules client itself
   // may be destroyed inside this call, so it should be the last thing that the client does. When
   // the last copy goes and nobody has called, the request is given up: it stays unanswered, and
   // answers of later requests wait for it no longer.
   void operator()(Outcome outcome) const;

 private:
   struct Once;
   std::shared_ptr<Once> once_;
};

class RulesClient {
 public:
   virtual ~RulesClient();

   // Each function is called inside the publication of a request, on the thread of the event loop.
   // It copies what it needs of `acl`, which may change or go as soon as the function returns. It
   // calls `reply` on the same thread, at once or later. When it throws, the request is given up;
   // the publisher of the record reports the exception.

   // Puts the rules and interfaces of `acl` into force, in place of what is in force under the same
   // `aclConfigKey`. What was in force stays so unless the outcome is `done`. Creation and update
   // are the same: after a creation that failed, the next version arrives as an update, and an
   // agent that was restarted creates what is in force already.
   virtual void program(const AclConfig& acl, Reply reply) = 0;

   // Takes the ACL of this key out of force. `invalid` when there is none.
   virtual void remove(const Pello::String& key, Reply reply) = 0;

   // Takes over the interfaces of `acl`, and nothing else of it. `invalid` when no ACL of its key
   // is in force.
   virtual void interfacesChanged(const AclConfig& acl, Reply reply) = 0;
};

} // namespace Postcard::RulesClient
