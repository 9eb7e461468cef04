// The helper as an object: its records, its collection of ACL configurations and what it publishes,
// its switches, and the order in which it goes.
#include "Kiv/Reflection.h"
#include "support/HelperRecords.h"

#include <gtest/gtest.h>

namespace OruPostcardTelemetry {
namespace {

using namespace TestSupport;

using Configurations = std::remove_cvref_t<
      decltype(std::declval<const OruPostcardPolicyAclHelper&>().aclConfigColl())>;
static_assert(Configurations::hashConstant == 0xf5fef739);

// Everything that a helper publishes, as "attribute key removed|inserted", and what was removed.
class Watch {
 public:
   explicit Watch(const Kiv::Entity& entity)
      : subscription_{entity.publisher()->subscribe([this, &entity](const Pello::Change& change) {
           const auto* key = change.key.as<Pello::String>();
           const auto* old = change.oldValue.as<Pello::Ptr<PostcardTelemetryAclConfig>>();
           seen.push_back(std::string{entity.typeData().attribute(change.attribute).name} + " " +
                          (key == nullptr ? "" : key->str()) +
                          (change.oldValue.empty() ? " inserted" : " removed"));
           if (old != nullptr) {
              removed.push_back(*old);
           }
        })} {}

   std::vector<std::string> seen;
   std::vector<Pello::Ptr<PostcardTelemetryAclConfig>> removed;

 private:
   Pello::Publisher::Subscription subscription_;
};

using Lines = std::vector<std::string>;

TEST(HelperCollection, insertionPublishesOnceAndNotForAnExistingKey) {
   HelperRecords records;
   const Watch watch{*records.helper};
   const auto first = records.helper->aclConfigCollIs("k");
   EXPECT_EQ(records.helper->aclConfigCollIs("k"), first);
   EXPECT_EQ(first->aclConfigKey(), "k");
   EXPECT_EQ(records.helper->aclConfigColl("k"), first);
   EXPECT_EQ(watch.seen, Lines{"aclConfigColl k inserted"});
}

TEST(HelperCollection, insertionIsPublishedWhenItCanBeLookedUp) {
   HelperRecords records;
   bool found = false;
   const auto subscription = records.helper->publisher()->subscribe(
         [&](const Pello::Change&) { found = records.config("k") != nullptr; });
   records.helper->aclConfigCollIs("k");
   EXPECT_TRUE(found);
}

TEST(HelperCollection, removalPublishesTheRemovedValueAndHandsItOver) {
   HelperRecords records;
   const auto config = records.helper->aclConfigCollIs("k");
   const Watch watch{*records.helper};
   EXPECT_EQ(records.helper->aclConfigCollDel("k"), config);
   EXPECT_EQ(watch.seen, Lines{"aclConfigColl k removed"});
   EXPECT_EQ(watch.removed, std::vector{config});
   EXPECT_EQ(records.helper->aclConfigColl("k"), nullptr);
}

TEST(HelperCollection, removalOfAnAbsentKeyIsNullAndSilent) {
   HelperRecords records;
   records.helper->aclConfigCollIs("k");
   const Watch watch{*records.helper};
   EXPECT_EQ(records.helper->aclConfigCollDel("other"), nullptr);
   EXPECT_EQ(records.helper->aclConfigColl("other"), nullptr);
   EXPECT_EQ(watch.seen, Lines{});
}

TEST(HelperCollection, removingAllPublishesEachRemoval) {
   HelperRecords records;
   for (const char* key : {"a", "b", "c"}) {
      records.helper->aclConfigCollIs(key);
   }
   Watch watch{*records.helper};
   std::vector<std::size_t> left;
   const auto subscription = records.helper->publisher()->subscribe(
         [&](const Pello::Change&) { left.push_back(records.helper->aclConfigColls()); });
   records.helper->aclConfigCollDelAll();
   std::ranges::sort(watch.seen);
   EXPECT_EQ(watch.seen, (Lines{"aclConfigColl a removed", "aclConfigColl b removed",
                                "aclConfigColl c removed"}));
   EXPECT_EQ(left, (std::vector<std::size_t>{2, 1, 0}));
}

TEST(HelperCollection, destructionPublishesEachRemoval) {
   HelperRecords records;
   records.helper->aclConfigCollIs("a");
   records.helper->aclConfigCollIs("b");
   Watch watch{*records.helper};
   records.helper = nullptr;
   std::ranges::sort(watch.seen);
   EXPECT_EQ(watch.seen, (Lines{"aclConfigColl a removed", "aclConfigColl b removed"}));
   EXPECT_EQ(watch.removed.size(), 2U);
}

// Says when it goes.
class Capability : public PostcardTelemetry::HwCapability {
 public:
   explicit Capability(Lines& log) : log_{log} {}
   ~Capability() override { log_.emplace_back("capability"); }

