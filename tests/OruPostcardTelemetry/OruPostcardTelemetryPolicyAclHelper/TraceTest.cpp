// What the helper traces while it makes a policy: every line, in order, in the text trace and in
// the ring. An entry into an operation, which has no text, is shown here by the operation's name.
#include "Ringlog/Reader.h"
#include "Ringlog/Ring.h"
#include "support/HelperRecords.h"
#include "support/PolicyRecords.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

namespace OruPostcardTelemetry {
namespace {

using PolicyMap::ActionType;
using PolicyMap::matchIpAccessGroup;
using namespace TestSupport;
using Lines = std::vector<std::string>;

constexpr std::string_view source = "OruPostcardTelemetryPolicyAclHelper";

std::string shown(unsigned level, const std::string& text, const std::string& function) {
   return std::to_string(level) + " " + (text.empty() ? "-> " + function : text);
}

// The helper's own traces; those of the data model are left out.
Lines helperLines(const TraceCapture& capture) {
   Lines lines;
   for (const CapturedTrace& trace : capture.traces()) {
      if (trace.source == source) {
         lines.push_back(shown(trace.level, trace.text, trace.functionName));
      }
   }
   return lines;
}

Lines split(std::string_view text) {
   Lines lines;
   while (!text.empty()) {
      const std::size_t end = std::min(text.find('\n'), text.size());
      lines.emplace_back(text.substr(0, end));
      text.remove_prefix(std::min(end + 1, text.size()));
   }
   return lines;
}

class Traces : public testing::Test {
 protected:
   // A class with everything that a rule can express.
   void everything() {
      ClassRecords web = policy.classMap("web").sample();
      FilterRecords filter = web.filter4();
      filter.source("10.0.0.0/8").destination("192.0.2.0/24").sampleMatch(0x12, 0xff, 4);
      filter.tcp().ports({{1024, 1024}}, {{80, 80}}).flag(2, 18);
      filter.udp();
   }
   HelperRecords records;
   PolicyRecords policy = PolicyRecords{"edge", "card 3"}.intf4("Ethernet1");
};

constexpr std::string_view creationOfEverything =
      R"(8 -> createPolicy
9 Policy : edge/card 3, Match Type : 0
8 -> createAclConfig
8 -> getAclConfigKey
9 Policy : edge/card 3, Match Option : matchIpAccessGroup
5 Policy : edge, Acl Type : ipv4
5 Acl Config Key : edge-ipv4
5 Adding interface from intf4
8 -> updateIntfInAclConfig
9 Acl Config Key : edge-ipv4, Interface : Ethernet1, Remove Interface : false
5 Adding Ethernet1 to aclConfig->policyIntf()
8 -> updateRulesInAclConfig
8 -> getAclConfigKey
9 Policy : edge/card 3, Match Option : matchIpAccessGroup
5 Policy : edge, Acl Type : ipv4
5 Acl Config Key : edge-ipv4
5 Class Map : web
8 -> checkFilter
8 -> checkUnsupportedFields
8 -> checkUnsupportedActions
8 -> addRules
5 Acl Rule Key : PolicyMap::AclRuleKey(policyMapKey=PolicyMap::PolicyMapSmKey(name="edge", scope="card 3"), className="web", aclName="acl-4", sequence=1, matchOption='matchIpAccessGroup')
5 Class : web, Acl Type : ipv4
5 Source Prefix : 10.0.0.0/8
5 Destination Prefix : 192.0.2.0/24
5 Sample data : 0x12 Sample Mask : 0xff Sample Version : 4 )"
      "\n"
      R"(9 Class Name : web
9 Sample Action Present : true
8 -> updateRuleAction
9 Update action for Class : web
5 Setting action Sample )"
      "\n"
      R"(5 Creating rules for TCP protocol
