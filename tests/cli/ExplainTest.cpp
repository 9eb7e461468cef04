// `postcard explain`, the real program with the real module: single packets and whole captures,
// what happens to them, and the reasons. The program itself compares reasons and rules for every
// packet and fails when they contradict each other, so every run below checks that too.
#include "support/RunProgram.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>

namespace {

using Json = nlohmann::json;
using TestSupport::ProgramResult;
using TestSupport::runProgram;
using Bytes = std::vector<std::uint8_t>;

const std::string program = std::string{POSTCARD_BIN_DIR} + "/postcard";
const std::string examples = std::string{POSTCARD_SOURCE_DIR} + "/examples/";

// ---- Captures, written by hand: little-endian headers, raw IP frames ----

void little(Bytes& out, std::uint32_t value, int bytes) {
   for (int i = 0; i < bytes; ++i) {
      out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
   }
}

class Capture {
 public:
   explicit Capture(std::uint32_t linkType = 101) { // raw IP
      little(bytes_, 0xa1b2c3d4, 4);
      little(bytes_, 2, 2);
      little(bytes_, 4, 2);
      little(bytes_, 0, 4);
      little(bytes_, 0, 4);
      little(bytes_, 65535, 4);
      little(bytes_, linkType, 4);
   }
   void add(const Bytes& frame) {
      little(bytes_, 0, 4);
      little(bytes_, 0, 4);
      little(bytes_, static_cast<std::uint32_t>(frame.size()), 4);
      little(bytes_, static_cast<std::uint32_t>(frame.size()), 4);
      bytes_.insert(bytes_.end(), frame.begin(), frame.end());
   }
   Bytes& bytes() { return bytes_; }

 private:
   Bytes bytes_;
};

struct Header {
   Bytes source = {10, 0, 0, 1};
   Bytes destination = {192, 0, 2, 1};
   unsigned protocol = 6;
   unsigned sourcePort = 1024;
   unsigned destinationPort = 80;
   unsigned flags = 0x10;
   unsigned checksum = 0;
   unsigned id = 0;
};

void big(Bytes& out, unsigned value) {
   out.push_back(static_cast<std::uint8_t>(value >> 8));
   out.push_back(static_cast<std::uint8_t>(value));
}

Bytes transport(const Header& header) {
   Bytes bytes;
   big(bytes, header.sourcePort);
   big(bytes, header.destinationPort);
   if (header.protocol == 17) {
      big(bytes, 8);
      big(bytes, header.checksum);
      return bytes;
   }
   bytes.resize(12);
   big(bytes, 0x5000U | header.flags);
   big(bytes, 0);
   big(bytes, header.checksum);
   big(bytes, 0);
   return bytes;
}

Bytes packet(const Header& header) {
   const Bytes payload = header.protocol == 1 ? Bytes(8, 0) : transport(header);
   const bool ipv4 = header.source.size() == 4;
   Bytes bytes;
   if (ipv4) {
      bytes = {0x45, 0};
      big(bytes, static_cast<unsigned>(20 + payload.size()));
      big(bytes, header.id);
      bytes.insert(bytes.end(), {0, 0, 64, static_cast<std::uint8_t>(header.protocol), 0, 0});
   } else {
      bytes = {0x60, 0, 0, 0};
      big(bytes, static_cast<unsigned>(payload.size()));
      bytes.insert(bytes.end(), {static_cast<std::uint8_t>(header.protocol), 64});
   }
   bytes.insert(bytes.end(), header.source.begin(), header.source.end());
   bytes.insert(bytes.end(), header.destination.begin(), header.destination.end());
   bytes.insert(bytes.end(), payload.begin(), payload.end());
   return bytes;
}

// ---- The program ----

class Explain : public testing::Test {
 protected:
   Explain() {
      char path[] = "/tmp/postcard-cli-XXXXXX";
      folder_ = ::mkdtemp(path);
   }
   ~Explain() override { std::filesystem::remove_all(folder_); }

