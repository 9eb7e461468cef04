// From a policy's classes to rules: the walk over the classes, the template, the actions.

#include "Bench.h"
#include "Check.h"

#include <string>
#include <vector>

using namespace OruPostcardTelemetry;
using namespace thirdparty;

namespace {

using Config = PostcardTelemetryAclConfig;
using Helper = OruPostcardPolicyAclHelper;
using Names = std::vector<std::string>;

std::string generate(const Bench& bench, const Pello::Ptr<PolicyData>& policy) {
   return text(bench.helper->updateRulesInAclConfig(policy, ipv4()));
}

void oneClass() {
   const Bench bench{};
   const Pello::Ptr<PolicyData> policy{samplingPolicy("p1")};
   Config::Ptr const config{bench.helper->createAclConfig(policy, ipv4())};
   CHECK_EQ(generate(bench, policy), "");
   std::string const web{withFamily("web")};
   CHECK(namesInOrder(*config) == Names{web + "-tcp", web + "-udp"});
   CHECK(config->ruleByIndex(0));
   CHECK(config->ruleByIndex(1));
   CHECK_EQ(count(rulesByName(*config)), 2);
   CHECK(!config->ruleByName(web.c_str()));
   RuleFilter::Ptr const filter{config->ruleByIndex(0)->ruleFilter()};
   CHECK(filter->source() == prefix("0.0.0.0/0"));
   CHECK(filter->destination() == prefix("0.0.0.0/0"));
   CHECK(!filter->sampleDataAndMask());
   CHECK_EQ(filter->proto().value(), 6);
   CHECK_EQ(config->ruleByIndex(1)->ruleFilter()->proto().value(), 17);
}

void orderOfPriorities() {
   const Bench bench{};
   const Pello::Ptr<PolicyData> policy{attachedPolicy("p1")};
   addProtocols(addClass(policy, ipv4(), 20, "late"), 17, 17);
   addProtocols(addClass(policy, ipv4(), 10, "early"), 6, 6);
   Config::Ptr const config{bench.helper->createAclConfig(policy, ipv4())};
   CHECK_EQ(generate(bench, policy), "");
   CHECK(namesInOrder(*config) == Names{withFamily("early") + "-tcp", withFamily("late") + "-udp"});
}

void walkEndsAtFirstError() {
   const Bench bench{};
   const Pello::Ptr<PolicyData> policy{attachedPolicy("p1")};
   addClass(policy, ipv4(), 1, "first");
   addFragments(addClass(policy, ipv4(), 2, "second"));
   addClass(policy, ipv4(), 3, "third");
   CHECK_EQ(text(bench.helper->createPolicy(policy, ipv4())),
            "Unsupported match(es): 'Fragments', in configuration");
   std::string const first{withFamily("first")};
   CHECK(namesInOrder(*bench.config(policy)) == Names{first + "-tcp", first + "-udp"});
   CHECK_EQ(asyncStatus(*bench.helper), "Unsupported match(es): 'Fragments', in configuration");
}

void noRules() {
   const Bench bench{};
   const Pello::Ptr<PolicyData> policy{attachedPolicy("p1")};
   Config::Ptr const config{bench.helper->createAclConfig(policy, ipv4())};
   std::string const answer{generate(bench, policy)};
   CHECK(answer.starts_with("No rules configured in policy "));
   CHECK(answer.ends_with(description(policy)));
   CHECK_EQ(count(rulesByIndex(*config)), 0);
}

void prefixesAndSampleMatch() {
   const Bench bench{};
   const Pello::Ptr<PolicyData> policy{attachedPolicy("p1")};
   const Class web{addClass(policy, ipv4(), 1, "web")};
   addSource(web, "10.0.0.0/8");
   addDestination(web, "192.168.1.0/24");
   addSampleMatch(web, 5, 7, 4);
   addAction(web, sample);
   addProtocols(web, 17, 17);
   CHECK_EQ(text(bench.helper->createPolicy(policy, ipv4())), "");
   Config::Ptr const config{bench.config(policy)};
   CHECK_EQ(count(rulesByIndex(*config)), 1);
   RuleFilter::Ptr const filter{config->ruleByIndex(0)->ruleFilter()};
   CHECK_EQ(text(filter->source().stringValue()), "10.0.0.0/8");
   CHECK_EQ(text(filter->destination().stringValue()), "192.168.1.0/24");
   CHECK_EQ(filter->sampleDataAndMask()->data(), 5);
   CHECK_EQ(filter->sampleDataAndMask()->mask(), 7);
   CHECK_EQ(filter->sampleDataAndMask()->version(), 4);
   CHECK(config->ruleByIndex(0)->ruleAction()->action(RuleAction::sampleAction));
}

// A class that samples everything drops the sample match of its filter.
void sampleAllIgnoresMatch() {
   const Bench bench{};
   const Pello::Ptr<PolicyData> policy{attachedPolicy("p1")};
   const Class web{addClass(policy, ipv4(), 1, "web")};
   addSampleMatch(web, 5, 7, 4);
   addAction(web, sampleAll);
   CHECK(bench.helper->ignoreSampleData(web.data));
   CHECK_EQ(text(bench.helper->createPolicy(policy, ipv4())), "");
   RuleConfig::Ptr const rule{bench.config(policy)->ruleByIndex(0)};
   CHECK(!rule->ruleFilter()->sampleDataAndMask());
   CHECK(rule->ruleAction()->action(RuleAction::sampleAction));
   CHECK_EQ(count(actions(*rule->ruleAction())), 1);
}

// Filters that the walk would refuse, given to the rule builder directly.
void filtersBehindTheWalk() {
   const Bench bench{};
   const Pello::Ptr<PolicyData> policy{attachedPolicy("p1")};
   const Class web{addClass(policy, ipv4(), 1, "web")};
   addSource(web, "172.16.0.0/12");
   addSource(web, "10.0.0.0/8");
   addProtocols(web, 1, 255);
   Config::Ptr const config{bench.helper->createAclConfig(policy, ipv4())};
   RuleConfig::Ptr const earlier{config->ruleByNameIs(withFamily("web").c_str())};
   CHECK_EQ(bench.helper->addRules(ruleKey(policy, "web", ipv4()), policy, web.data, config, 4), 6);
   CHECK(config->ruleByIndex(4)->ruleFilter()->source() == prefix("10.0.0.0/8"));
   CHECK_EQ(config->ruleByIndex(4)->ruleFilter()->proto().value(), 6);
   CHECK_EQ(config->ruleByIndex(5)->ruleFilter()->proto().value(), 17);
   CHECK(!config->ruleByIndex(6));
   // The template takes the name of whatever rule had it, and goes with it.
   CHECK(!config->ruleByName(withFamily("web").c_str()));
   CHECK_EQ(text(earlier->name()), withFamily("web"));
}

// A helper that places no rules at all, but notes for which protocols it was asked.
class Placeless : public Helper {
 public:
   using Helper::Helper;

