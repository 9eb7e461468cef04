// `refusedClasses` against the helper itself: for every key that rules cannot express, alone and
// together with others, and for random classes.
#include "postcard/policy/RefusedClasses.h"

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Helper.h"
#include "postcard/policy/PolicyBuilder.h"
#include "postcard/policy/RuleCount.h"
#include "postcard/policy/file/PolicyFileFrames.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <rapidcheck.h>
#include <string>
#include <vector>

namespace Postcard::Policy {
namespace {

using File::Frame;
using File::framed;
using File::LoadResult;
using File::parsePolicyText;
using Helper = OruPostcardTelemetry::OruPostcardPolicyAclHelper;

// Why the helper refuses the policy; empty when it does not.
std::string helperSays(const Policy& policy, Family family, const Hardware& hardware) {
   const Pello::Ptr<Helper> helper{
         new Helper{OruPostcardTelemetry::postcardTelemetryRulesClientSmConfigFactory(),
                    buildHwCapability(hardware)}};
   helper->hwInit();
   return helper->createPolicy(buildPolicy(policy), matchOptionOf(family)).str();
}

// "CLASS@LINE:COLUMN PATH@LINE:COLUMN …", a line per class.
std::string linesOf(const std::vector<RefusedClass>& classes) {
   std::string lines;
   for (const RefusedClass& refused : classes) {
      const Name& name = refused.item->name;
      lines += fmt::format("{}@{}:{}", name.text, name.location.line, name.location.column);
      for (const UnsupportedKey& key : refused.keys) {
         lines += fmt::format(" {}@{}:{}", key.path, key.location.line, key.location.column);
      }
      lines += "\n";
   }
   return lines;
}

// What the helper's message says about a policy whose only class is `item`.
std::string helperSaysOfClass(const Policy& policy, const Class& item, Family family,
                              const Hardware& hardware) {
   Policy one = policy;
   one.classes = {item};
   return helperSays(one, family, hardware);
}

// Whether the function and the helper agree on the policy as a whole, on the class at which the
// helper's walk ends, and on every class alone.
bool agree(const Policy& policy, Family family, const Hardware& hardware) {
   const auto refused = refusedClasses(policy, family, hardware);
   const std::string message = helperSays(policy, family, hardware);
   bool same = message.empty() == refused.empty();
   same = same && (refused.empty() ||
                   message == helperSaysOfClass(policy, *refused[0].item, family, hardware));
   for (const Class& item : policy.classes) {
      const bool listed = std::ranges::find(refused, &item, &RefusedClass::item) != refused.end();
      same = same && helperSaysOfClass(policy, item, family, hardware).empty() == !listed;
   }
   return same;
}

struct Row {
   Frame frame;
   const char* text;
   const char* keys; // behind the name of the class; empty: not refused
};

const Row rows[] = {
      {Frame::ipv4, "      source: [10.0.0.0/8]\n", ""},
      {Frame::ipv4, "      source: [10.0.0.0/8, 11.0.0.0/8, 12.0.0.0/8]\n", " source@7:28"},
      {Frame::ipv4, "      destination: [10.0.0.0/8]\n", ""},
      {Frame::ipv4, "      destination: [10.0.0.0/8, 11.0.0.0/8]\n", " destination@7:33"},
      {Frame::ipv4, "      source-except: []\n", ""},
      {Frame::ipv4, "      source-except: [10.0.0.0/8, 11.0.0.0/8]\n", " source-except@7:23"},
      {Frame::ipv4, "      destination-except: [10.0.0.0/8]\n", " destination-except@7:28"},
      {Frame::ipv4, "      source-prefix-set: s\n", " source-prefix-set@7:26"},
      {Frame::ipv4, "      destination-prefix-set: s\n", " destination-prefix-set@7:31"},
      {Frame::ipv4, "      payload-length: 0-65535\n", " payload-length@7:23"},
      {Frame::ipv4, "      ip-ttl: 0-255\n", " ip-ttl@7:15"},
      {Frame::ipv4, "      fragments: false\n", ""},
      {Frame::ipv4, "      fragments: true\n", " fragments@7:18"},
      {Frame::ipv4, "      ip-options: false\n", ""},
      {Frame::ipv4, "      ip-options: true\n", " ip-options@7:19"},
      {Frame::ipv4, "      protocol: false\n", ""},
      {Frame::ipv4, "      protocol: true\n", " protocol@7:17"},
      {Frame::ipv4, "      protocol-neighbor: false\n", ""},
      {Frame::ipv4, "      protocol-neighbor: true\n", " protocol-neighbor@7:26"},
      {Frame::ipv4, "      sample: {data: 0, mask: 1, field: ip-id}\n", ""},
      {Frame::ipv4, "      protocols: []\n", ""},
      {Frame::ipv4, "      protocols: [{protocol: tcp}, {protocol: udp}]\n", ""},
      {Frame::ipv4, "      protocols: [{protocol: icmp}]\n", " protocols/protocol@7:30"},
      {Frame::ipv4, "      protocols: [{protocol: 6-17}]\n", " protocols/protocol@7:30"},
      {Frame::ipv4, "      protocols: [{protocol: 6-6}]\n", ""},
      {Frame::ipv4, "      protocols: [{protocol: tcp, icmp-types: []}]\n", ""},
      {Frame::ipv4, "      protocols: [{protocol: tcp, icmp-types: [3, 4]}]\n",
       " protocols/icmp-types@7:48"},
      {Frame::ipv4, "      protocols: [{protocol: tcp, tcp-flags: [{flags: 1, mask: 1}]}]\n", ""},
      {Frame::ipv4, "      protocols: [{protocol: udp, tcp-flags: [{flags: 1, mask: 1}]}]\n",
       " protocols/tcp-flags@7:47"},
      {Frame::ipv4, "      protocols: [{protocol: tcp, ports: [{source: [1]}, {}]}]\n", ""},
      {Frame::ipv4, "      protocols: [{protocol: tcp, ports: [{}, {source-set: s}]}]\n",
       " protocols/ports/source-set@7:60"},
      {Frame::ipv4, "      protocols: [{protocol: tcp, ports: [{destination-set: s}]}]\n",
       " protocols/ports/destination-set@7:61"},
      {Frame::ipv4,
       "      protocols: [{protocol: 1}, {protocol: udp, ports: [{source-set: s}]}]\n"
       "    actions: [log, sample]\n",
       " protocols/protocol@7:30 protocols/ports/source-set@7:71 actions/log@8:15"},
      {Frame::klass, "    actions: [sample, sample-all, set-dscp: 4]\n    ipv4: {}\n", ""},
      {Frame::klass, "    actions: [sample, drop]\n    ipv6: {ip-ttl: 1}\n", ""}, // not in IPv4
      {Frame::klass, "    actions: [permit]\n    ipv4: {}\n", " actions/permit@6:15"},
      {Frame::klass, "    both: {fragments: true}\n    ipv4: {ip-ttl: 3}\n",
       " fragments@6:23 ip-ttl@7:20"},
      {Frame::klass, "    both: {protocols: [{protocol: 47}]}\n", " protocols/protocol@6:35"},
};

TEST(RefusedClasses, everyKeyWithAndWithout) {
   for (const Row& row : rows) {
      const LoadResult loaded = parsePolicyText(framed(row.frame, row.text), "F");
      ASSERT_TRUE(loaded.policyFile) << formatFindings(loaded);
      const Policy& policy = loaded.policyFile->policies[0];
      const std::string keys{row.keys};
      EXPECT_EQ(linesOf(refusedClasses(policy, Family::ipv4, {})),
                keys.empty() ? "" : "c@5:11" + keys + "\n")
            << row.text;
      for (const bool tcpFlags : {true, false}) {
         EXPECT_TRUE(agree(policy, Family::ipv4, {tcpFlags})) << row.text << tcpFlags;
      }
   }
}

TEST(RefusedClasses, everyAction) {
   for (std::size_t kind = 0; kind < actionKinds; ++kind) {
      Policy policy;
      policy.name.text = "p";
      policy.ipv6Interfaces = {{"e", {}}};
      policy.classes.resize(1);
      policy.classes[0].name.text = "c";
      policy.classes[0].ipv6.emplace();
      policy.classes[0].actions = {{static_cast<ActionKind>(kind), 0, {7, 8}}};
      EXPECT_TRUE(agree(policy, Family::ipv6, {})) << kind;
      const std::string name{actionName(static_cast<ActionKind>(kind))};
      EXPECT_EQ(linesOf(refusedClasses(policy, Family::ipv6, {})),
                kind < 3 ? "" : "c@0:0 actions/" + name + "@7:8\n");
   }
}

TEST(RefusedClasses, hardwareWithoutTcpFlagsIgnoresThem) {
   const std::string text = framed(
         Frame::ipv4, "      protocols: [{protocol: udp, tcp-flags: [{flags: 1, mask: 1}]}]\n");
   const LoadResult loaded = parsePolicyText(text, "F");
   ASSERT_TRUE(loaded.policyFile);
   EXPECT_TRUE(refusedClasses(loaded.policyFile->policies[0], Family::ipv4, {false}).empty());
}

TEST(RefusedClasses, areInTheOrderOfMatching) {
   const std::string text = framed(Frame::policy, "  classes:\n"
                                                  "  - {name: a, ipv4: {fragments: true}}\n"
                                                  "  - {name: b, ipv4: {}}\n"
                                                  "  - {name: c, priority: 1, ipv4: {ip-ttl: 1}}\n"
                                                  "  - {name: d, ipv6: {ip-ttl: 1}}\n");
   const LoadResult loaded = parsePolicyText(text, "F");
   ASSERT_TRUE(loaded.policyFile);
   const Policy& policy = loaded.policyFile->policies[0];
   EXPECT_EQ(linesOf(refusedClasses(policy, Family::ipv4, {})),
             "c@7:12 ip-ttl@7:43\na@5:12 fragments@5:33\n");
   EXPECT_TRUE(agree(policy, Family::ipv4, {}));
   EXPECT_TRUE(agree(policy, Family::ipv6, {}));
}

// Few, small pieces, so that classes with and without faults meet.
RC_GTEST_PROP(RefusedClasses, agreesWithTheHelper, ()) {
   const auto count = *rc::gen::inRange<std::size_t>(0, 5);
   std::string text = "  classes:\n";
   for (std::size_t i = 0; i < count; ++i) {
      text += fmt::format("  - {{name: c{}, priority: {}, actions: [{}], ipv4: {{{} {} {}}}}}\n", i,
                          (i * 3 + 1) % 5,
                          *rc::gen::element("", "sample", "sample-all, set-dscp: 1", "nat, count"),
                          *rc::gen::element("", "source: [10.0.0.0/8],", "fragments: true,",
                                            "destination: [10.0.0.0/8, 11.0.0.0/8],"),
                          *rc::gen::element("", "ip-options: false,", "ip-ttl: 3,"),
                          *rc::gen::element("", "protocols: [{protocol: tcp}]",
                                            "protocols: [{protocol: udp, tcp-flags: [{flags: 1, "
                                            "mask: 1}]}]",
                                            "protocols: [{protocol: 1, ports: [{}]}, {protocol: "
                                            "tcp, ports: [{source-set: s}]}]"));
   }
   const LoadResult loaded = parsePolicyText(framed(Frame::policy, count == 0 ? "" : text), "F");
   RC_ASSERT(loaded.policyFile.has_value());
   const Hardware hardware{*rc::gen::arbitrary<bool>()};
   RC_ASSERT(agree(loaded.policyFile->policies[0], Family::ipv4, hardware));
}

TEST(RefusedClasses, doNotCountAsRulesOfTheFile) {
   const std::string text = framed(Frame::policy, "  classes:\n"
                                                  "  - {name: a, both: {}}\n"
                                                  "  - {name: b, ipv4: {fragments: true}}\n");
   const LoadResult loaded = parsePolicyText(text, "F");
   ASSERT_TRUE(loaded.policyFile);
   EXPECT_EQ(ruleCount(*loaded.policyFile), 2U);
}

} // namespace
} // namespace Postcard::Policy