   std::string policy(const std::string& text) const {
      const std::string path = folder_ + "/policy.yaml";
      std::ofstream{path} << text;
      return path;
   }
   std::string capture(Capture capture) const {
      const std::string path = folder_ + "/capture.pcap";
      const std::string bytes(capture.bytes().begin(), capture.bytes().end());
      std::ofstream{path, std::ios::binary} << bytes;
      return path;
   }
   static ProgramResult explain(std::vector<std::string> arguments) {
      arguments.insert(arguments.begin(), {program, "explain"});
      return runProgram(std::move(arguments));
   }
   // The text for one packet, without the packet itself.
   static std::string one(const std::string& file, const std::string& packetText) {
      const auto result = explain({file, "--packet", packetText});
      EXPECT_EQ(result.exitCode, 0) << result.err;
      return result.out.substr(result.out.find('\n') + 1);
   }

 private:
   std::string folder_;
};

const std::string ipv4Policy = R"(policies:
  - name: p
    interfaces: { ipv4: [Ethernet1] }
    classes:
)";

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
      EXPECT_EQ(one(file, text), "   p-ipv4: not sampled, DSCP stays 0\n"
                                 "      class c: no, " +
                                       miss + "\n      class rest: yes, rule 26 rest-ipv4-tcp\n");
   }
}

TEST_F(Explain, aPacketThatIsSampled) {
   EXPECT_EQ(one(policy(everyField), "tcp 10.0.0.1:7 > 192.0.2.1:2 flags=fin checksum=0x12"),
             "   p-ipv4: sampled, DSCP stays 0\n"
             "      class c: yes, rule 24 "
             "c-ipv4-tcp-SportData-7-SportMask-65535-tcpFlag-1-tcpFlagMask-1\n");
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
         "      class ports: no, source port: wanted a port entry without ranges matches nothing, "
         "found 1\n";
   EXPECT_EQ(one(file, "tcp 1.2.3.4:1 > 5.6.7.8:2 flags=ack"),
             "   p-ipv4: sampled, DSCP stays 0\n"
             "      class ports: no, protocol: wanted udp, found tcp\n"
             "      class flags: yes, rule 0 flags-ipv4-tcp\n");
   EXPECT_EQ(
         one(file, "udp 1.2.3.4:1 > 5.6.7.8:2"),
         "   p-ipv4: sampled, DSCP stays 0 (the class sets 46, but its rules rewrite no bits)\n" +
               noPorts +
               "      class flags: no, protocol: wanted tcp, found udp\n"
               "      class marked: yes, rule 2 marked-ipv4-udp\n");
   EXPECT_EQ(one(file, "icmp 1.2.3.4 > 5.6.7.8"),
             "   p-ipv4: not sampled: no rule matches\n"
             "      class ports: no, protocol: wanted udp, found icmp\n"
             "      class flags: no, protocol: wanted tcp, found icmp\n"
             "      class marked: no, protocol: wanted tcp or udp, found icmp\n");
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
   EXPECT_EQ(one(file, tcp4 + " interface=Ethernet2"), "   no ACL is asked about this packet\n");
}

TEST_F(Explain, jsonSaysTheSame) {
   const auto result =
         explain({policy(twoPolicies), "--format", "json", "--packet",
                  "tcp 1.2.3.4:1 > 5.6.7.8:2 dscp=9", "--packet", "icmpv6 [::1] > [::2]"});
   EXPECT_EQ(Json::parse(result.out), Json::parse(R"({"schema": 1, "packets": [
      {"packet": "tcp 1.2.3.4:1 > 5.6.7.8:2 dscp=9", "acls": [
         {"acl": "p-ipv4", "policy": "p", "family": "ipv4",
          "rule": {"index": 0, "name": "c-ipv4-tcp"}, "class": "c", "sampled": true, "dscp": 9,
          "notMatched": []},
         {"acl": "q-ipv4", "policy": "q", "family": "ipv4", "rule": null, "class": null,
          "sampled": false, "dscp": 9, "notMatched": [
            {"class": "c", "field": "protocol", "wanted": "udp", "found": "tcp"}]}]},
      {"packet": "icmpv6 [::1] > [::2]", "acls": [
         {"acl": "p-ipv6", "policy": "p", "family": "ipv6", "rule": null, "class": null,
          "sampled": false, "dscp": 0, "notMatched": [
            {"class": "c", "field": "protocol", "wanted": "tcp or udp", "found": "icmpv6"}]}]}],
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
   EXPECT_EQ(result.err, "bad ipv4: Unsupported action(s): 'drop', in configuration\n");
   EXPECT_NE(result.out.find("p-ipv4: sampled"), std::string::npos);
}

// ---- Captures ----

const std::string capturePolicy = ipv4Policy + R"(
      - name: web
        actions: [sample]
        ipv4:
          sample: { data: 0, mask: 0x7 }
          protocols: [{ protocol: tcp, ports: [{ destination: [80] }] }]
      - { name: dns, actions: [sample-all], ipv4: { protocols: [{ protocol: udp }] } }
      - { name: rest, actions: [], ipv4: { protocols: [{ protocol: tcp }] } }
)";

