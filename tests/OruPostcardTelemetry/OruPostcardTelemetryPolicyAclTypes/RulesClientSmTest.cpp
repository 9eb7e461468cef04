// The records between helper and rules client, and what they publish.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RulesClientSm.h"

#include <gtest/gtest.h>

#include <vector>

namespace OruPostcardTelemetry {
namespace {

using Request = PostcardTelemetryRulesClientSmConfig;
using Answer = PostcardTelemetryRulesClientSmStatus;
using RulesClientSmTest = testing::Test;

// The identifiers of a record's changes, with the old values as far as they are a `T`.
template <class T>
class Changes {
 public:
   explicit Changes(const Kiv::Entity& record)
      : subscription_{record.publisher()->subscribe([this](const Pello::Change& change) {
           EXPECT_TRUE(change.key.empty());
           const T* old = change.oldValue.as<T>();
           ASSERT_NE(old, nullptr);
           seen_.emplace_back(change.attribute, *old);
        })} {}
   using Seen = std::vector<std::pair<unsigned, T>>;
   const Seen& seen() const { return seen_; }

 private:
   Seen seen_;
   Pello::Publisher::Subscription subscription_;
};

TEST_F(RulesClientSmTest, newRecordsAreEmpty) {
   const auto request = postcardTelemetryRulesClientSmConfigFactory();
   EXPECT_EQ(request->event(), policyCreate);
   EXPECT_EQ(request->aclConfig(), nullptr);
   EXPECT_EQ(request->currIntf(), Orlix::IntfId{""});
   EXPECT_EQ(request->kickRequest(), 0U);
   EXPECT_EQ(request->typeData().entityText(*request),
             "OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig(event='policyCreate', "
             "aclConfig=null, currIntf=\"\", kickRequest=0)");
   const auto answer = postcardTelemetryRulesClientSmStatusFactory();
   EXPECT_EQ(answer->typeData().entityText(*answer),
             "OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatus(status=\"\", "
             "statusType='statusSuccess', kickResponse=0)");
}

TEST_F(RulesClientSmTest, factoriesMakeNewRecordsWithPublishersOfTheirOwn) {
   const auto one = postcardTelemetryRulesClientSmConfigFactory();
   const auto two = PostcardTelemetryRulesClientSmConfigIs();
   EXPECT_NE(one, two);
   EXPECT_NE(one->publisher(), nullptr);
   EXPECT_NE(one->publisher(), two->publisher());
   const auto three = postcardTelemetryRulesClientSmStatusFactory();
   const auto four = PostcardTelemetryRulesClientSmStatusIs();
   EXPECT_NE(three, four);
   EXPECT_NE(three->publisher(), four->publisher());
}

TEST_F(RulesClientSmTest, eventChangesArePublished) {
   const auto request = PostcardTelemetryRulesClientSmConfigIs();
   using Seen = Changes<PostcardTelemetryRulesClientSmEvent>;
   const Seen changes{*request};
   request->eventIs(policyCreate);
   request->eventIs(policyIntfUpdate);
   request->eventIs(policyIntfUpdate);
   request->eventIs(policyDelete);
   EXPECT_EQ(changes.seen(), (Seen::Seen{{130, policyCreate}, {130, policyIntfUpdate}}));
   EXPECT_EQ(request->event(), policyDelete);
}

TEST_F(RulesClientSmTest, interfaceChangesArePublished) {
   const auto request = PostcardTelemetryRulesClientSmConfigIs();
   const Orlix::IntfId one{"Ethernet1"};
   const Changes<Orlix::IntfId> changes{*request};
   request->currIntfIs(Orlix::IntfId{});
   request->currIntfIs(one);
   request->currIntfIs(Orlix::IntfId{"Ethernet1"});
   request->currIntfIs(Orlix::IntfId{"Ethernet2"});
   EXPECT_EQ(changes.seen(), (Changes<Orlix::IntfId>::Seen{{132, Orlix::IntfId{}}, {132, one}}));
}

TEST_F(RulesClientSmTest, requestsAreCountedAndWrap) {
   const auto request = PostcardTelemetryRulesClientSmConfigIs();
   const Changes<U32> changes{*request};
   EXPECT_EQ(request->kickRequestInc(0), 0U);
   request->kickRequestIs(0);
   EXPECT_EQ(request->kickRequestInc(4294967295), 4294967295U);
   EXPECT_EQ(request->kickRequestInc(0), 4294967295U);
   EXPECT_EQ(request->kickRequestInc(1), 0U);
   EXPECT_EQ(request->kickRequest(), 0U);
   EXPECT_EQ(request->kickRequestInc(5), 5U);
   request->kickRequestIs(9);
   EXPECT_EQ(changes.seen(), (Changes<U32>::Seen{{133, 0}, {133, 4294967295}, {133, 0}, {133, 5}}));
}

TEST_F(RulesClientSmTest, answersAreCountedAndWrap) {
   const auto answer = PostcardTelemetryRulesClientSmStatusIs();
   const Changes<U32> changes{*answer};
   EXPECT_EQ(answer->kickResponseInc(0), 0U);
   EXPECT_EQ(answer->kickResponseInc(4294967295), 4294967295U);
   EXPECT_EQ(answer->kickResponseInc(2), 1U);
   answer->kickResponseIs(1);
   answer->kickResponseIs(7);
   EXPECT_EQ(changes.seen(), (Changes<U32>::Seen{{132, 0}, {132, 4294967295}, {132, 1}}));
}

TEST_F(RulesClientSmTest, statusTextsArePublishedWhenTheyDiffer) {
   const auto answer = PostcardTelemetryRulesClientSmStatusIs();
   const Changes<Pello::String> changes{*answer};
   answer->statusIs("");
   answer->statusIs("full");
   answer->statusIs(Pello::String{std::string{"full"}}); // equal, but not the same characters
   answer->statusIs("");
   EXPECT_EQ(changes.seen(), (Changes<Pello::String>::Seen{{130, ""}, {130, "full"}}));
}

TEST_F(RulesClientSmTest, statusTypesArePublished) {
   const auto answer = PostcardTelemetryRulesClientSmStatusIs();
   using Seen = Changes<PostcardTelemetryRulesClientSmStatusType>;
   const Seen changes{*answer};
   answer->statusTypeIs(statusSuccess);
   answer->statusTypeIs(statusFailure);
   answer->statusTypeIs(statusFailure);
   answer->statusTypeIs(statusSuccess);
   EXPECT_EQ(changes.seen(), (Seen::Seen{{131, statusSuccess}, {131, statusFailure}}));
}

using ConstConfig = Pello::Ptr<const PostcardTelemetryAclConfig>;

TEST_F(RulesClientSmTest, theOldConfigurationLivesUntilItsChangeIsPublished) {
   const auto request = PostcardTelemetryRulesClientSmConfigIs();
   request->aclConfigIs(postcardTelemetryAclConfigFactory("old")); // held by the record only
   const U64 before = PostcardTelemetryAclConfig::memAllocationTracker_.live();
   std::vector<std::string> seen;
   const auto subscription = request->publisher()->subscribe([&](const Pello::Change& change) {
      EXPECT_EQ(change.attribute, 131);
      EXPECT_EQ(request->aclConfig(), nullptr); // the new value is in place already
      seen.push_back((*change.oldValue.as<ConstConfig>())->aclConfigKey().str());
      EXPECT_EQ(PostcardTelemetryAclConfig::memAllocationTracker_.live(), before);
   });
   request->aclConfigIs(nullptr);
   request->aclConfigIs(nullptr);
   EXPECT_EQ(seen, std::vector<std::string>{"old"});
   EXPECT_EQ(PostcardTelemetryAclConfig::memAllocationTracker_.live(), before - 1);
}

TEST_F(RulesClientSmTest, configurationsAreComparedByIdentity) {
   const auto request = PostcardTelemetryRulesClientSmConfigIs();
   const auto one = postcardTelemetryAclConfigFactory("same");
   const auto two = postcardTelemetryAclConfigFactory("same");
   const Changes<ConstConfig> changes{*request};
   request->aclConfigIs(nullptr);
   request->aclConfigIs(one);
   request->aclConfigIs(one);
   EXPECT_EQ(one->references(), 2U);
   request->aclConfigIs(two);
   EXPECT_EQ(changes.seen(), (Changes<ConstConfig>::Seen{{131, nullptr}, {131, one}}));
   EXPECT_EQ(request->aclConfig(), ConstConfig{two});
}

} // namespace
} // namespace OruPostcardTelemetry
