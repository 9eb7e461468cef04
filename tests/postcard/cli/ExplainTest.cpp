// `postcard explain` and single packets: what happens to them, and the reasons.
#include "postcard/cli/ExplainProgram.h"

#include <nlohmann/json.hpp>

namespace {

using CliTest::ipv4Policy;
using Json = nlohmann::json;

class Explain : public CliTest::Explain {
 protected:
   // The text for one packet, without the packet itself.
   static std::string one(const std::string& file, const std::string& packetText) {
      const auto result = explain({file, "--packet", packetText});
      EXPECT_EQ(result.exitCode, 0) << result.err;
      return result.out.substr(result.out.find('\n') + 1);
   }
};

// One class with every field, and behind it one that takes the rest of TCP.
const std::string everyField = ipv4Policy + R"(
      - name: c
        actions: [sample]
        ipv4:
          source: [10.0.0.0/8]
          destination: [192.0.2.0/24]
          sample: { data: 0x12, mask: 0xff }
          protocols:
            - protocol: tcp
              ports:
                - { source: [1024-65535], destination: [80, 8000-8001] }
                - { source: [7] }
              tcp-flags: [{ flags: [syn], mask: [syn, ack] }, { flags: [fin], mask: [fin] }]
      - name: rest
        actions: []
        ipv4: { protocols: [{ protocol: tcp }] }
)";

TEST_F(Explain, theFirstFieldThatFails) {
   const std::string file = policy(everyField);
   const std::vector<std::pair<std::string, std::string>> table = {
         {"tcp 11.0.0.1:1 > 9.9.9.9:2", "source: wanted 10.0.0.0/8, found 11.0.0.1"},
         {"tcp 10.0.0.1:1 > 9.9.9.9:2", "destination: wanted 192.0.2.0/24, found 9.9.9.9"},
         {"tcp 10.0.0.1:1 > 192.0.2.1:2", "source port: wanted 1024-65535, 7, found 1"},
         {"tcp 10.0.0.1 > 192.0.2.1 fragment",
          "source port: wanted 1024-65535, 7, found no port in a later fragment"},
         {"tcp 10.0.0.1:1024 > 192.0.2.1:2", "destination port: wanted 80, 8000-8001, found 2"},
         {"tcp 10.0.0.1:7 > 192.0.2.1:2",
          "tcp-flags: wanted syn of syn,ack or fin of fin, found none"},
         {"tcp 10.0.0.1:7 > 192.0.2.1:2 flags=syn,ack",
          "tcp-flags: wanted syn of syn,ack or fin of fin, found syn,ack"},
         {"tcp 10.0.0.1:7 > 192.0.2.1:2 flags=syn checksum=0x1213",
          "sample: wanted checksum 0x0012 under mask 0x00ff, found 0x1213"},
   };
   for (const auto& [text, miss] : table) {
      EXPECT_EQ(one(file, text),
                "   p-ipv4: not sampled, DSCP stays 0\n"
                "      class c: no, " +
                      miss + "\n      class rest: yes, rule 26 rest-ipv4-tcp from 20:41\n");
   }
}

TEST_F(Explain, aPacketThatIsSampled) {
   EXPECT_EQ(one(policy(everyField), "tcp 10.0.0.1:7 > 192.0.2.1:2 flags=fin checksum=0x12"),
             "   p-ipv4: sampled, DSCP stays 0\n"
             "      class c: yes, rule 24 "
             "c-ipv4-tcp-SportData-7-SportMask-65535-tcpFlag-1-tcpFlagMask-1 "
             "from 16:19 entry 2 sport 7 flags 0x1/0x1\n"
             "      class rest: not reached: an earlier class has the packet\n");
}

// Classes behind the one that has the packet: those that would have missed it, and why, and those
// that would have had it.
const std::string behindTheMatch = ipv4Policy + R"(
      - { name: last, priority: 90, actions: [], ipv4: {} }
      - { name: before, actions: [sample], ipv4: { source: [11.0.0.0/8] } }
      - { name: match, actions: [sample], ipv4: { destination: [192.0.2.0/24] } }
      - { name: other, actions: [], ipv4: { protocols: [{ protocol: udp }] } }
      - { name: same, actions: [sample-all], ipv4: { protocols: [{ protocol: tcp }] } }
      - { name: bits, actions: [sample], ipv4: { sample: { data: 1, mask: 1 } } }
)";

