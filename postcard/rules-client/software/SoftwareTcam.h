// `SoftwareTcam`: a rules client in this process. It holds the ACLs that it is asked to hold, as
// far as there is room, and classifies packets with them. Relies on the two published records for
// the conversation, and on `AclTable` for the ACLs.
//
// A request is acted on inside the publication of its counter: what is needed of the ACL is copied
// there and then, so that the ACL may change or go before the answer. The answer (text, type and
// last the counter of the request) follows at once, or when the owner's event loop comes to it.
//
// A policy is held as a whole or not at all. A new version replaces the old one in one step, and
// may use its room; when it does not fit, the old one stays in force. What goes wrong is answered
// with one of
//    full: web-ipv4 needs 12 entries, 5 of 16 are free
//    invalid: ...
// The first may succeed later, when others have left; the second never will.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RulesClientSm.h"
#include "postcard/classifier/AclTable.h"

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Postcard::RulesClient {

// What can be made to go wrong, for tests of whoever waits for the answers. Each concerns one
// request.
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

class SoftwareTcam {
 public:
   using Config = OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig;
   using Status = OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatus;
   // Runs a function once, later, on this thread.
   using Later = std::function<void(std::function<void()>)>;

   struct Options {
      std::size_t capacity = 4096; // entries, all ACLs together
      Later later;                 // carries the answers; without it they come at once
   };

   // What became of a packet in one ACL.
   struct Verdict {
      Pello::String acl;  // its key
      U32 index;          // of the rule that matched
      Pello::String rule; // its name
      bool sampled;
      U8 dscp; // the packet's, after rewriting

      friend bool operator==(const Verdict&, const Verdict&) = default;
   };

   using Acls = std::map<Pello::String, Classifier::AclTable>;

   // Keeps both records and listens to `config` until it goes. A request that was made before is
   // not acted on. Answers still under way when the client goes are never given.
   SoftwareTcam(Pello::Ptr<Config> config, Pello::Ptr<Status> status, Options options);
   SoftwareTcam(const SoftwareTcam&) = delete;
   SoftwareTcam& operator=(const SoftwareTcam&) = delete;
   ~SoftwareTcam();

   std::size_t capacity() const noexcept { return capacity_; }
   std::size_t used() const;                                    // entries
   std::size_t available() const { return capacity_ - used(); } // entries

   // The ACLs in force, by key, with their entries, interfaces and hit counters.
   const Acls& acls() const noexcept { return acls_; }
   // The ACL, or null when there is none. Valid until the next request for that ACL.
   const Classifier::AclTable* acl(const Pello::String& key) const;

   // Looks the packet up in every ACL of its family that its interface is attached to, counts the
   // hits, and returns them in the order of the ACLs' keys. A packet without interface is looked up
   // everywhere.
   std::vector<Verdict> classify(const Packets::Packet& packet);

   // The next `count` requests that no earlier call has taken go wrong in this way.
   void inject(const InjectedFailure& failure, std::size_t count = 1);
   // Gives the answers that `late` has held back, oldest first, through `later` like all others.
   void releaseAnswers();
   // Answers that `late` holds back.
   std::size_t heldAnswers() const noexcept { return held_.size(); }
   // Requests seen so far, those that were never answered included.
   U64 requests() const noexcept { return requests_; }

 private:
   struct Answer {
      U32 request; // counter
      std::string text;
      bool success;
   };

   void requested();
   Answer act(U32 request);
   std::string perform();
   std::string program(const Config& request);
   std::string hold(Classifier::AclTable table);
   std::string remove(const Pello::String& key);
   std::string updateInterfaces(const OruPostcardTelemetry::PostcardTelemetryAclConfig& acl);
   void actWrongly(const InjectedFailure& failure, U32 request);
   void send(Answer answer);
   void write(const Answer& answer);

   Pello::Ptr<Config> config_;
   Pello::Ptr<Status> status_;
   std::size_t capacity_;
   Later later_;
   Acls acls_;
   std::deque<InjectedFailure> failures_;
   std::vector<Answer> held_;
   U64 requests_ = 0;
   std::shared_ptr<SoftwareTcam*> self_; // emptied when this goes; answers under way look here
   Pello::Publisher::Subscription subscription_;
};

} // namespace Postcard::RulesClient