8 -> addRulesProtoField
9 Rule Name : web-ipv4, Proto : 0x6, NextRuleIndex : 0
5 Creating Additional Rules : web-ipv4-tcp
8 -> addRulesPortField
5 Structured Filter with Proto fields, Sports : 1, Dports : 1
5 srcVect.size() : 1 dstVect.size() : 1
5 Sport Data : 0x400, Mask : 0xffff
5 Dport Data : 0x50, Mask : 0xffff
9 Rule Name : web-ipv4-tcp, Sport Valid : true, Sport : 0x400, Dport Valid : true, Dport : 0x50, NextRuleIndex : 0
5 Rule Name : web-ipv4-tcp-SportData-1024
5 Rule Name : web-ipv4-tcp-SportData-1024-SportMask-65535
5 Rule Name : web-ipv4-tcp-SportData-1024-SportMask-65535-DportData-80
5 Rule Name : web-ipv4-tcp-SportData-1024-SportMask-65535-DportData-80-DportMask-65535
5 Creating additional ruleConfig : web-ipv4-tcp-SportData-1024-SportMask-65535-DportData-80-DportMask-65535
9 Rule Name : web-ipv4-tcp-SportData-1024-SportMask-65535-DportData-80-DportMask-65535, NextRuleIndex : 0
9 Creating addtional ruleConfig: web-ipv4-tcp-SportData-1024-SportMask-65535-DportData-80-DportMask-65535-tcpFlag-2-tcpFlagMask-18 for tcpFlag 2 tcpMask 18
5 Deleting Rule : web-ipv4-tcp-SportData-1024-SportMask-65535-DportData-80-DportMask-65535
5 Deleting Rule : web-ipv4-tcp
5 Creating rules for UDP protocol
8 -> addRulesProtoField
9 Rule Name : web-ipv4, Proto : 0x11, NextRuleIndex : 1
5 Creating Additional Rules : web-ipv4-udp
5 Structured Filter with no proto fields
5 Deleting Rule : web-ipv4)";

TEST_F(Traces, creationOfAClassWithEverything) {
   everything();
   const TraceCapture capture;
   EXPECT_EQ(records.helper->createPolicy(policy.data(), matchIpAccessGroup()), "");
   EXPECT_EQ(helperLines(capture), split(creationOfEverything));
}

TEST_F(Traces, theRingHoldsTheSameSequence) {
   everything();
   const TraceCapture capture;
   records.helper->createPolicy(policy.data(), matchIpAccessGroup());
   Lines text;
   for (const CapturedTrace& trace : capture.traces()) {
      text.push_back(trace.source + " " + trace.className + "::" + trace.functionName + " " +
                     shown(trace.level, trace.text, trace.functionName));
   }
   const Ringlog::Reader reader{Ringlog::snapshot()};
   ASSERT_GE(reader.records().size(), text.size());
   Lines ring;
   for (std::size_t i = reader.records().size() - text.size(); i < reader.records().size(); ++i) {
      const Ringlog::Record& record = reader.records()[i];
      ring.push_back(record.site->source + " " + record.site->className +
                     "::" + record.site->functionName + " " +
                     shown(record.site->level, record.text, record.site->functionName));
   }
   EXPECT_EQ(ring, text);
}

TEST_F(Traces, theRingIsWrittenWhileTheTextTraceIsOff) {
   everything();
   records.helper->createPolicy(policy.data(), matchIpAccessGroup());
   const Ringlog::Reader reader{Ringlog::snapshot()};
   ASSERT_FALSE(reader.records().empty());
   EXPECT_EQ(reader.records().back().text, "Deleting Rule : web-ipv4");
   EXPECT_EQ(reader.records().back().site->format, "Deleting Rule : {}");
}

TEST_F(Traces, createPolicyOfARefusedPolicy) {
   policy.classMap("web").filter4().data()->fragmentsIs();
   const TraceCapture capture;
   const std::string error = "Unsupported match(es): 'Fragments', in configuration";
   EXPECT_EQ(records.helper->createPolicy(policy.data(), matchIpAccessGroup()), error);
   Lines lines = helperLines(capture);
   lines.erase(lines.begin(), std::ranges::find(lines, "5 Class Map : web"));
   EXPECT_EQ(lines,
             (Lines{"5 Class Map : web", "8 -> checkFilter", "8 -> checkUnsupportedFields",
                    "0 Error set to : " + error,
                    "0 Policy : PolicyMap::PolicyMapSmKey(name=\"edge\", scope=\"card 3\"), "
                    "Acl Type : ipv4, Class Map : web, Error " +
                          error,
                    "5 Original Return Status: " + error, "5 Modified Return Status: " + error}));
}