TEST_F(Explain, theClassesBehindTheOneThatHasThePacket) {
   EXPECT_EQ(
         one(policy(behindTheMatch), "tcp 10.0.0.1:1 > 192.0.2.1:2"),
         "   p-ipv4: sampled, DSCP stays 0\n"
         "      class before: no, source: wanted 11.0.0.0/8, found 10.0.0.1\n"
         "      class match: yes, rule 2 match-ipv4-tcp from 8:17\n"
         "      class other: no, protocol: wanted udp, found tcp\n"
         "      class same: not reached: an earlier class has the packet\n"
         "      class bits: no, sample: wanted checksum 0x0001 under mask 0x0001, found 0x0000\n"
         "      class last: not reached: an earlier class has the packet\n");
}

TEST_F(Explain, theClassesBehindInJson) {
   const auto result = explain(
         {policy(behindTheMatch), "--format", "json", "--packet", "tcp 10.0.0.1:1 > 192.0.2.1:2"});
   EXPECT_EQ(result.exitCode, 0) << result.err;
   const Json acl = Json::parse(result.out).at("packets").at(0).at("acls").at(0);
   EXPECT_EQ(acl.at("class"), "match");
   EXPECT_EQ(acl.at("notMatched"), Json::parse(R"([
      {"class": "before", "field": "source", "wanted": "11.0.0.0/8", "found": "10.0.0.1"},
      {"class": "other", "field": "protocol", "wanted": "udp", "found": "tcp"},
      {"class": "bits", "field": "sample", "wanted": "checksum 0x0001 under mask 0x0001",
       "found": "0x0000"}])"));
   EXPECT_EQ(acl.at("notReached"), Json::parse(R"(["same", "last"])"));
}

TEST_F(Explain, aPacketThatNoRuleMatches) {
   EXPECT_EQ(one(policy(everyField), "udp 10.0.0.1:7 > 192.0.2.1:2"),
             "   p-ipv4: not sampled: no rule matches\n"
             "      class c: no, protocol: wanted tcp, found udp\n"
             "      class rest: no, protocol: wanted tcp, found udp\n");
}

TEST_F(Explain, whatTheRulesMakeOfAClass) {
   const std::string file = policy("hardware: { tcp-flags: false }\n" + ipv4Policy + R"(
      - { name: ports, actions: [sample], ipv4: { protocols: [{ protocol: udp, ports: [{}] }] } }
      - name: flags
        actions: [sample-all]
        ipv4: { protocols: [{ protocol: tcp, tcp-flags: [{ flags: [syn], mask: [syn] }] }] }
      - name: marked
        actions: [sample-all, { set-dscp: 46 }]
        ipv4: { sample: { data: 1, mask: 1, field: ip-id } }
)");
   const std::string noPorts =
         "      class ports: no, source port: wanted one of an empty list of ranges, found 1\n";
   EXPECT_EQ(one(file, "tcp 1.2.3.4:1 > 5.6.7.8:2 flags=ack"),
             "   p-ipv4: sampled, DSCP stays 0\n"
             "      class ports: no, protocol: wanted udp, found tcp\n"
             "      class flags: yes, rule 0 flags-ipv4-tcp from 10:41\n"
             "      class marked: not reached: an earlier class has the packet\n");
   EXPECT_EQ(
         one(file, "udp 1.2.3.4:1 > 5.6.7.8:2"),
         "   p-ipv4: sampled, DSCP stays 0 (the class sets 46, but its rules rewrite no bits)\n" +
               noPorts +
               "      class flags: no, protocol: wanted tcp, found udp\n"
               "      class marked: yes, rule 2 marked-ipv4-udp from 11:15\n");
   EXPECT_EQ(one(file, "icmp 1.2.3.4 > 5.6.7.8"),
             "   p-ipv4: not sampled: no rule matches\n"
             "      class ports: no, protocol: wanted udp, found icmp\n"
             "      class flags: no, protocol: wanted tcp, found icmp\n"
             "      class marked: no, protocol: wanted tcp or udp, found icmp\n");
}