 private:
   Lines& log_;
};
class Request : public PostcardTelemetryRulesClientSmConfig {
 public:
   explicit Request(Lines& log) : log_{log} {}
   ~Request() override { log_.emplace_back("request"); }

 private:
   Lines& log_;
};

TEST(HelperCollection, goesInOrderConfigurationsCapabilityRequest) {
   Lines log;
   Pello::Ptr<OruPostcardPolicyAclHelper> helper =
         oruPostcardPolicyAclHelperFactory(new Request{log}, new Capability{log});
   helper->aclConfigCollIs("k");
   const auto subscription = helper->publisher()->subscribe(
         [&](const Pello::Change&) { log.emplace_back("configuration"); });
   helper = nullptr;
   EXPECT_EQ(log, (Lines{"configuration", "capability", "request"}));
}

TEST(HelperCollection, aConfigurationOutlivesTheHelperForItsOtherHolders) {
   HelperRecords records;
   const auto config = records.helper->aclConfigCollIs("k");
   records.helper = nullptr;
   EXPECT_EQ(config->references(), 1U);
}

TEST(Helper, factoryTakesAReferenceToEachRecord) {
   const auto before = OruPostcardPolicyAclHelper::memAllocationTracker_.live();
   HelperRecords records;
   EXPECT_EQ(records.helper->references(), 1U);
   EXPECT_EQ(records.helper->clientConfig(), records.clientConfig);
   EXPECT_EQ(records.helper->hwCapability(), records.hwCapability);
   EXPECT_EQ(records.clientConfig->references(), 2U);
   EXPECT_EQ(records.hwCapability->references(), 2U);
   EXPECT_EQ(records.helper->aclConfigColls(), 0U);
   EXPECT_EQ(OruPostcardPolicyAclHelper::memAllocationTracker_.live(), before + 1);
   records.helper = nullptr;
   EXPECT_EQ(records.clientConfig->references(), 1U);
   EXPECT_EQ(OruPostcardPolicyAclHelper::memAllocationTracker_.live(), before);
}

TEST(Helper, recordsMayBeNull) {
   for (const auto& helper :
        {oruPostcardPolicyAclHelperFactory({}, {}), OruPostcardPolicyAclHelperIs({}, {})}) {
      EXPECT_EQ(helper->clientConfig(), nullptr);
      EXPECT_EQ(helper->hwCapability(), nullptr);
   }
}

TEST(Helper, hwInitSetsTheFiveSwitchesInOrder) {
   HelperRecords records;
   std::vector<U16> published;
   const auto subscription = records.helper->publisher()->subscribe(
         [&](const Pello::Change& change) { published.push_back(change.attribute); });
   records.helper->hwInit();
   EXPECT_FALSE(records.helper->updateActionSupported());
   EXPECT_TRUE(records.helper->expandPortChannels());
   EXPECT_FALSE(records.helper->establishedSupported());
   EXPECT_FALSE(records.helper->subRulesForL4Ports());
   EXPECT_TRUE(records.helper->asyncOperations());
   using Helper = OruPostcardPolicyAclHelper;
   EXPECT_EQ(published,
             (std::vector<U16>{Helper::updateActionSupportedId, Helper::expandPortChannelsId,
                               Helper::establishedSupportedId, Helper::subRulesForL4PortsId,
                               Helper::asyncOperationsId}));
}

TEST(Helper, hwInitReadsNoCapability) {
   const auto helper = oruPostcardPolicyAclHelperFactory({}, {});
   helper->hwInit();
   EXPECT_TRUE(helper->asyncOperations());
}

TEST(Helper, attributesHaveTheirIdentifiers) {
   const Kiv::TypeData& type = OruPostcardPolicyAclHelper::kivTypeData();
   const struct {
      U16 id;
      const char* name;
   } rows[] = {{258, "clientConfig"}, {259, "hwCapability"}, {260, "aclConfigColl"}};
   for (const auto& row : rows) {
      EXPECT_EQ(type.attribute(row.id).name, row.name);
   }
   EXPECT_EQ(type.attributes.back().id, 260);
   EXPECT_EQ(&HelperRecords{}.helper->typeData(), &type);
   EXPECT_EQ(Kiv::findType("OruPostcardTelemetry::OruPostcardPolicyAclHelper"), &type);
}

} // namespace
} // namespace OruPostcardTelemetry