// 4,000 packets to port 80 whose checksums count up, so that one in eight is sampled exactly; 300
// to port 81; 200 of UDP; 100 of ICMP; 50 of IPv6; 25 frames that are no packets.
Capture knownCapture() {
   Capture capture;
   for (unsigned i = 0; i < 4000; ++i) {
      capture.add(packet({.checksum = i}));
   }
   for (unsigned i = 0; i < 300; ++i) {
      capture.add(packet({.destinationPort = 81}));
      if (i < 200) {
         capture.add(packet({.protocol = 17}));
      }
      if (i < 100) {
         capture.add(packet({.protocol = 1}));
      }
      if (i < 50) {
         capture.add(packet({.source = Bytes(16, 1), .destination = Bytes(16, 2)}));
      }
      if (i < 20) {
         capture.add({0x45, 0, 0, 40});
      }
      if (i < 5) {
         capture.add(Bytes(40, 0x99));
      }
   }
   return capture;
}

TEST_F(Explain, aCaptureWithKnownTotals) {
   const std::string path = capture(knownCapture());
   const auto result = explain({policy(capturePolicy), "--pcap", path});
   EXPECT_EQ(result.exitCode, 0) << result.err;
   EXPECT_EQ(result.out,
             path + ": 4675 frames, 4650 packets, 25 undecodable\n"
                    "   IP header truncated: 20\n"
                    "   IP header malformed: 5\n"
                    "   no ACL is asked about: 50\n"
                    "\n"
                    "p-ipv4: 4600 packets, 4500 match a rule, 700 sampled\n"
                    "   class  candidates     matched     sampled      observed      expected\n"
                    "   web          4000         500         500        1 in 8        1 in 8\n"
                    "   dns           200         200         200        1 in 1        1 in 1\n"
                    "   rest         3800        3800           0          none          none\n"
                    "   rule 0 web-ipv4-tcp-DportData-80-DportMask-65535: 500\n"
                    "   rule 1 dns-ipv4-udp: 200\n"
                    "   rule 2 rest-ipv4-tcp: 3800\n");
}

TEST_F(Explain, aCaptureAsJson) {
   const std::string path = capture(knownCapture());
   const auto result = explain({policy(capturePolicy), "--pcap", path, "--format", "json"});
   EXPECT_EQ(result.exitCode, 0) << result.err;
   Json expected = Json::parse(R"({"schema": 1, "capture": {
      "frames": 4675, "packets": 4650, "withoutAcl": 50,
      "undecodable": {"IP header truncated": 20, "IP header malformed": 5},
      "acls": [{"acl": "p-ipv4", "policy": "p", "family": "ipv4",
                "packets": 4600, "matched": 4500, "sampled": 700,
         "classes": [
            {"class": "web", "candidates": 4000, "matched": 500, "sampled": 500,
             "observedOneIn": 8.0, "expectedOneIn": 8.0},
            {"class": "dns", "candidates": 200, "matched": 200, "sampled": 200,
             "observedOneIn": 1.0, "expectedOneIn": 1.0},
            {"class": "rest", "candidates": 3800, "matched": 3800, "sampled": 0,
             "observedOneIn": null, "expectedOneIn": null}],
         "rules": [
            {"index": 0, "name": "web-ipv4-tcp-DportData-80-DportMask-65535", "packets": 500},
            {"index": 1, "name": "dns-ipv4-udp", "packets": 200},
            {"index": 2, "name": "rest-ipv4-tcp", "packets": 3800}]}]},
      "refused": []})");
   expected["capture"]["file"] = path;
   EXPECT_EQ(Json::parse(result.out), expected);
}