// Of several port entries, those without ranges stand for nothing beside the others.
TEST_F(Explain, portEntriesWithoutRanges) {
   const std::string file = policy(ipv4Policy + R"(
      - { name: none, actions: [], ipv4: { protocols: [{ protocol: tcp, ports: [{}, {}] }] } }
      - name: one
        actions: []
        ipv4: { protocols: [{ protocol: tcp, ports: [{}, { destination: [80] }] }] }
)");
   EXPECT_EQ(one(file, "tcp 1.2.3.4:1 > 5.6.7.8:2"),
             "   p-ipv4: not sampled: no rule matches\n"
             "      class none: no, source port: wanted one of an empty list of ranges, found 1\n"
             "      class one: no, destination port: wanted 80, found 2\n");
   EXPECT_EQ(one(file, "tcp 1.2.3.4 > 5.6.7.8 fragment"),
             "   p-ipv4: not sampled: no rule matches\n"
             "      class none: no, source port: wanted one of an empty list of ranges, "
             "found no port in a later fragment\n"
             "      class one: no, destination port: wanted 80, "
             "found no port in a later fragment\n");
}

TEST_F(Explain, whatALaterFragmentLacks) {
   const std::string file = policy(ipv4Policy + R"(
      - name: flags
        actions: []
        ipv4: { protocols: [{ protocol: tcp, tcp-flags: [{ flags: [syn], mask: [syn] }] }] }
      - { name: checksum, actions: [sample], ipv4: { sample: { data: 0, mask: 1 } } }
      - { name: id, actions: [sample], ipv4: { sample: { data: 0, mask: 1, field: ip-id } } }
)");
   EXPECT_EQ(one(file, "tcp 1.2.3.4 > 5.6.7.8 fragment id=1"),
             "   p-ipv4: not sampled: no rule matches\n"
             "      class flags: no, tcp-flags: wanted syn of syn, found no flags in a later "
             "fragment\n"
             "      class checksum: no, sample: wanted checksum 0x0000 under mask 0x0001, found no "
             "checksum in a later fragment\n"
             "      class id: no, sample: wanted ip-id 0x0000 under mask 0x0001, found 0x0001\n");
}

const std::string twoPolicies = R"(policies:
  - name: p
    interfaces: { ipv4: [Ethernet1], ipv6: [Ethernet2] }
    classes: [{ name: c, actions: [sample-all], ipv4: {}, ipv6: {} }]
  - name: q
    interfaces: { ipv4: [Ethernet1, Ethernet3] }
    classes: [{ name: c, actions: [], ipv4: { protocols: [{ protocol: udp }] } }]
)";

TEST_F(Explain, theAclsThatAreAsked) {
   const std::string file = policy(twoPolicies);
   const auto asked = [&](std::vector<std::string> arguments) {
      arguments.insert(arguments.begin(), {file, "--format", "json"});
      const auto result = explain(arguments);
      EXPECT_EQ(result.exitCode, 0) << result.err;
      std::string keys;
      const Json document = Json::parse(result.out);
      for (const Json& acl : document.at("packets").at(0).at("acls")) {
         keys += acl.at("acl").get<std::string>() + ' ';
      }
      return keys;
   };
   const std::string tcp4 = "tcp 1.2.3.4:1 > 5.6.7.8:2";
   EXPECT_EQ(asked({"--packet", tcp4}), "p-ipv4 q-ipv4 ");
   EXPECT_EQ(asked({"--packet", tcp4 + " interface=Ethernet3"}), "q-ipv4 ");
   EXPECT_EQ(asked({"--packet", tcp4 + " interface=Ethernet2"}), "");
   EXPECT_EQ(asked({"--packet", "udp [::1]:1 > [::2]:2"}), "p-ipv6 ");
   EXPECT_EQ(asked({"--packet", tcp4, "--policy", "q"}), "q-ipv4 ");
   EXPECT_EQ(asked({"--packet", tcp4, "--family", "ipv6"}), "");
}

// Why no ACL is asked, and the question of what was meant.
struct NoAcl {
   std::string packet;
   std::vector<std::string> options;
   std::string code;
   std::string text;
   Json guess; // null: none
};

