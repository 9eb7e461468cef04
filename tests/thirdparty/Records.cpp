// The request to the rules client, its answer, and how their changes are published.

#include "Check.h"
#include "Guesses.h"
#include "OruPostcardTelemetry/PostcardTelemetryRulesClientSmConfig.h"
#include "OruPostcardTelemetry/PostcardTelemetryRulesClientSmStatus.h"

#include <vector>

using namespace OruPostcardTelemetry;
using namespace thirdparty;

namespace {

using Request = PostcardTelemetryRulesClientSmConfig;
using Answer = PostcardTelemetryRulesClientSmStatus;

constexpr unsigned eventId{130};
constexpr unsigned aclConfigId{131};
constexpr unsigned currIntfId{132};
constexpr unsigned kickRequestId{133};
constexpr unsigned statusId{130};
constexpr unsigned statusTypeId{131};
constexpr unsigned kickResponseId{132};

// An ACL configuration that tells when it is gone.
class Watched : public PostcardTelemetryAclConfig {
 public:
   explicit Watched(bool& gone) : PostcardTelemetryAclConfig{"watched"}, gone_{gone} {}
   ~Watched() override { gone_ = true; }

 private:
   bool& gone_;
};

void newRecords() {
   Request::Ptr const request{postcardTelemetryRulesClientSmConfigFactory()};
   CHECK(request->event() == policyCreate);
   CHECK(!request->aclConfig());
   CHECK(request->currIntf() == intf(""));
   CHECK_EQ(text(request->currIntf().stringValue()), "");
   CHECK_EQ(request->kickRequest(), 0);
   Answer::Ptr const answer{postcardTelemetryRulesClientSmStatusFactory()};
   CHECK_EQ(text(answer->status()), "");
   CHECK(answer->statusType() == statusSuccess);
   CHECK_EQ(answer->kickResponse(), 0);
   CHECK(!same(createdRequest(), createdRequest()));
   CHECK_EQ(createdAnswer()->kickResponse(), 0);
}

void requestChanges() {
   Request::Ptr const request{postcardTelemetryRulesClientSmConfigFactory()};
   std::vector<Change> changes{};
   const auto subscription = subscribe(
         request->publisher(), [&changes](const Change& change) { changes.push_back(change); });
   request->eventIs(policyUpdate);
   request->currIntfIs(intf("Ethernet1"));
   request->kickRequestIs(3);
   CHECK_EQ(changes.size(), 3);
   if (changes.size() == 3) {
      CHECK_EQ(changes[0].identifier, eventId);
      CHECK_EQ(changes[0].oldValue, "policyCreate");
      CHECK_EQ(changes[1].identifier, currIntfId);
      CHECK_EQ(changes[2].identifier, kickRequestId);
      CHECK_EQ(changes[2].oldValue, "0");
   }
   // What is so already is not said again.
   changes.clear();
   request->eventIs(policyUpdate);
   request->currIntfIs(intf("Ethernet1"));
   request->kickRequestIs(3);
   request->aclConfigIs(nullptr);
   CHECK(changes.empty());
   CHECK(request->event() == policyUpdate);
   CHECK_EQ(request->kickRequest(), 3);
}

void requestCounter() {
   Request::Ptr const request{postcardTelemetryRulesClientSmConfigFactory()};
   request->kickRequestIs(4294967295u);
   std::vector<Change> changes{};
   const auto subscription = subscribe(
         request->publisher(), [&changes](const Change& change) { changes.push_back(change); });
   CHECK_EQ(request->kickRequestInc(0), 4294967295u);
   CHECK(changes.empty());
   CHECK_EQ(request->kickRequestInc(1), 0);
   CHECK_EQ(request->kickRequest(), 0);
   CHECK_EQ(changes.size(), 1);
   if (!changes.empty()) {
      CHECK_EQ(changes[0].identifier, kickRequestId);
      CHECK_EQ(changes[0].oldValue, "4294967295");
   }
   CHECK_EQ(request->kickRequestInc(5), 5);
   CHECK_EQ(changes.size(), 2);
}

// The watcher sees the new value; the old configuration outlives the notification, not more.
void configurationChanges() {
   Request::Ptr const request{postcardTelemetryRulesClientSmConfigFactory()};
   bool gone{false};
   request->aclConfigIs(adopt<PostcardTelemetryAclConfig>(new Watched{gone}));
   CHECK(!gone);
   CHECK_EQ(text(request->aclConfig()->aclConfigKey()), "watched");
   unsigned notified{0};
   bool goneMeanwhile{true};
   bool newValueSeen{false};
   const auto subscription = subscribe(request->publisher(), [&](const Change& change) {
      notified += change.identifier == aclConfigId ? 1 : 0;
      goneMeanwhile = gone;
      newValueSeen = !request->aclConfig();
   });
   request->aclConfigIs(nullptr);
   CHECK_EQ(notified, 1);
   CHECK(!goneMeanwhile);
   CHECK(newValueSeen);
   CHECK(gone);
   // Another object is another value, even with the same key.
   request->aclConfigIs(postcardTelemetryAclConfigFactory("a"));
   request->aclConfigIs(postcardTelemetryAclConfigFactory("a"));
   CHECK_EQ(notified, 3);
}

void endOfSubscription() {
   Request::Ptr const request{postcardTelemetryRulesClientSmConfigFactory()};
   unsigned notified{0};
   {
      const auto subscription =
            subscribe(request->publisher(), [&notified](const Change&) { ++notified; });
      request->kickRequestInc(1);
   }
   request->kickRequestInc(1);
   CHECK_EQ(notified, 1);
   CHECK_EQ(request->kickRequest(), 2);
}

void answerChanges() {
   Answer::Ptr const answer{postcardTelemetryRulesClientSmStatusFactory()};
   std::vector<Change> changes{};
   const auto subscription = subscribe(
         answer->publisher(), [&changes](const Change& change) { changes.push_back(change); });
   answer->statusIs("");
   answer->statusTypeIs(statusSuccess);
   answer->kickResponseIs(0);
   CHECK(changes.empty());
   answer->statusIs("table full");
   answer->statusIs(Pello::String{"table full"});
   answer->statusTypeIs(statusFailure);
   CHECK_EQ(answer->kickResponseInc(2), 2);
   CHECK_EQ(changes.size(), 3);
   if (changes.size() == 3) {
      CHECK_EQ(changes[0].identifier, statusId);
      CHECK_EQ(changes[0].oldValue, "");
      CHECK_EQ(changes[1].identifier, statusTypeId);
      CHECK_EQ(changes[1].oldValue, "statusSuccess");
      CHECK_EQ(changes[2].identifier, kickResponseId);
   }
   CHECK_EQ(text(answer->status()), "table full");
   answer->kickResponseIs(4294967295u);
   CHECK_EQ(answer->kickResponseInc(2), 1);
}

void records() {
   newRecords();
   requestChanges();
   requestCounter();
   configurationChanges();
   endOfSubscription();
   answerChanges();
}

const Subject subject{"rules-client records", records};

} // namespace
