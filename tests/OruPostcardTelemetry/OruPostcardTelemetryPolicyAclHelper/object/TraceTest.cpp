// What the helper traces while it makes a policy: every line, in order, in the text trace and in
// the ring. A line is "level operation: text", and "8 operation" for an entry into an operation,
// which has no text.
#include "Ringlog/Ring.h"
#include "support/HelperRecords.h"
#include "support/PolicyRecords.h"
#include "support/RingReader.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

namespace OruPostcardTelemetry {
namespace {

using PolicyMap::ActionType;
using PolicyMap::matchIpAccessGroup;
using namespace TestSupport;
using Lines = std::vector<std::string>;

constexpr std::string_view source = "OruPostcardTelemetryPolicyAclHelper";

std::string shown(unsigned level, const std::string& text, const std::string& function) {
   return std::to_string(level) + " " + function + (text.empty() ? "" : ": " + text);
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
      R"(8 createPolicy
9 createPolicy: Policy : edge/card 3, Match Type : 0
8 createAclConfig
8 getAclConfigKey
9 getAclConfigKey: Policy : edge/card 3, Match Option : matchIpAccessGroup
5 getAclConfigKey: Policy : edge, Acl Type : ipv4
5 getAclConfigKey: Acl Config Key : edge-ipv4
5 createPolicy: Adding interface from intf4
8 updateIntfInAclConfig
9 updateIntfInAclConfig: Acl Config Key : edge-ipv4, Interface : Ethernet1, Remove Interface : false
5 updateIntfInAclConfig: Adding Ethernet1 to aclConfig->policyIntf()
8 updateRulesInAclConfig
8 getAclConfigKey
9 getAclConfigKey: Policy : edge/card 3, Match Option : matchIpAccessGroup
5 getAclConfigKey: Policy : edge, Acl Type : ipv4
5 getAclConfigKey: Acl Config Key : edge-ipv4
5 updateRulesInAclConfig: Class Map : web
8 checkFilter
8 checkUnsupportedFields
8 checkUnsupportedActions
8 addRules
5 addRules: Acl Rule Key : PolicyMap::AclRuleKey(policyMapKey=PolicyMap::PolicyMapSmKey(name="edge", scope="card 3"), className="web", aclName="acl-4", sequence=1, matchOption='matchIpAccessGroup')
5 addRules: Class : web, Acl Type : ipv4
5 addRules: Source Prefix : 10.0.0.0/8
5 addRules: Destination Prefix : 192.0.2.0/24
5 addRules: Sample data : 0x12 Sample Mask : 0xff Sample Version : 4 )"
      "\n"
      R"(9 ignoreSampleData: Class Name : web
9 ignoreSampleData: Sample Action Present : true
8 updateRuleAction
9 updateRuleAction: Update action for Class : web
5 updateRuleAction: Setting action Sample )"
      "\n"
      R"(5 addRules: Creating rules for TCP protocol
8 addRulesProtoField
9 addRulesProtoField: Rule Name : web-ipv4, Proto : 0x6, NextRuleIndex : 0
5 addRulesProtoField: Creating Additional Rules : web-ipv4-tcp
8 addRulesPortField
5 addRulesPortField: Structured Filter with Proto fields, Sports : 1, Dports : 1
5 addRulesPortField: srcVect.size() : 1 dstVect.size() : 1
5 addRulesPortField: Sport Data : 0x400, Mask : 0xffff
5 addRulesPortField: Dport Data : 0x50, Mask : 0xffff
9 addRulesL4PortDataMask: Rule Name : web-ipv4-tcp, Sport Valid : true, Sport : 0x400, Dport Valid : true, Dport : 0x50, NextRuleIndex : 0
5 ruleNameL4Port: Rule Name : web-ipv4-tcp-SportData-1024
5 ruleNameL4Port: Rule Name : web-ipv4-tcp-SportData-1024-SportMask-65535
5 ruleNameL4Port: Rule Name : web-ipv4-tcp-SportData-1024-SportMask-65535-DportData-80
5 ruleNameL4Port: Rule Name : web-ipv4-tcp-SportData-1024-SportMask-65535-DportData-80-DportMask-65535
5 addRulesL4PortDataMask: Creating additional ruleConfig : web-ipv4-tcp-SportData-1024-SportMask-65535-DportData-80-DportMask-65535
9 addRulesTcpFlagField: Rule Name : web-ipv4-tcp-SportData-1024-SportMask-65535-DportData-80-DportMask-65535, NextRuleIndex : 0
9 addRulesTcpFlagField: Creating addtional ruleConfig: web-ipv4-tcp-SportData-1024-SportMask-65535-DportData-80-DportMask-65535-tcpFlag-2-tcpFlagMask-18 for tcpFlag 2 tcpMask 18
5 addRulesTcpFlagField: Deleting Rule : web-ipv4-tcp-SportData-1024-SportMask-65535-DportData-80-DportMask-65535
5 addRulesProtoField: Deleting Rule : web-ipv4-tcp
5 addRules: Creating rules for UDP protocol
8 addRulesProtoField
9 addRulesProtoField: Rule Name : web-ipv4, Proto : 0x11, NextRuleIndex : 1
5 addRulesProtoField: Creating Additional Rules : web-ipv4-udp
5 addRulesProtoField: Structured Filter with no proto fields
5 addRules: Deleting Rule : web-ipv4)";