TEST_F(Explain, whyNoAclIsAsked) {
   const std::string file = policy(twoPolicies + R"(
  - name: bad
    interfaces: { ipv6: [Ethernet9] }
    classes: [{ name: c, actions: [drop], ipv6: {} }]
)");
   const std::string tcp4 = "tcp 1.2.3.4:1 > 5.6.7.8:2";
   const std::string tcp6 = "tcp [::1]:1 > [::2]:2";
   const NoAcl table[] = {
         {tcp4 + " interface=Ethernt1",
          {},
          "unknown-interface",
          "none of the 3 policies is attached to interface 'Ethernt1'",
          "Ethernet1"},
         {tcp4 + " interface=lo",
          {},
          "unknown-interface",
          "none of the 3 policies is attached to interface 'lo'",
          nullptr},
         {tcp4 + " interface=Ethernet9",
          {"--policy", "q"},
          "unknown-interface",
          "policy 'q' is not attached to interface 'Ethernet9'",
          "Ethernet1"},
         {tcp4 + " interface=\x1b[1m",
          {"--policy", "q"},
          "unknown-interface",
          "policy 'q' is not attached to interface '\\u001b[1m'",
          nullptr},
         {tcp4 + " interface=Ethernet2",
          {},
          "other-family",
          "interface 'Ethernet2' has policies for ipv6 only, and the packet is ipv4",
          nullptr},
         {tcp6 + " interface=Ethernet3",
          {},
          "other-family",
          "interface 'Ethernet3' has policies for ipv4 only, and the packet is ipv6",
          nullptr},
         {tcp6,
          {"--policy", "q"},
          "no-interfaces",
          "policy 'q' has no interfaces for ipv6",
          nullptr},
         {tcp4,
          {"--policy", "bad", "--policy", "bad"},
          "no-interfaces",
          "policy 'bad' has no interfaces for ipv4",
          nullptr},
         {tcp4,
          {"--family", "ipv6"},
          "family-left-out",
          "the packet is ipv4, and only ACLs of ipv6 are looked at",
          nullptr},
         {tcp6,
          {"--policy", "bad"},
          "refused",
          "the plug-in refused policy 'bad' for ipv6",
          nullptr},
         {tcp6 + " interface=Ethernet9",
          {},
          "refused",
          "the plug-in refused policy 'bad' for ipv6",
          nullptr},
   };
   for (const auto& [packet, options, code, text, guess] : table) {
      std::vector<std::string> arguments{file, "--packet", packet};
      arguments.insert(arguments.end(), options.begin(), options.end());
      const std::string question =
            guess.is_null() ? "" : "; did you mean '" + guess.get<std::string>() + "'?";
      const auto result = explain(arguments);
      EXPECT_TRUE(result.out.ends_with("\n   no ACL is asked about this packet: " + text +
                                       question + "\n"))
            << result.out;
      arguments.insert(arguments.end(), {"--format", "json"});
      const Json document = Json::parse(explain(arguments).out);
      EXPECT_EQ(document.at("packets").at(0).at("noAcl"),
                (Json{{"code", code}, {"text", text}, {"guess", guess}}));
   }
}

TEST_F(Explain, aFileWithoutPolicies) {
   EXPECT_EQ(one(policy("policies: []\n"), "icmp 1.2.3.4 > 5.6.7.8"),
             "   no ACL is asked about this packet: no policy has interfaces for ipv4\n");
}

TEST_F(Explain, theNamesOfManyRefusedPolicies) {
   std::string file = "policies:\n";
   for (const char* name : {"a", "b", "c", "d", "e"}) {
      file += "  - { name: " + std::string{name} +
              ", interfaces: { ipv4: [Ethernet1] }, classes: "
              "[{ name: c, actions: [drop], ipv4: {} }] }\n";
   }
   const auto result = explain({policy(file), "--packet", "icmp 1.2.3.4 > 5.6.7.8"});
   EXPECT_EQ(result.exitCode, 1);
   EXPECT_TRUE(result.out.ends_with("the plug-in refused policies 'a', 'b', 'c' and 2 more for "
                                    "ipv4\n"))
         << result.out;
}

// ---- What the packet's text leaves out ----