// Packets of the values that the examples are about, all of them with checksums at random.
Capture randomCapture() {
   std::mt19937 random{3};
   const auto pick = [&random](const auto& values) { return values[random() % values.size()]; };
   const std::vector<Bytes> ends4 = {{192, 0, 2, 1},  {192, 0, 2, 17},   {10, 0, 1, 1},
                                     {10, 0, 7, 9},   {198, 51, 100, 7}, {203, 0, 113, 9},
                                     {192, 0, 2, 129}};
   std::vector<Bytes> ends6(4, Bytes{0x20, 1, 0x0d, 0xb8, 0, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1});
   ends6[1][5] = 0;
   ends6[2][4] = 1;
   ends6[3][7] = 1;
   const std::vector<unsigned> ports = {7,    22,   53,   80,   135,  137,   443,  445,
                                        1023, 1024, 1025, 3389, 8443, 65534, 65535};
   Capture capture;
   for (int i = 0; i < 4000; ++i) {
      const bool ipv4 = random() % 3 != 0;
      capture.add(packet({.source = pick(ipv4 ? ends4 : ends6),
                          .destination = pick(ipv4 ? ends4 : ends6),
                          .protocol = random() % 20 == 0  ? 1U
                                      : random() % 3 == 0 ? 17U
                                                          : 6U,
                          .sourcePort = pick(ports),
                          .destinationPort = pick(ports),
                          .flags = static_cast<unsigned>(random() & 0x3f),
                          .checksum = static_cast<unsigned>(random() & 0xffff),
                          .id = static_cast<unsigned>(random() & 0xffff)}));
   }
   return capture;
}

TEST_F(Explain, rulesAndReasonsAgreeOnTheExamples) {
   const std::string path = capture(randomCapture());
   for (const auto& [name, exitCode] : {std::pair{"web-tier", 0},
                                        {"flags-and-ranges", 0},
                                        {"large-datacenter", 0},
                                        {"all-features", 1}}) {
      const auto result = explain({examples + name + ".yaml", "--pcap", path, "--format", "json"});
      ASSERT_EQ(result.exitCode, exitCode) << name << result.err; // 3: they contradict each other
      std::size_t matched = 0;
      const Json document = Json::parse(result.out);
      for (const Json& acl : document.at("capture").at("acls")) {
         std::size_t byRule = 0;
         std::size_t byClass = 0;
         for (const Json& rule : acl.at("rules")) {
            byRule += rule.at("packets").get<std::size_t>();
         }
         for (const Json& each : acl.at("classes")) {
            byClass += each.at("matched").get<std::size_t>();
         }
         EXPECT_EQ(byRule, acl.at("matched")) << name;
         EXPECT_EQ(byClass, acl.at("matched")) << name;
         matched += byRule;
      }
      EXPECT_GT(matched, 100U) << name;
   }
}

// Of checksums at random, about one in 2^(bits of the mask) is sampled.
TEST_F(Explain, theObservedShareComesNearTheExpectedOne) {
   const std::string file = policy(ipv4Policy + "      - { name: c, actions: [sample], ipv4: { "
                                                "sample: { data: 0x10, mask: 0x3d } } }\n");
   const auto result = explain({file, "--pcap", capture(randomCapture()), "--format", "json"});
   const Json each = Json::parse(result.out).at("capture").at("acls").at(0).at("classes").at(0);
   EXPECT_EQ(each.at("expectedOneIn"), 32.0);
   EXPECT_GT(each.at("candidates"), 2000);
   EXPECT_NEAR(each.at("observedOneIn").get<double>(), 32.0, 10.0);
}

TEST_F(Explain, capturesThatCannotBeUsed) {
   const std::string file = policy(capturePolicy);
   Capture cut = knownCapture();
   cut.bytes().resize(cut.bytes().size() - 7);
   const std::string path = capture(cut);
   const auto result = explain({file, "--pcap", path});
   EXPECT_EQ(result.exitCode, 2);
   EXPECT_TRUE(result.err.starts_with(path + ": truncated dump file")) << result.err;
   EXPECT_TRUE(result.out.starts_with(path + ": 4674 frames")) << result.out;
   const auto wrongLink = explain({file, "--pcap", capture(Capture{105})});
   EXPECT_EQ(wrongLink.exitCode, 2);
   EXPECT_NE(wrongLink.err.find("link type"), std::string::npos);
   EXPECT_EQ(wrongLink.out, "");
   EXPECT_EQ(explain({file, "--pcap", file}).exitCode, 2);
}

TEST_F(Explain, badUsage) {
   const std::string file = policy(capturePolicy);
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
   EXPECT_NE(explain({"--help"}).out.find("candidates"), std::string::npos);
}

} // namespace