TEST_F(Traces, creationOfAClassWithEverything) {
   everything();
   const TraceCapture capture;
   EXPECT_EQ(records.helper->createPolicy(policy.data(), matchIpAccessGroup()), "");
   EXPECT_EQ(helperLines(capture), split(creationOfEverything));
}

// The last traces in the ring, as many as asked for, of all sources; `site` shows where they come
// from.
template <class Site>
Lines lastInRing(std::size_t count, Site site) {
   const TestSupport::RingReader reader{Ringlog::snapshot()};
   const auto& records = reader.records();
   Lines lines;
   for (std::size_t i = records.size() - std::min(count, records.size()); i < records.size(); ++i) {
      const Ringlog::Descriptor& from = *records[i].site;
      lines.push_back(site(from.source, from.className) +
                      shown(from.level, records[i].text, from.functionName));
   }
   return lines;
}

std::string sourceAndClass(const std::string& from, const std::string& className) {
   return from + " " + className + " ";
}

TEST_F(Traces, theRingHoldsTheSameSequence) {
   everything();
   const TraceCapture capture;
   records.helper->createPolicy(policy.data(), matchIpAccessGroup());
   Lines text;
   for (const CapturedTrace& trace : capture.traces()) {
      text.push_back(sourceAndClass(trace.source, trace.className) +
                     shown(trace.level, trace.text, trace.functionName));
   }
   EXPECT_EQ(lastInRing(text.size(), sourceAndClass), text);
   Lines ring = lastInRing(text.size(), [](const std::string& from, const std::string&) {
      return std::string{from == source ? "" : "another source's "};
   });
   std::erase_if(ring, [](const std::string& line) { return line.starts_with("another"); });
   EXPECT_EQ(ring, split(creationOfEverything));
}

TEST_F(Traces, theRingIsWrittenWhileTheTextTraceIsOff) {
   everything();
   records.helper->createPolicy(policy.data(), matchIpAccessGroup());
   const TestSupport::RingReader reader{Ringlog::snapshot()};
   ASSERT_FALSE(reader.records().empty());
   EXPECT_EQ(reader.records().back().text, "Deleting Rule : web-ipv4");
   EXPECT_EQ(reader.records().back().site->format, "Deleting Rule : {}");
   EXPECT_EQ(reader.records().back().site->functionName, "addRules");
}

TEST_F(Traces, createPolicyOfARefusedPolicy) {
   policy.classMap("web").filter4().data()->fragmentsIs();
   const TraceCapture capture;
   const std::string error = "Unsupported match(es): 'Fragments', in configuration";
   const std::string classMap = "5 updateRulesInAclConfig: Class Map : web";
   EXPECT_EQ(records.helper->createPolicy(policy.data(), matchIpAccessGroup()), error);
   Lines lines = helperLines(capture);
   lines.erase(lines.begin(), std::ranges::find(lines, classMap));
   EXPECT_EQ(lines, (Lines{classMap, "8 checkFilter", "8 checkUnsupportedFields",
                           "0 checkUnsupportedFields: Error set to : " + error,
                           "0 updateRulesInAclConfig: Policy : "
                           "PolicyMap::PolicyMapSmKey(name=\"edge\", scope=\"card 3\"), "
                           "Acl Type : ipv4, Class Map : web, Error " +
                                 error,
                           "5 createPolicy: Original Return Status: " + error,
                           "5 createPolicy: Modified Return Status: " + error}));
}