TEST_F(Explain, whatIsLeftOutIsSaidWithThePacket) {
   const std::string file = policy(everyField);
   const std::vector<std::pair<std::string, std::string>> table = {
         {"tcp 10.0.0.1:1 > 9.9.9.9:2", "   (left out and taken for 0: flags, checksum, id, dscp)"},
         {"udp 10.0.0.1:1 > 9.9.9.9:2 id=0x0007", "   (left out and taken for 0: checksum, dscp)"},
         {"icmpv6 [::1] > [::2]", "   (left out and taken for 0: dscp)"}};
   for (const auto& [text, remark] : table) {
      const auto result = explain({file, "--packet", text});
      EXPECT_TRUE(result.out.starts_with(text + remark + "\n")) << result.out;
   }
   const std::string whole = "udp 10.0.0.1:1 > 9.9.9.9:2 checksum=0x0001 id=0x0002 dscp=3";
   EXPECT_TRUE(explain({file, "--packet", whole}).out.starts_with(whole + "\n"));
   const auto json = explain({file, "--packet", "udp 10.0.0.1:1 > 9.9.9.9:2", "--format", "json"});
   EXPECT_EQ(Json::parse(json.out).at("packets").at(0).at("zeros"),
             Json::parse(R"(["checksum", "id", "dscp"])"));
}

// ---- Headers that a capture cut off ----

TEST_F(Explain, aHeaderThatIsCutOffMatchesWhatDoesNotAskForItsEnd) {
   const std::string file = policy(everyField);
   const std::string rest = "\n      class rest: yes, rule 26 rest-ipv4-tcp from 20:41\n";
   const std::string c = "   p-ipv4: not sampled, DSCP stays 0\n      class c: no, ";
   EXPECT_EQ(one(file, "tcp 10.0.0.1 > 192.0.2.1 cut"),
             c + "source port: wanted 1024-65535, 7, found no port: the header is cut off" + rest);
   EXPECT_EQ(one(file, "tcp 10.0.0.1:1024 > 192.0.2.1 cut"),
             c + "destination port: wanted 80, 8000-8001, found no port: the header is cut off" +
                   rest);
   EXPECT_EQ(one(file, "tcp 10.0.0.1:7 > 192.0.2.1:2 cut"),
             c +
                   "tcp-flags: wanted syn of syn,ack or fin of fin, found no flags: the header is "
                   "cut off" +
                   rest);
   EXPECT_EQ(
         one(file, "tcp 10.0.0.1:7 > 192.0.2.1:2 flags=fin cut"),
         c +
               "sample: wanted checksum 0x0012 under mask 0x00ff, found no checksum: the header "
               "is cut off" +
               rest);
}

// ---- Frames in hexadecimal ----

// An Ethernet frame with a whole UDP header, and its IPv4 header alone.
const std::string ipv4Hex = "4500001c 0000 0000 40 11 0000 0a000001 c0000201";
const std::string ethernetHex = "aaaaaaaaaaaabbbbbbbbbbbb 0800";

TEST_F(Explain, aFrameInHexadecimal) {
   const std::string file = policy(twoPolicies);
   const auto result = explain({file, "--hex", ethernetHex + ipv4Hex + " 0035 0401 0008 beef",
                                "--hex", ethernetHex + ipv4Hex, "--policy", "q"});
   EXPECT_EQ(result.exitCode, 0) << result.err;
   EXPECT_EQ(result.out, "udp 10.0.0.1:53 > 192.0.2.1:1025 checksum=0xbeef\n"
                         "   q-ipv4: not sampled, DSCP stays 0\n"
                         "      class c: yes, rule 0 c-ipv4-udp from 7:71\n"
                         "udp 10.0.0.1 > 192.0.2.1 cut\n"
                         "   q-ipv4: not sampled, DSCP stays 0\n"
                         "      class c: yes, rule 0 c-ipv4-udp from 7:71\n");
}

TEST_F(Explain, aFrameThatIsNoPacket) {
   const std::string file = policy(twoPolicies);
   const auto text = explain({file, "--hex", "aaaaaaaaaaaabbbbbbbbbbbb 0806 0001"});
   EXPECT_EQ(text.exitCode, 0) << text.err;
   EXPECT_EQ(text.out, "a frame that gives no packet\n"
                       "   no ACL is asked about this packet: not IP\n");
   const auto json = explain({file, "--hex", "00", "--format", "json"});
   EXPECT_EQ(Json::parse(json.out).at("packets"), Json::parse(R"([{
      "packet": null, "zeros": [], "acls": [], "asExpected": null,
      "noAcl": {"code": "undecodable", "text": "link header truncated", "guess": null}}])"));
}