TEST_F(Traces, createPolicyOfARefusedAction) {
   policy.classMap("web").action(ActionType::drop).filter4();
   const TraceCapture capture;
   const std::string error = "Unsupported action(s): 'drop', in configuration";
   EXPECT_EQ(records.helper->createPolicy(policy.data(), matchIpAccessGroup()), error);
   Lines lines = helperLines(capture);
   lines.erase(lines.begin(), std::ranges::find(lines, "8 -> checkUnsupportedActions"));
   EXPECT_EQ(lines,
             (Lines{"8 -> checkUnsupportedActions", "0 Error set to : " + error,
                    "0 Policy : PolicyMap::PolicyMapSmKey(name=\"edge\", scope=\"card 3\"), "
                    "Acl Type : ipv4, Class Map : web, Error " +
                          error,
                    "5 Original Return Status: " + error, "5 Modified Return Status: " + error}));
}

TEST_F(Traces, createPolicyWithoutRules) {
   policy.noRules(matchIpAccessGroup());
   const TraceCapture capture;
   EXPECT_EQ(records.helper->createPolicy(policy.data(), matchIpAccessGroup()), "");
   const Lines lines = helperLines(capture);
   EXPECT_EQ((Lines{lines.end() - 3, lines.end()}),
             (Lines{"0 Error: No rules configured in policy  edge/card 3",
                    "5 Original Return Status: No rules configured in policy  edge/card 3",
                    "5 Modified Return Status: "}));
}

TEST_F(Traces, ipv6InterfacesAreAnnounced) {
   policy.intf6("Ethernet2").classMap("web").filter6();
   const TraceCapture capture;
   records.helper->createPolicy(policy.data(), PolicyMap::matchIpv6AccessGroup());
   EXPECT_EQ(capture.count("5 Adding interface from intf6"), 1U);
   EXPECT_EQ(capture.count("5 Adding interface from intf4"), 0U);
   EXPECT_EQ(capture.count("5 Adding Ethernet2 to aclConfig->policyIntf()"), 1U);
   EXPECT_EQ(capture.count("5 Adding Ethernet1 to aclConfig->policyIntf()"), 0U);
   EXPECT_EQ(capture.count("9 Policy : edge/card 3, Match Type : 1"), 1U);
}

TEST_F(Traces, removalOfAConfiguration) {
   records.helper->createAclConfig(policy.data(), matchIpAccessGroup());
   const TraceCapture capture;
   records.helper->deleteAclConfig(policy.data(), matchIpAccessGroup());
   EXPECT_EQ(helperLines(capture),
             (Lines{"8 -> deleteAclConfig", "8 -> getAclConfigKey",
                    "9 Policy : edge/card 3, Match Option : "
                    "matchIpAccessGroup",
                    "5 Policy : edge, Acl Type : ipv4", "5 Acl Config Key : edge-ipv4"}));
}

TEST_F(Traces, anInterfaceEntersAndLeaves) {
   const auto config = records.helper->aclConfigCollIs("k");
   const Orlix::IntfId intf{"Ethernet1"};
   const TraceCapture capture;
   for (const bool remove : {false, false, true, true}) {
      records.helper->updateIntfInAclConfig(config, intf, remove);
      EXPECT_EQ(config->policyIntfHas(intf), !remove);
   }
   const Lines enter{"8 -> updateIntfInAclConfig",
                     "9 Acl Config Key : k, Interface : Ethernet1, Remove Interface : false",
                     "5 Adding Ethernet1 to aclConfig->policyIntf()"};
   const Lines leave{"8 -> updateIntfInAclConfig",
                     "9 Acl Config Key : k, Interface : Ethernet1, Remove Interface : true",
                     "5 Removing Ethernet1 from aclConfig->policyIntf()"};
   Lines expected;
   for (const Lines* lines : {&enter, &enter, &leave, &leave}) {
      expected.insert(expected.end(), lines->begin(), lines->end());
   }
   EXPECT_EQ(helperLines(capture), expected);
}

TEST_F(Traces, hwInitAndShowTraceTheirEntries) {
   const TraceCapture capture;
   records.helper->hwInit();
   records.helper->showPostcardAcl(0);
   EXPECT_EQ(helperLines(capture), (Lines{"8 -> hwInit", "8 -> showPostcardAcl"}));
   for (const CapturedTrace& trace : capture.traces()) {
      EXPECT_EQ(trace.className, "OruPostcardPolicyAclHelper");
   }
}

} // namespace
} // namespace OruPostcardTelemetry
