// `RulesClient`: what a rules client does with an ACL. Derive from it to program ACLs into
// something new. A `Conversation` calls it and does the rest: the client deals neither with the two
// published records nor with the order and the form of answers. Relies on the data model for the
// ACL.
#pragma once

#include "postcard/rules-client/Records.h"

#include <functional>
#include <memory>
#include <optional>

namespace Postcard::RulesClient {

// The function through which a client returns the outcome of one request. All copies of a reply
// belong to the same request.
class Reply {
 public:
   // Takes the outcome, or nullopt when the request was given up without one.
   using Settle = std::function<void(std::optional<Outcome>)>;

   // `settle` must not be null. It is called exactly once, by the first call of the reply or else
   // by the destructor of the last copy. It must not throw, because a destructor may call it.
   explicit Reply(Settle settle);

   // Hands the outcome to the conversation. Only the first call of all copies has an effect. The
   // rules client may be destroyed inside this call, so it should be the last thing that the client
   // does. When the last copy is destroyed without a call, the request is given up: it gets no
   // answer, and the answers of later requests no longer wait for it.
   void operator()(Outcome outcome) const;

 private:
   struct Once;
   std::shared_ptr<Once> once_;
};

class RulesClient {
 public:
   virtual ~RulesClient();

   // Each function below is called inside the publication of a request, on the thread of the event
   // loop, so it must not wait. It must copy what it needs of `acl`, which may change or be
   // destroyed as soon as the function returns. It must call `reply` on the same thread, at once or
   // later. When it throws and keeps no copy of `reply`, the request is given up, and the publisher
   // of the record reports the exception on standard error.

   // Puts the rules and interfaces of `acl` into force, replacing those in force under the same
   // `aclConfigKey`. Unless the outcome is `done`, the old ones must stay in force. Creation and
   // update are one function: after a creation that failed, the next version arrives as an update,
   // and an agent that was restarted creates ACLs that are in force already.
   virtual void program(const AclConfig& acl, Reply reply) = 0;

   // Takes the ACL of the key `key` out of force. The outcome is `invalid` when there is none.
   virtual void remove(const Pello::String& key, Reply reply) = 0;

   // Replaces the interfaces of the ACL in force by those of `acl`, and takes over nothing else.
   // The outcome is `invalid` when no ACL of that key is in force.
   virtual void interfacesChanged(const AclConfig& acl, Reply reply) = 0;
};

} // namespace Postcard::RulesClient
