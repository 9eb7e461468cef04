// The text of the show command, byte for byte: each case is a file in tests/golden/show.
#include "support/HelperRecords.h"
#include "support/PolicyRecords.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <sstream>
#include <unistd.h>

namespace OruPostcardTelemetry {
namespace {

using namespace TestSupport;

// What the command writes, through a file without a name.
std::string shown(const OruPostcardPolicyAclHelper& helper) {
   const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file{std::tmpfile(), &std::fclose};
   const int fd = fileno(file.get());
   helper.showPostcardAcl(static_cast<U32>(fd));
   std::string text(static_cast<std::size_t>(::lseek(fd, 0, SEEK_END)), '\0');
   EXPECT_EQ(::pread(fd, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
   return text;
}

void expectGolden(const std::string& text, const std::string& name) {
   const std::string path = std::string{POSTCARD_SOURCE_DIR "/tests/golden/show/"} + name + ".txt";
   std::ifstream file{path};
   ASSERT_TRUE(file) << path;
   std::ostringstream expected;
   expected << file.rdbuf();
   EXPECT_EQ(text, expected.str()) << path;
}

class Show : public testing::Test {
 protected:
   // A rule with the default filter and without actions, at the next index.
   Pello::Ptr<RuleConfig> rule(const char* name) {
      const auto made = config->ruleByNameIs(name);
      made->ruleFilterIs();
      made->ruleActionIs();
      config->ruleByIndexIs(static_cast<U32>(config->ruleByIndexs()), made);
      return made;
   }
   std::string text() const { return shown(*records.helper); }

   HelperRecords records;
   Pello::Ptr<PostcardTelemetryAclConfig> config = records.helper->aclConfigCollIs("edge-ipv4");
};

TEST(ShowOfNothing, writesNothingButItsTrace) {
   const HelperRecords records;
   const TraceCapture capture;
   EXPECT_EQ(shown(*records.helper), "");
   EXPECT_EQ(capture.lines(), std::vector<std::string>{"8 "});
   EXPECT_EQ(capture.traces().front().functionName, "showPostcardAcl");
}

TEST(ShowOfNothing, needsNoCapabilityRecord) {
   EXPECT_EQ(shown(*oruPostcardPolicyAclHelperFactory({}, {})), "");
}

// Without the record nothing says that hardware matches TCP flags.
TEST(ShowOfNothing, filtersWithoutACapabilityRecordShowNoTcpFlags) {
   const HelperRecords withoutTcpFlags{false};
   const auto bare = oruPostcardPolicyAclHelperFactory({}, {});
   for (const auto& helper : {withoutTcpFlags.helper, bare}) {
      const auto config = helper->aclConfigCollIs("edge-ipv4");
      for (const char* name : {"a", "b"}) {
         const auto rule = config->ruleByNameIs(name);
         rule->ruleFilterIs();
         rule->ruleActionIs();
         config->ruleByIndexIs(static_cast<U32>(config->ruleByIndexs()), rule);
      }
      config->ruleByName("b")->ruleFilter()->tcpFlagAndMaskIs(
            Classification::TcpFlagAndMask{2, 18});
      expectGolden(shown(*helper), "without-tcp-flags");
   }
}

TEST(ShowOfNothing, configurationsWithoutRulesNeedNoCapabilityRecord) {
   const auto helper = oruPostcardPolicyAclHelperFactory({}, {});
   const auto config = helper->aclConfigCollIs("edge-ipv4");
   expectGolden(shown(*helper), "empty");
   config->ruleByIndexIs(0, config->ruleByNameIs("bare"));
   const std::string text = shown(*helper);
   EXPECT_NE(text.find("Rule Name:             bare\nRule Filter:\nRule Action:\n    Actions:\n"),
             std::string::npos)
         << text;
}

TEST_F(Show, emptyConfiguration) {
   config->aclConfigStatusIs();
   expectGolden(text(), "empty");
}

TEST_F(Show, configurationWithoutStatusChildReadsTheSame) {
   expectGolden(text(), "empty");
}

TEST_F(Show, flagsInterfacesAndStatuses) {
   config->aclTypeIs(Acl::AclType{1});
   config->programmedPolicyIs(true);
   config->rulesClientUpdatedIs(true);
   config->policyIntfIs(Orlix::IntfId{"Ethernet1"});
   const auto status = config->aclConfigStatusIs();
   status->statusInOrderIs(3, "table full: 3 of 2 entries");
   status->statusInOrderIs(0, "ok");
   status->statusInOrderIs(10, "%s %n");
   status->statusInOrderIs(2, "");
   expectGolden(text(), "statuses");
}

TEST_F(Show, interfacesAreOneLineEach) {
   for (const char* name : {"Ethernet1", "Ethernet2", "Port-Channel100"}) {
      config->policyIntfIs(Orlix::IntfId{name});
   }
   const std::string all = text();
   std::string expected;
   for (const auto& intf : config->policyIntf()) {
      expected += "    " + intf.stringValue().str() + "\n";
   }
   EXPECT_NE(all.find("\nPolicy Interfaces:\n" + expected + "Programmed Policy:"),
             std::string::npos)
         << all;
}

TEST_F(Show, allFilterLines) {
   RuleFilter& filter = *rule("web-ipv4-tcp")->ruleFilter();
   filter.sourceIs(Orlix::IpGenPrefix{"10.0.0.0/8"});
   filter.destinationIs(Orlix::IpGenPrefix{"192.0.2.1/32"});
   filter.sportDataMaskValidIs(true);
   filter.sportDataMaskIs({1024, 64512});
   filter.dportDataMaskValidIs(true);
   filter.dportDataMaskIs({0, 0});
   filter.tcpFlagAndMaskIs(Classification::TcpFlagAndMask{0, 255});
   filter.protoIs(Protocol{U8{255}});
   const auto sample = filter.sampleDataAndMaskIs("sampleDataAndMask");
   sample->dataIs(4294967295U);
   sample->maskIs(2147483648U);
   config->ruleByName("web-ipv4-tcp")->ruleAction()->actionIs(RuleAction::sampleAction);
   expectGolden(text(), "all-filter-lines");
}

TEST_F(Show, noFilterLineConfigured) {
   RuleFilter& filter = *rule("bare")->ruleFilter();
   filter.sourceIs({});
   filter.destinationIs({});
   filter.sportDataMaskIs({1, 1});
   filter.dportDataMaskIs({1, 1});
   filter.tcpFlagAndMaskIs(Classification::TcpFlagAndMask{255, 0});
   filter.protoIs(Protocol{U8{17}});
   expectGolden(text(), "nothing-configured");
}

TEST_F(Show, hardwareWithoutTcpFlagsHasNoSuchLine) {
   records.hwCapability->tcpFlagsSupportedIs(false);
   rule("a");
   rule("b")->ruleFilter()->tcpFlagAndMaskIs(Classification::TcpFlagAndMask{2, 18});
   expectGolden(text(), "without-tcp-flags");
}

TEST_F(Show, ipv6Prefixes) {
   config->aclTypeIs(Acl::AclType{1});
   RuleFilter& filter = *rule("web-ipv6-udp")->ruleFilter();
   filter.sourceIs(Orlix::IpGenPrefix{"2001:db8::/32"});
   filter.destinationIs(Orlix::IpGenPrefix{"::1/128"});
   expectGolden(text(), "ipv6");
}

TEST_F(Show, missingFilterAndAction) {
   const auto bare = config->ruleByNameIs("bare");
   config->ruleByIndexIs(0, bare);
   const auto filterOnly = config->ruleByNameIs("filter-only");
   filterOnly->ruleFilterIs();
   config->ruleByIndexIs(1, filterOnly);
   const auto actionOnly = config->ruleByNameIs("action-only");
   actionOnly->ruleActionIs()->actionIs(RuleAction::sampleAction);
   config->ruleByIndexIs(2, actionOnly);
   expectGolden(text(), "missing-filter-and-action");
}

TEST_F(Show, theDscpBlockFollowsEveryActionOfARuleThatSetsIt) {
   RuleAction& both = *rule("both")->ruleAction();
   both.actionIs(RuleAction::setDscpAction);
   both.actionIs(RuleAction::sampleAction);
   both.dscpDataAndMaskIs(DscpDataAndMask{Orlix::DscpValue{46}, 0x3F});
   rule("dscp")->ruleAction()->actionIs(RuleAction::setDscpAction);
   RuleAction& police = *rule("police")->ruleAction();
   police.actionIs(RuleAction::policeAction);
   rule("sample")->ruleAction()->actionIs(RuleAction::sampleAction);
   expectGolden(text(), "actions");
}

TEST_F(Show, anActionThatHasNoNameHasNoLine) {
   RuleAction& action = *rule("a")->ruleAction();
   for (const int number : {3, 64, 200, 255}) {
      action.actionIs(static_cast<RuleAction::Action>(number));
   }
   const std::string all = text();
   EXPECT_NE(all.find("Rule Action:\n    Actions:\n\nPolicy Interfaces:"), std::string::npos)
         << all;
}

// It has the DSCP block all the same.
TEST_F(Show, anActionThatHasNoNameBesideTheDscp) {
   RuleAction& action = *rule("a")->ruleAction();
   action.actionIs(static_cast<RuleAction::Action>(3));
   action.actionIs(RuleAction::setDscpAction);
   std::string expected = "Rule Action:\n    Actions:\n";
   for (const auto& member : action.action()) {
      expected += member == RuleAction::setDscpAction ? "       setDscpAction\n" : "";
      expected += "    DSCP:\n"
                  "       Data:           Min: 0      Max: 63\n"
                  "       Mask:           Min: 0      Max: 63\n";
   }
   ASSERT_EQ(action.actions(), 2U);
   const std::string all = text();
   EXPECT_NE(all.find(expected + "\nPolicy Interfaces:"), std::string::npos) << all;
}

TEST_F(Show, rulesStandInTheOrderOfTheirIndexes) {
   config->ruleByIndexIs(70000, config->ruleByNameIs("last"));
   config->ruleByIndexIs(3, config->ruleByNameIs("twice"));
   config->ruleByIndexIs(2, config->ruleByNameIs("first"));
   config->ruleByIndexIs(4, config->ruleByNameIs("twice"));
   config->ruleByNameIs("only by name");
   expectGolden(text(), "order");
}

// A policy as the helper makes it, with two configurations separated by two lines.
TEST(ShowOfPolicies, twoFamilies) {
   HelperRecords records;
   PolicyRecords policy{"edge"};
   policy.intf4("Ethernet1").intf6("Ethernet1");
   ClassRecords web = policy.classMap("web").sample().setDscp(46);
   FilterRecords filter = web.filter4().source("10.0.0.0/8").sampleMatch(18, 255);
   filter.tcp().ports({{1024, 2047}}, {{80, 80}}).flag(2, 18);
   web.filter6().udp();
   records.helper->createPolicy(policy.data(), PolicyMap::matchIpAccessGroup());
   const std::string four = shown(*records.helper);
   expectGolden(four, "policy-ipv4");
   records.helper->createPolicy(policy.data(), PolicyMap::matchIpv6AccessGroup());
   const std::string both = shown(*records.helper);
   records.helper->deleteAclConfig(policy.data(), PolicyMap::matchIpAccessGroup());
   const std::string six = shown(*records.helper);
   expectGolden(six, "policy-ipv6");
   EXPECT_TRUE(both == four + six || both == six + four);
}

TEST_F(Show, arrivesThroughAPipeAsItIsWritten) {
   int ends[2];
   ASSERT_EQ(::pipe(ends), 0);
   records.helper->showPostcardAcl(static_cast<U32>(ends[1]));
   ::close(ends[1]);
   std::string received(65536, '\0');
   std::size_t size = 0;
   while (const ssize_t count = ::read(ends[0], received.data() + size, received.size() - size)) {
      ASSERT_GT(count, 0);
      size += static_cast<std::size_t>(count);
   }
   ::close(ends[0]);
   EXPECT_EQ(received.substr(0, size), text());
}

TEST_F(Show, descriptorsThatCannotBeWrittenAreIgnored) {
   rule("a");
   const std::string before = text();
   const int readOnly = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
   const int closed = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
   ::close(closed);
   for (const int fd : {closed, readOnly, -1}) {
      records.helper->showPostcardAcl(static_cast<U32>(fd));
   }
   ::close(readOnly);
   EXPECT_EQ(text(), before);
}

TEST_F(Show, onlyReads) {
   rule("a");
   const auto filter = config->ruleByName("a")->ruleFilter();
   std::size_t changes = 0;
   const auto subscription =
         records.helper->publisher()->subscribe([&](const Pello::Change&) { ++changes; });
   const std::string first = text();
   EXPECT_EQ(text(), first);
   EXPECT_EQ(changes, 0U);
   EXPECT_EQ(config->aclConfigStatus(), nullptr);
   EXPECT_EQ(filter->sampleDataAndMask(), nullptr);
}

} // namespace
} // namespace OruPostcardTelemetry