TEST_F(Explain, aFrameThatIsNoHexadecimal) {
   const auto result = explain({policy(twoPolicies), "--hex", "00 1g"});
   EXPECT_EQ(result.exitCode, 2);
   EXPECT_EQ(result.err, "--hex: expected the second hexadecimal digit of a byte\n"
                         "   00 1g\n"
                         "       ^\n");
   EXPECT_EQ(explain({policy(twoPolicies), "--hex", ""}).exitCode, 2);
}

// ---- Expectations ----

struct Expected {
   std::string packet;
   std::string expectation;
   std::string failure; // empty: the expectation is met
};

TEST_F(Explain, theExitStatusFollowsTheExpectation) {
   const std::string file = policy(twoPolicies);
   const std::string tcp = "tcp 1.2.3.4:1 > 5.6.7.8:2";
   const std::string udp = "udp 1.2.3.4:1 > 5.6.7.8:2 interface=Ethernet3";
   const std::string icmp = "icmp 1.2.3.4 > 5.6.7.8";
   const std::string lost = tcp + " interface=Ethernet8";
   const Expected table[] = {
         {tcp, "sampled", ""},
         {tcp, "class=c", ""},
         {tcp, "not-sampled",
          "class 'c' of ACL p-ipv4 samples it, no rule of ACL q-ipv4 matches it"},
         {udp, "not-sampled", ""},
         {udp, "class=c", ""},
         {udp, "sampled", "class 'c' of ACL q-ipv4 has it and does not sample it"},
         {icmp, "not-sampled", ""},
         {icmp, "class=c", "no rule of ACL p-ipv4 matches it, no rule of ACL q-ipv4 matches it"},
         {lost, "not-sampled", ""},
         {lost, "sampled",
          "no ACL is asked about it: none of the 2 policies is attached to interface 'Ethernet8'; "
          "did you mean 'Ethernet1'?"},
   };
   for (const auto& [packet, expectation, failure] : table) {
      const auto result =
            explain({file, "--packet", packet, "--expect", expectation, "--format", "json"});
      EXPECT_EQ(result.exitCode, failure.empty() ? 0 : 1) << packet << expectation;
      EXPECT_EQ(result.err, failure.empty() ? ""
                                            : "not as expected (" + expectation + "): " + packet +
                                                    ": " + failure + "\n");
      const Json document = Json::parse(result.out);
      EXPECT_EQ(document.at("expected"), expectation);
      EXPECT_EQ(document.at("packets").at(0).at("asExpected"), failure.empty());
   }
}

TEST_F(Explain, everyPacketMustMeetTheExpectation) {
   const auto result = explain({policy(twoPolicies), "--expect", "sampled", "--packet",
                                "tcp 1.2.3.4:1 > 5.6.7.8:2", "--packet", "icmp 1.2.3.4 > 5.6.7.8",
                                "--hex", "00"});
   EXPECT_EQ(result.exitCode, 2) << "a packet or a frame, not both";
   const auto mixed = explain({policy(twoPolicies), "--expect", "sampled", "--packet",
                               "tcp 1.2.3.4:1 > 5.6.7.8:2", "--packet", "icmp 1.2.3.4 > 5.6.7.8"});
   EXPECT_EQ(mixed.exitCode, 1);
   EXPECT_EQ(mixed.err, "not as expected (sampled): icmp 1.2.3.4 > 5.6.7.8: no rule of ACL p-ipv4 "
                        "matches it, no rule of ACL q-ipv4 matches it\n");
   const auto frame = explain({policy(twoPolicies), "--expect", "sampled", "--hex", "00"});
   EXPECT_EQ(frame.exitCode, 1);
   EXPECT_EQ(frame.err, "not as expected (sampled): the frame: no ACL is asked about it: link "
                        "header truncated\n");
}

TEST_F(Explain, anExpectationThatNothingCanMeet) {
   const std::string file = policy(everyField);
   const std::string packet = "tcp 1.2.3.4:1 > 5.6.7.8:2";
   const auto expect = [&](const std::string& expectation) {
      const auto result = explain({file, "--packet", packet, "--expect", expectation});
      EXPECT_EQ(result.exitCode, 2) << expectation;
      EXPECT_EQ(result.out, "");
      return result.err;
   };
   EXPECT_EQ(expect("class=rst"), "--expect: no policy has a class 'rst'; did you mean 'rest'?\n");
   EXPECT_EQ(expect("class=\x1b"), "--expect: no policy has a class '\\u001b'\n");
   for (const char* wrong : {"", "Sampled", "class=", "rest", "\x1b[1m"}) {
      EXPECT_NE(expect(wrong).find("is not sampled, not-sampled or class=NAME\n"),
                std::string::npos)
            << expect(wrong);
   }
}