TEST_F(Traces, createPolicyOfARefusedAction) {
   policy.classMap("web").action(ActionType::drop).filter4();
   const TraceCapture capture;
   const std::string error = "Unsupported action(s): 'drop', in configuration";
   EXPECT_EQ(records.helper->createPolicy(policy.data(), matchIpAccessGroup()), error);
   Lines lines = helperLines(capture);
   lines.erase(lines.begin(), std::ranges::find(lines, "8 checkUnsupportedActions"));
   EXPECT_EQ(lines, (Lines{"8 checkUnsupportedActions",
                           "0 checkUnsupportedActions: Error set to : " + error,
                           "0 updateRulesInAclConfig: Policy : "
                           "PolicyMap::PolicyMapSmKey(name=\"edge\", scope=\"card 3\"), "
                           "Acl Type : ipv4, Class Map : web, Error " +
                                 error,
                           "5 createPolicy: Original Return Status: " + error,
                           "5 createPolicy: Modified Return Status: " + error}));
}

// Two operations that do the same do it under their own names, in the ring too.
TEST_F(Traces, recreationIsToldFromCreation) {
   policy.noRules(matchIpAccessGroup());
   for (const char* operation : {"createPolicy", "recreatePolicy"}) {
      const TraceCapture capture;
      std::string_view{operation} == "createPolicy"
            ? records.helper->createPolicy(policy.data(), matchIpAccessGroup())
            : records.helper->recreatePolicy(policy.data(), matchIpAccessGroup());
      const std::string begin = std::string{"5 "} + operation + ": ";
      const Lines expected{
            begin + "Adding interface from intf4",
            begin + "Original Return Status: No rules configured in policy  edge/card 3",
            begin + "Modified Return Status: "};
      const auto isExpected = [&](const std::string& line) {
         return std::ranges::find(expected, line) != expected.end();
      };
      Lines text = helperLines(capture);
      std::erase_if(text, std::not_fn(isExpected));
      EXPECT_EQ(text, expected);
      Lines ring = lastInRing(capture.traces().size(),
                              [](const std::string&, const std::string&) { return std::string{}; });
      std::erase_if(ring, std::not_fn(isExpected));
      EXPECT_EQ(ring, expected);
   }
}

TEST_F(Traces, createPolicyWithoutRules) {
   policy.noRules(matchIpAccessGroup());
   const TraceCapture capture;
   EXPECT_EQ(records.helper->createPolicy(policy.data(), matchIpAccessGroup()), "");
   const Lines lines = helperLines(capture);
   EXPECT_EQ(
         (Lines{lines.end() - 3, lines.end()}),
         (Lines{
               "0 updateRulesInAclConfig: Error: No rules configured in policy  edge/card 3",
               "5 createPolicy: Original Return Status: No rules configured in policy  edge/card 3",
               "5 createPolicy: Modified Return Status: "}));
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
             (Lines{"8 deleteAclConfig", "8 getAclConfigKey",
                    "9 getAclConfigKey: Policy : edge/card 3, Match Option : matchIpAccessGroup",
                    "5 getAclConfigKey: Policy : edge, Acl Type : ipv4",
                    "5 getAclConfigKey: Acl Config Key : edge-ipv4"}));
}

TEST_F(Traces, anInterfaceEntersAndLeaves) {
   const auto config = records.helper->aclConfigCollIs("k");
   const Orlix::IntfId intf{"Ethernet1"};
   const TraceCapture capture;
   for (const bool remove : {false, false, true, true}) {
      records.helper->updateIntfInAclConfig(config, intf, remove);
      EXPECT_EQ(config->policyIntfHas(intf), !remove);
   }
   const Lines enter{"8 updateIntfInAclConfig",
                     "9 updateIntfInAclConfig: Acl Config Key : k, Interface : Ethernet1, Remove "
                     "Interface : false",
                     "5 updateIntfInAclConfig: Adding Ethernet1 to aclConfig->policyIntf()"};
   const Lines leave{"8 updateIntfInAclConfig",
                     "9 updateIntfInAclConfig: Acl Config Key : k, Interface : Ethernet1, Remove "
                     "Interface : true",
                     "5 updateIntfInAclConfig: Removing Ethernet1 from aclConfig->policyIntf()"};
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
   EXPECT_EQ(helperLines(capture), (Lines{"8 hwInit", "8 showPostcardAcl"}));
   for (const CapturedTrace& trace : capture.traces()) {
      EXPECT_EQ(trace.className, "OruPostcardPolicyAclHelper");
   }
}

} // namespace
} // namespace OruPostcardTelemetry