   std::uint32_t addRulesProtoField(const Pello::Ptr<PostcardTelemetryAclConfig>&,
                                    const Pello::Ptr<RuleConfig>&, const Pello::Ptr<const Filter>&,
                                    std::uint8_t proto, std::uint32_t nextRuleIndex) override {
      asked.push_back(proto);
      return nextRuleIndex;
   }

   std::vector<unsigned> asked{};
};

void protocolsAskedFor() {
   const auto helper = adopt(new Placeless{nullptr, nullptr});
   const Pello::Ptr<PolicyData> policy{attachedPolicy("p1")};
   const Class web{addClass(policy, ipv4(), 1, "web")};
   Config::Ptr const config{helper->createAclConfig(policy, ipv4())};
   CHECK_EQ(helper->addRules(ruleKey(policy, "web", ipv4()), policy, web.data, config, 9), 9);
   CHECK(helper->asked == std::vector<unsigned>{6, 17});
   CHECK_EQ(count(rulesByIndex(*config)), 0);
   CHECK_EQ(count(rulesByName(*config)), 0);
   helper->asked.clear();
   addProtocols(web, 17, 17);
   helper->addRules(ruleKey(policy, "web", ipv4()), policy, web.data, config, 9);
   CHECK(helper->asked == std::vector<unsigned>{17});
}

void classActions() {
   const Bench bench{};
   const Pello::Ptr<PolicyData> policy{attachedPolicy("p1")};
   const Class web{addClass(policy, ipv4(), 1, "web")};
   RuleConfig::Ptr const idle{ruleConfigFactory("idle")};
   bench.helper->updateRuleAction(web.data, idle);
   CHECK(idle->ruleAction());
   CHECK_EQ(count(actions(*idle->ruleAction())), 0);
   CHECK(bench.helper->ignoreSampleData(web.data));
   addAction(web, sample);
   addAction(web, sampleAll);
   addSetDscp(web, 46);
   CHECK(!bench.helper->ignoreSampleData(web.data));
   RuleConfig::Ptr const rule{ruleConfigFactory("busy")};
   bench.helper->updateRuleAction(web.data, rule);
   CHECK_EQ(count(actions(*rule->ruleAction())), 2);
   CHECK(rule->ruleAction()->action(RuleAction::sampleAction));
   CHECK(rule->ruleAction()->action(RuleAction::setDscpAction));
   CHECK(!rule->ruleAction()->action(RuleAction::policeAction));
   CHECK(rule->ruleAction()->dscpDataAndMask().isEq(DscpDataAndMask{0x2e, 0x3f}));
}

void dscpOfZero() {
   const Bench bench{};
   const Class web{addClass(attachedPolicy("p1"), ipv4(), 1, "web")};
   addSetDscp(web, 0);
   RuleConfig::Ptr const rule{ruleConfigFactory("zero")};
   bench.helper->updateRuleAction(web.data, rule);
   CHECK(rule->ruleAction()->action(RuleAction::setDscpAction));
   CHECK(rule->ruleAction()->dscpDataAndMask().isEq(DscpDataAndMask{0, 63}));
}

void ruleGeneration() {
   oneClass();
   orderOfPriorities();
   walkEndsAtFirstError();
   noRules();
   prefixesAndSampleMatch();
   sampleAllIgnoresMatch();
   filtersBehindTheWalk();
   protocolsAskedFor();
   classActions();
   dscpOfZero();
}

const Subject subject{"rule generation", ruleGeneration};

} // namespace
