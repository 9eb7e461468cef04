// What the data model promises beyond what its objects do: what cannot be changed, compared or
// assigned, which types publish, by what collections hash, and what their traces leave in the ring.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryPolicyKey.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RulesClientSm.h"
#include "Ringlog/Ring.h"
#include "support/RingReader.h"
#include "support/RunProgram.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <set>
#include <type_traits>
#include <vector>

namespace OruPostcardTelemetry {
namespace {

using Request = PostcardTelemetryRulesClientSmConfig;

// Rules and configurations are known by their names: nothing renames them, and no object becomes
// another one.
template <class T>
concept Renamed = requires(T& object) { object.nameIs(Pello::String{}); } ||
                  requires(T& object) { object.aclConfigKeyIs(Pello::String{}); };
static_assert(!Renamed<RuleConfig> && !Renamed<PostcardTelemetryAclConfig>);

template <class T>
inline constexpr bool isItself = !std::is_copy_constructible_v<T> && !std::is_copy_assignable_v<T>;
static_assert(isItself<RuleConfig> && isItself<RuleFilter> && isItself<RuleAction>);
static_assert(isItself<PostcardTelemetryAclConfig> && isItself<PostcardTelemetryAclConfigStatus>);
static_assert(isItself<PostcardTelemetryRulesClientSmConfig>);
static_assert(isItself<PostcardTelemetryRulesClientSmStatus>);

// These have no order.
template <class T>
concept Ordered = requires(const T& a, const T& b) { a < b; };
static_assert(!Ordered<DscpDataAndMask> && !Ordered<L4Port> && !Ordered<L4PortDataMask>);
static_assert(!Ordered<Protocol>);

// The exact types of setters whose address users take.
using History = PostcardTelemetryAclConfigStatus;
static_assert(std::is_same_v<decltype(&History::statusInOrderIs),
                             void (History::*)(U32, const Pello::String&)>);
static_assert(
      std::is_same_v<decltype(&PostcardTelemetryAclConfig::ruleByIndexIs),
                     void (PostcardTelemetryAclConfig::*)(U32, const Pello::Ptr<RuleConfig>&)>);

// The constants by which collections hash.
template <class Collection>
inline constexpr U64 constantOf = std::remove_cvref_t<Collection>::hashConstant;
using AclConfig = PostcardTelemetryAclConfig;
static_assert(constantOf<decltype(std::declval<const AclConfig&>().ruleByName())> == 158383795);
static_assert(constantOf<decltype(std::declval<const RuleAction&>().action())> == 1484032339);
using Interfaces = std::remove_cvref_t<decltype(std::declval<const AclConfig&>().policyIntf())>;
static_assert(Interfaces::hashConstant == 0x485a4f7b && Interfaces::hashesPerProcess);

using DataModelContracts = testing::Test;

TEST_F(DataModelContracts, onlyTheTwoRecordsPublish) {
   EXPECT_EQ(ruleConfigFactory("r")->publisher(), nullptr);
   EXPECT_EQ(ruleFilterFactory()->publisher(), nullptr);
   EXPECT_EQ(ruleActionFactory()->publisher(), nullptr);
   EXPECT_EQ(postcardTelemetryAclConfigFactory("k")->publisher(), nullptr);
   EXPECT_EQ(postcardTelemetryAclConfigStatusFactory()->publisher(), nullptr);
   EXPECT_NE(postcardTelemetryRulesClientSmConfigFactory()->publisher(), nullptr);
   EXPECT_NE(postcardTelemetryRulesClientSmStatusFactory()->publisher(), nullptr);
}

TEST_F(DataModelContracts, theProcessSeedEntersByExclusiveOr) {
   const U64 process = Kiv::processHashSeed();
   EXPECT_EQ(Kiv::Detail::collectionSeed(0x485a4f7b, true), process ^ 0x485a4f7bU);
   EXPECT_EQ(Kiv::Detail::collectionSeed(158383795, false), 158383795U);
}

// Run by the test below, each time in a process of its own.
TEST(ProcessSeed, isPrinted) {
   std::cout << "seed " << Kiv::processHashSeed() << '\n';
   EXPECT_NE(Kiv::processHashSeed(), 0U);
}

TEST_F(DataModelContracts, everyProcessDrawsASeedOfItsOwn) {
   std::set<std::string> seeds;
   for (int i = 0; i < 3; ++i) {
      const auto result =
            TestSupport::runProgram({POSTCARD_BIN_DIR "/test-OruPostcardTelemetryPolicyAclTypes",
                                     "--gtest_filter=ProcessSeed.*"});
      const std::size_t begin = result.out.find("seed ");
      ASSERT_NE(begin, std::string::npos) << result.out << result.err;
      seeds.insert(result.out.substr(begin, result.out.find('\n', begin) - begin));
   }
   EXPECT_EQ(seeds.size(), 3U);
}

TEST_F(DataModelContracts, everyObjectEverMadeIsCounted) {
   const U64 before = RuleConfig::memAllocationTracker_.total();
   for (int i = 0; i < 3; ++i) {
      const auto rule = ruleConfigFactory("r");
   }
   EXPECT_EQ(RuleConfig::memAllocationTracker_.total(), before + 3);
}

TEST_F(DataModelContracts, theRecordReleasesAConfigurationThatAnotherReplaces) {
   const auto request = postcardTelemetryRulesClientSmConfigFactory();
   const U64 before = AclConfig::memAllocationTracker_.live();
   request->aclConfigIs(postcardTelemetryAclConfigFactory("old"));
   Pello::String seen;
   U64 during = 0;
   const auto subscription = request->publisher()->subscribe([&](const Pello::Change& change) {
      // The old one can still be read while its successor is published.
      seen = (*change.oldValue.as<Pello::Ptr<const AclConfig>>())->aclConfigKey();
      during = AclConfig::memAllocationTracker_.live();
   });
   request->aclConfigIs(postcardTelemetryAclConfigFactory("new"));
   EXPECT_EQ(seen, "old");
   EXPECT_EQ(during, before + 2);
   EXPECT_EQ(AclConfig::memAllocationTracker_.live(), before + 1);
}

TEST_F(DataModelContracts, aCopiedRequestIsCompleteWhenItsCounterChanges) {
   const auto from = postcardTelemetryRulesClientSmConfigFactory();
   from->eventIs(policyIntfUpdate);
   from->aclConfigIs(postcardTelemetryAclConfigFactory("k"));
   from->currIntfIs(Orlix::IntfId{"Ethernet1"});
   from->kickRequestIs(7);
   const auto to = postcardTelemetryRulesClientSmConfigFactory();
   std::vector<U16> changes;
   const auto subscription = to->publisher()->subscribe(
         [&](const Pello::Change& change) { changes.push_back(change.attribute); });
   to->typeData().copy(*to, *from);
   EXPECT_EQ(changes, (std::vector<U16>{Request::eventId, Request::aclConfigId, Request::currIntfId,
                                        Request::kickRequestId}));
}

TEST_F(DataModelContracts, attributesAreSetByIdentifier) {
   const auto request = postcardTelemetryRulesClientSmConfigFactory();
   const auto& type = request->typeData();
   type.attribute(Request::kickRequestId).setText(*request, "4294967295");
   EXPECT_EQ(request->kickRequest(), 4294967295U);
   const auto acl = postcardTelemetryAclConfigFactory("k");
   type.attribute(Request::aclConfigId).set(*request, acl);
   EXPECT_EQ(request->aclConfig(), acl);
   const auto filter = ruleFilterFactory();
   filter->protoIs(Protocol{6});
   try {
      filter->typeData().attribute(RuleFilter::protoId).setText(*filter, "0");
      ADD_FAILURE();
   } catch (const Kiv::RangeError& error) {
      EXPECT_STREQ(error.what(), "OruPostcardTelemetry::Protocol::value < "
                                 "OruPostcardTelemetry::Protocol::minProto or > "
                                 "OruPostcardTelemetry::Protocol::maxProto not allowed");
   }
   EXPECT_EQ(filter->proto(), Protocol{6});
}

// Each copy leaves its entry in the ring under its class.
TEST_F(DataModelContracts, copiesLeaveTheirEntriesInTheRing) {
   const auto from = ruleConfigFactory("from");
   from->ruleFilterIs();
   from->ruleActionIs();
   const auto to = ruleConfigFactory("to");
   to->copy(*from);
   const TestSupport::RingReader reader{Ringlog::snapshot()};
   const auto& records = reader.records();
   ASSERT_GE(records.size(), 3U);
   std::string last;
   for (auto record = records.end() - 3; record != records.end(); ++record) {
      last += record->site->className + "::" + record->site->functionName + " " +
              std::to_string(record->site->level) + record->text + "; ";
   }
   EXPECT_EQ(last, "RuleConfig::copy 8; RuleFilter::copy 8; RuleAction::copy 8; ");
}

} // namespace
} // namespace OruPostcardTelemetry
