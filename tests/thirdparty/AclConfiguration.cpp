// One ACL configuration: its rules by name and by index, its interfaces, its status texts.

#include "Check.h"
#include "Guesses.h"
#include "OruPostcardTelemetry/PostcardTelemetryAclConfig.h"
#include "OruPostcardTelemetry/PostcardTelemetryAclConfigStatus.h"

#include <cstdint>
#include <set>
#include <vector>

using namespace OruPostcardTelemetry;
using namespace thirdparty;

namespace {

using Config = PostcardTelemetryAclConfig;
using Status = PostcardTelemetryAclConfigStatus;

void newConfiguration() {
   Config::Ptr const config{postcardTelemetryAclConfigFactory("p1-acl")};
   CHECK_EQ(text(config->aclConfigKey()), "p1-acl");
   CHECK_EQ(static_cast<unsigned>(config->aclType()), 0);
   CHECK(!config->programmedPolicy());
   CHECK(!config->rulesClientUpdated());
   CHECK(!config->aclConfigStatus());
   CHECK_EQ(count(rulesByName(*config)), 0);
   CHECK_EQ(count(rulesByIndex(*config)), 0);
   CHECK_EQ(count(interfaces(*config)), 0);
   CHECK(!same(config, postcardTelemetryAclConfigFactory("p1-acl")));
   CHECK_EQ(text(createdConfig("p2-acl")->aclConfigKey()), "p2-acl");
}

void flags() {
   Config::Ptr const config{postcardTelemetryAclConfigFactory("p1-acl")};
   config->aclTypeIs(aclType(1));
   config->programmedPolicyIs(true);
   config->rulesClientUpdatedIs(true);
   CHECK_EQ(static_cast<unsigned>(config->aclType()), 1);
   CHECK(config->programmedPolicy());
   CHECK(config->rulesClientUpdated());
   config->programmedPolicyIs(false);
   CHECK(!config->programmedPolicy());
}

void rulesWithNames() {
   Config::Ptr const config{postcardTelemetryAclConfigFactory("p1-acl")};
   CHECK(!config->ruleByName("web"));
   RuleConfig::Ptr const rule{config->ruleByNameIs("web")};
   CHECK_EQ(text(rule->name()), "web");
   CHECK(!rule->ruleFilter());
   RuleFilter::Ptr const filter{rule->ruleFilterIs()};
   RuleAction::Ptr const action{rule->ruleActionIs()};
   CHECK(same(rule, config->ruleByNameIs("web")));
   CHECK(same(rule, config->ruleByName("web")));
   CHECK(same(filter, config->ruleByName("web")->ruleFilter()));
   CHECK(same(action, config->ruleByName("web")->ruleAction()));
   CHECK_EQ(count(rulesByName(*config)), 1);
   CHECK(!config->ruleByNameDel("dns"));
   CHECK(same(rule, config->ruleByNameDel("web")));
   CHECK_EQ(count(rulesByName(*config)), 0);
   config->ruleByNameIs("a");
   config->ruleByNameIs("b");
   CHECK_EQ(count(rulesByName(*config)), 2);
   config->ruleByNameDelAll();
   CHECK_EQ(count(rulesByName(*config)), 0);
}

// An index is set, replaced and cleared by one call.
void rulesWithIndexes() {
   Config::Ptr const config{postcardTelemetryAclConfigFactory("p1-acl")};
   RuleConfig::Ptr const first{config->ruleByNameIs("first")};
   RuleConfig::Ptr const second{config->ruleByNameIs("second")};
   config->ruleByIndexIs(4, nullptr);
   CHECK_EQ(count(rulesByIndex(*config)), 0);
   config->ruleByIndexIs(4, first);
   CHECK(same(first, config->ruleByIndex(4)));
   config->ruleByIndexIs(4, first);
   CHECK_EQ(count(rulesByIndex(*config)), 1);
   config->ruleByIndexIs(4, second);
   CHECK(same(second, config->ruleByIndex(4)));
   CHECK_EQ(count(rulesByIndex(*config)), 1);
   config->ruleByIndexIs(4, nullptr);
   CHECK(!config->ruleByIndex(4));
   CHECK_EQ(count(rulesByIndex(*config)), 0);
   CHECK(same(second, config->ruleByName("second")));
   CHECK(!config->ruleByIndexDel(4));
   config->ruleByIndexIs(0xffffffffu, first);
   CHECK(same(first, config->ruleByIndexDel(0xffffffffu)));
}

// The two collections of rules do not follow each other.
void independentCollections() {
   Config::Ptr const config{postcardTelemetryAclConfigFactory("p1-acl")};
   config->ruleByIndexIs(0, config->ruleByNameIs("web"));
   config->ruleByNameDel("web");
   CHECK(!config->ruleByName("web"));
   CHECK(config->ruleByIndex(0));
   CHECK_EQ(text(config->ruleByIndex(0)->name()), "web");
   config->ruleByNameIs("other");
   config->ruleByIndexDelAll();
   CHECK_EQ(count(rulesByIndex(*config)), 0);
   CHECK_EQ(count(rulesByName(*config)), 1);
}

void ascendingIndexes() {
   Config::Ptr const config{postcardTelemetryAclConfigFactory("p1-acl")};
   for (std::uint32_t const index : {5u, 1u, 3u}) {
      config->ruleByIndexIs(index, ruleConfigFactory("r"));
   }
   std::vector<std::uint32_t> seen{};
   for (const auto& [index, rule] : rulesByIndex(*config)) {
      seen.push_back(index);
      CHECK_EQ(text(rule->name()), "r");
   }
   CHECK(seen == std::vector<std::uint32_t>{1, 3, 5});
}

void deletionByIterator() {
   Config::Ptr const config{postcardTelemetryAclConfigFactory("p1-acl")};
   RuleConfig::Ptr const rule{ruleConfigFactory("r")};
   config->ruleByIndexIs(2, rule);
   config->ruleByIndexIs(7, ruleConfigFactory("s"));
   CHECK(same(rule, config->ruleByIndexDel(rulesByIndex(*config).begin())));
   CHECK_EQ(count(rulesByIndex(*config)), 1);
   CHECK(!config->ruleByIndexDel(rulesByIndex(*config).end()));
   CHECK_EQ(count(rulesByIndex(*config)), 1);
   Status::Ptr const status{postcardTelemetryAclConfigStatusFactory()};
   status->statusInOrderIs(3, "three");
   CHECK_EQ(text(status->statusInOrderDel(texts(*status).begin())), "three");
   CHECK_EQ(text(status->statusInOrderDel(texts(*status).end())), "");
}

void attachedInterfaces() {
   Config::Ptr const config{postcardTelemetryAclConfigFactory("p1-acl")};
   CHECK(!config->policyIntf(intf("Ethernet1")));
   config->policyIntfIs(intf("Ethernet1"));
   config->policyIntfIs(intf("Ethernet1"));
   CHECK(config->policyIntf(intf("Ethernet1")));
   CHECK_EQ(count(interfaces(*config)), 1);
   config->policyIntfDel(intf("Ethernet2"));
   CHECK_EQ(count(interfaces(*config)), 1);
   config->policyIntfIs(intf("Ethernet2"));
   std::set<std::string> names{};
   for (const auto& one : interfaces(*config)) {
      names.insert(text(one.stringValue()));
   }
   CHECK(names == std::set<std::string>{"Ethernet1", "Ethernet2"});
   config->policyIntfDel(intf("Ethernet1"));
   CHECK(!config->policyIntf(intf("Ethernet1")));
   config->policyIntfDelAll();
   CHECK_EQ(count(interfaces(*config)), 0);
}

void statusChild() {
   Config::Ptr const config{postcardTelemetryAclConfigFactory("p1-acl")};
   Status::Ptr const status{config->aclConfigStatusIs()};
   CHECK(same(status, config->aclConfigStatusIs()));
   CHECK(same(status, config->aclConfigStatus()));
   CHECK(same(status, config->aclConfigStatusDel()));
   CHECK(!config->aclConfigStatus());
   CHECK(!config->aclConfigStatusDel());
}

void statusTexts() {
   Status::Ptr const status{createdStatus()};
   CHECK_EQ(status->currentIndex(), 0);
   CHECK_EQ(count(texts(*status)), 0);
   CHECK_EQ(text(status->statusInOrder(9)), "");
   CHECK_EQ(text(status->statusInOrderDel(9)), "");
   status->statusInOrderIs(9, "nine");
   status->statusInOrderIs(9, "nine again");
   CHECK_EQ(count(texts(*status)), 1);
   CHECK_EQ(text(status->statusInOrder(9)), "nine again");
   // An empty text is a text, not a deletion.
   status->statusInOrderIs(9, "");
   CHECK_EQ(count(texts(*status)), 1);
   status->statusInOrderIs(9, "last");
   CHECK_EQ(text(status->statusInOrderDel(9)), "last");
   CHECK_EQ(count(texts(*status)), 0);
   CHECK(postcardTelemetryAclConfigStatusFactory());
}

void statusOrder() {
   Status::Ptr const status{postcardTelemetryAclConfigStatusFactory()};
   status->statusInOrderIs(5, "five");
   status->statusInOrderIs(1, "one");
   status->statusInOrderIs(3, "three");
   std::string whole{};
   for (const auto& [index, line] : texts(*status)) {
      whole += std::to_string(index) + text(line) + ' ';
   }
   CHECK_EQ(whole, "1one 3three 5five ");
   status->currentIndexIs(6);
   status->statusInOrderDelAll();
   CHECK_EQ(count(texts(*status)), 0);
   CHECK_EQ(status->currentIndex(), 6);
}

void aclConfiguration() {
   newConfiguration();
   flags();
   rulesWithNames();
   rulesWithIndexes();
   independentCollections();
   ascendingIndexes();
   deletionByIterator();
   attachedInterfaces();
   statusChild();
   statusTexts();
   statusOrder();
}

const Subject subject{"ACL configuration", aclConfiguration};

} // namespace
