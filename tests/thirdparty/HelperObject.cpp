// The helper, the configurations it owns, and how they are named.

#include "Bench.h"
#include "Check.h"

#include <vector>

using namespace OruPostcardTelemetry;
using namespace thirdparty;

namespace {

using Helper = OruPostcardPolicyAclHelper;

constexpr unsigned aclConfigCollId{260};

void construction() {
   const Bench bench{};
   CHECK(same(bench.helper->clientConfig(), bench.request));
   CHECK(bench.helper->hwCapability());
   CHECK_EQ(count(configs(*bench.helper)), 0);
   Helper::Ptr const bare{oruPostcardPolicyAclHelperFactory(nullptr, nullptr)};
   CHECK(!bare->clientConfig());
   CHECK(!bare->hwCapability());
   CHECK(!same(bare, createdHelper(nullptr, nullptr)));
}

void hardwareStart() {
   const Bench bench{};
   bench.helper->hwInit();
   CHECK(!bench.helper->updateActionSupported());
   CHECK(bench.helper->expandPortChannels());
   CHECK(!bench.helper->establishedSupported());
   CHECK(!bench.helper->subRulesForL4Ports());
   CHECK(bench.helper->asyncOperations());
}

void collection() {
   const Bench bench{};
   CHECK(!bench.helper->aclConfigColl("p1-acl"));
   PostcardTelemetryAclConfig::Ptr const config{bench.helper->aclConfigCollIs("p1-acl")};
   CHECK_EQ(text(config->aclConfigKey()), "p1-acl");
   CHECK(same(config, bench.helper->aclConfigCollIs("p1-acl")));
   CHECK(same(config, bench.helper->aclConfigColl("p1-acl")));
   CHECK_EQ(count(configs(*bench.helper)), 1);
   CHECK(!bench.helper->aclConfigCollDel("p2-acl"));
   CHECK(same(config, bench.helper->aclConfigCollDel("p1-acl")));
   CHECK_EQ(count(configs(*bench.helper)), 0);
   bench.helper->aclConfigCollIs("a");
   bench.helper->aclConfigCollIs("b");
   bench.helper->aclConfigCollDelAll();
   CHECK_EQ(count(configs(*bench.helper)), 0);
}

void publication() {
   const Bench bench{};
   std::vector<Change> changes{};
   const auto subscription = subscribe(bench.helper->publisher(), [&changes](const Change& change) {
      changes.push_back(change);
   });
   bench.helper->aclConfigCollIs("p1-acl");
   bench.helper->aclConfigCollIs("p1-acl");
   CHECK_EQ(changes.size(), 1);
   if (!changes.empty()) {
      CHECK_EQ(changes[0].identifier, aclConfigCollId);
      CHECK(contains(changes[0].key, "p1-acl"));
   }
   bench.helper->aclConfigCollDel("p2-acl");
   CHECK_EQ(changes.size(), 1);
   bench.helper->aclConfigCollDel("p1-acl");
   CHECK_EQ(changes.size(), 2);
   bench.helper->aclConfigCollIs("a");
   bench.helper->aclConfigCollIs("b");
   changes.clear();
   bench.helper->aclConfigCollDelAll();
   CHECK_EQ(changes.size(), 2);
}

void publicationAtTheEnd() {
   unsigned removals{0};
   Helper::Ptr helper{oruPostcardPolicyAclHelperFactory(nullptr, nullptr)};
   helper->aclConfigCollIs("a");
   helper->aclConfigCollIs("b");
   const auto subscription = subscribe(helper->publisher(), [&removals](const Change& change) {
      removals += change.identifier == aclConfigCollId ? 1 : 0;
   });
   helper = nullptr;
   CHECK_EQ(removals, 2);
}

void families() {
   CHECK_EQ(static_cast<unsigned>(matchOptionToAclType(ipv4())), 0);
   CHECK_EQ(static_cast<unsigned>(matchOptionToAclType(ipv6())), 1);
   CHECK_EQ(static_cast<unsigned>(ipv4()), 0);
   CHECK_EQ(static_cast<unsigned>(ipv6()), 1);
}

void naming() {
   std::string const four{text(aclName("p1", matchOptionToAclType(ipv4())))};
   std::string const six{text(aclName("p1", matchOptionToAclType(ipv6())))};
   CHECK(four.starts_with("p1-"));
   CHECK(six.starts_with("p1-"));
   CHECK(four != six);
   CHECK(four.size() > 3);
   CHECK_EQ(text(ruleName("p1", matchOptionToAclType(ipv4()))), four);
   CHECK_EQ(text(ruleName("p1", matchOptionToAclType(ipv6()))), six);
}

void keys() {
   const Bench bench{};
   const Pello::Ptr<PolicyData> policy{makePolicy("p1", "g1")};
   std::string const four{text(bench.helper->getAclConfigKey(policy, ipv4()))};
   CHECK_EQ(four, withFamily("p1", ipv4()));
   CHECK_EQ(text(bench.helper->getAclConfigKey(policy, ipv6())), withFamily("p1", ipv6()));
   // Only the first half of the policy's key tells configurations apart.
   CHECK_EQ(text(bench.helper->getAclConfigKey(makePolicy("p1", "g2"), ipv4())), four);
   CHECK(text(bench.helper->getAclConfigKey(makePolicy("p2", "g1"), ipv4())) != four);
}

void creationAndDeletion() {
   const Bench bench{};
   const Pello::Ptr<PolicyData> policy{makePolicy("p1")};
   PostcardTelemetryAclConfig::Ptr const six{bench.helper->createAclConfig(policy, ipv6())};
   CHECK_EQ(text(six->aclConfigKey()), text(bench.helper->getAclConfigKey(policy, ipv6())));
   CHECK_EQ(static_cast<unsigned>(six->aclType()), 1);
   CHECK(six->aclConfigStatus());
   CHECK(!six->programmedPolicy());
   CHECK(!six->rulesClientUpdated());
   CHECK(same(six, bench.config(policy, ipv6())));
   CHECK(!bench.config(policy, ipv4()));
   bench.helper->createAclConfig(policy, ipv4());
   CHECK_EQ(count(configs(*bench.helper)), 2);
   bench.helper->deleteAclConfig(policy, ipv6());
   CHECK(!bench.config(policy, ipv6()));
   CHECK(bench.config(policy, ipv4()));
}

// A derived helper may name configurations its own way, and creation and deletion follow it.
class OtherNames : public Helper {
 public:
   using Helper::Helper;

   Pello::String getAclConfigKey(const Pello::Ptr<const PolicyData>&, MatchOption) override {
      return "one name for all";
   }
};

void overriddenNames() {
   const auto helper = adopt(new OtherNames{nullptr, nullptr});
   const Pello::Ptr<PolicyData> policy{makePolicy("p1")};
   CHECK_EQ(text(helper->createAclConfig(policy, ipv4())->aclConfigKey()), "one name for all");
   CHECK(helper->aclConfigColl("one name for all"));
   helper->deleteAclConfig(makePolicy("p2"), ipv4());
   CHECK(!helper->aclConfigColl("one name for all"));
}

void helperObject() {
   construction();
   hardwareStart();
   collection();
   publication();
   publicationAtTheEnd();
   families();
   naming();
   keys();
   creationAndDeletion();
   overriddenNames();
}

const Subject subject{"helper object", helperObject};

} // namespace