TEST_F(Explain, jsonSaysTheSame) {
   const auto result =
         explain({policy(twoPolicies), "--format", "json", "--packet",
                  "tcp 1.2.3.4:1 > 5.6.7.8:2 dscp=9", "--packet", "icmpv6 [::1] > [::2]"});
   EXPECT_EQ(Json::parse(result.out), Json::parse(R"({"schema": 1, "expected": null, "packets": [
      {"packet": "tcp 1.2.3.4:1 > 5.6.7.8:2 dscp=9", "zeros": ["flags", "checksum", "id"],
       "noAcl": null, "asExpected": null, "acls": [
         {"acl": "p-ipv4", "policy": "p", "family": "ipv4",
          "rule": {"index": 0, "name": "c-ipv4-tcp",
                   "origin": {"line": 4, "column": 23, "protocol": "tcp", "portEntry": null,
                              "sourcePorts": null, "destinationPorts": null, "tcpFlags": null}},
          "class": "c", "sampled": true, "dscp": 9, "notMatched": [], "notReached": []},
         {"acl": "q-ipv4", "policy": "q", "family": "ipv4", "rule": null, "class": null,
          "sampled": false, "dscp": 9, "notMatched": [
            {"class": "c", "field": "protocol", "wanted": "udp", "found": "tcp"}], "notReached": []}]},
      {"packet": "icmpv6 [::1] > [::2]", "zeros": ["dscp"],
       "noAcl": null, "asExpected": null, "acls": [
         {"acl": "p-ipv6", "policy": "p", "family": "ipv6", "rule": null, "class": null,
          "sampled": false, "dscp": 0, "notMatched": [
            {"class": "c", "field": "protocol", "wanted": "tcp or udp", "found": "icmpv6"}], "notReached": []}]}],
      "refused": []})"));
}

TEST_F(Explain, aRefusedPolicyIsReportedAndTheOthersAreExplained) {
   const std::string file = policy(twoPolicies + R"(
  - name: bad
    interfaces: { ipv4: [Ethernet1] }
    classes: [{ name: c, actions: [drop], ipv4: {} }]
)");
   const auto result = explain({file, "--packet", "tcp 1.2.3.4:1 > 5.6.7.8:2"});
   EXPECT_EQ(result.exitCode, 1);
   EXPECT_EQ(result.err, "bad ipv4: Unsupported action(s): 'drop', in configuration\n   " + file +
                               ":11:36: class 'c': actions/drop\n");
   EXPECT_NE(result.out.find("p-ipv4: sampled"), std::string::npos);
}

TEST_F(Explain, badUsage) {
   const std::string file = policy(everyField);
   const std::string text = "tcp 1.2.3.4:1 > 5.6.7.8:2";
   EXPECT_EQ(explain({file}).exitCode, 2);
   EXPECT_EQ(explain({file, "--packet", text, "--pcap", "x"}).exitCode, 2);
   EXPECT_EQ(explain({"--packet", text}).exitCode, 2);
   EXPECT_EQ(explain({file, "--packet", text, "--policy", "q"}).err,
             file + ": there is no policy 'q'\n");
   const auto wrong = explain({file, "--packet", "tcp 1.2.3.4:1 > 5.6.7.8:65536"});
   EXPECT_EQ(wrong.exitCode, 2);
   EXPECT_EQ(wrong.err, "--packet: expected a number from 0 to 65535\n"
                        "   tcp 1.2.3.4:1 > 5.6.7.8:65536\n"
                        "                           ^\n");
   EXPECT_EQ(explain({file, "--packet", text}, {"POSTCARD_MODULE=/nonexistent.so"}).exitCode, 3);
   EXPECT_EQ(explain({file + "x", "--packet", text}).exitCode, 2);
   EXPECT_EQ(explain({file, "--packet", "tcp \x1b[1m"}).err,
             "--packet: expected a number\n   tcp \\u001b[1m\n       ^\n");
   EXPECT_NE(explain({"--help"}).out.find("candidates"), std::string::npos);
}

} // namespace
