// `postcard explain` and whole captures: totals per rule and class, shares observed and expected,
// and captures that cannot be used.
#include "postcard/cli/ExplainProgram.h"
#include "support/CaptureBytes.h"

#include <nlohmann/json.hpp>

#include <random>

namespace {

using CliTest::ipv4Policy;
using TestSupport::Bytes;
using TestSupport::Capture;
using TestSupport::examples;
using TestSupport::packet;
using Json = nlohmann::json;

class ExplainCapture : public CliTest::Explain {
 protected:
   std::string capture(const Capture& capture) const {
      return folder().write("capture.pcap", TestSupport::textOf(capture.bytes));
   }
};

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

// A file's name is any bytes, and a document has none that are not UTF-8.
TEST_F(ExplainCapture, aCaptureWhoseNameIsNoText) {
   Capture one;
   one.add(packet({}));
   const std::string path = folder().write("caf\xe9.pcap", TestSupport::textOf(one.bytes));
   const auto result = explain({policy(capturePolicy), "--format", "json", "--pcap", path});
   EXPECT_EQ(result.exitCode, 0) << result.err;
   EXPECT_NE(Json::parse(result.out).dump().find("caf\xef\xbf\xbd.pcap"), std::string::npos)
         << result.out;
}

TEST_F(ExplainCapture, aCaptureWithKnownTotals) {
   const std::string path = capture(knownCapture());
   const auto result = explain({policy(capturePolicy), "--pcap", path});
   EXPECT_EQ(result.exitCode, 0) << result.err;
   EXPECT_EQ(result.out,
             path + ": 4675 frames, 4650 packets, 25 undecodable\n"
                    "   IP header truncated: 20\n"
                    "   IP header malformed: 5\n"
                    "   no ACL is asked about: 50\n"
                    "      50 ipv6: policy 'p' has no interfaces for ipv6\n"
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

// 25 candidates of which three have the wanted bits: 8.333; classes behind count what comes to
// them.
TEST_F(ExplainCapture, aShareThatIsNoWholeNumber) {
   Capture frames;
   for (unsigned i = 0; i < 25; ++i) {
      frames.add(packet({.checksum = i < 3 ? 0x100U : i}));
   }
   const std::string file = policy(ipv4Policy + R"(
      - { name: some, actions: [sample], ipv4: { sample: { data: 0x100, mask: 0x107 } } }
      - { name: rest, actions: [sample], ipv4: { sample: { data: 0, mask: 1 } } }
      - { name: never, actions: [sample-all], ipv4: { protocols: [{ protocol: udp }] } }
)");
   const std::string path = capture(frames);
   const auto result = explain({file, "--pcap", path});
   EXPECT_EQ(result.exitCode, 0) << result.err;
   EXPECT_TRUE(result.out.ends_with(
         "p-ipv4: 25 packets, 14 match a rule, 14 sampled\n"
         "   class  candidates     matched     sampled      observed      expected\n"
         "   some           25           3           3      1 in 8.3       1 in 16\n"
         "   rest           22          11          11        1 in 2        1 in 2\n"
         "   never           0           0           0          none        1 in 1\n"
         "   rule 0 some-ipv4-tcp: 3\n"
         "   rule 2 rest-ipv4-tcp: 11\n"))
         << result.out;
   const auto json = explain({file, "--pcap", path, "--format", "json"});
   const Json each = Json::parse(json.out).at("capture").at("acls").at(0).at("classes").at(0);
   EXPECT_DOUBLE_EQ(each.at("observedOneIn").get<double>(), 25.0 / 3);
}

TEST_F(ExplainCapture, aCaptureAsJson) {
   const std::string path = capture(knownCapture());
   const auto result = explain({policy(capturePolicy), "--pcap", path, "--format", "json"});
   EXPECT_EQ(result.exitCode, 0) << result.err;
   Json expected = Json::parse(R"({"schema": 1, "capture": {
      "frames": 4675, "packets": 4650, "cutHeaders": 0, "withoutAcl": 50,
      "withoutAclBy": [{"family": "ipv6", "packets": 50, "code": "no-interfaces",
                        "text": "policy 'p' has no interfaces for ipv6", "guess": null}],
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

// ---- Headers that the capture cut off ----

// Ports in the first, flags in the second; nothing but addresses in the third.
TEST_F(ExplainCapture, headersThatAreCutOffAreCountedWhereTheyBelong) {
   Capture frames;
   for (const std::size_t size : {20U + 4U, 20U + 14U, 20U}) {
      Bytes frame = packet({});
      const auto whole = static_cast<std::uint32_t>(frame.size());
      frame.resize(size);
      frames.add(frame, static_cast<std::uint32_t>(size), whole);
   }
   const std::string path = capture(frames);
   const auto result = explain({policy(capturePolicy), "--pcap", path});
   EXPECT_EQ(result.exitCode, 0) << result.err;
   EXPECT_EQ(result.out,
             path + ": 3 frames, 3 packets, 0 undecodable\n"
                    "   TCP or UDP header cut off: 3 of the packets\n"
                    "\n"
                    "p-ipv4: 3 packets, 3 match a rule, 0 sampled\n"
                    "   class  candidates     matched     sampled      observed      expected\n"
                    "   web             2           0           0          none        1 in 8\n"
                    "   dns             0           0           0          none        1 in 1\n"
                    "   rest            3           3           0          none          none\n"
                    "   rule 2 rest-ipv4-tcp: 3\n");
}

// ---- One frame ----

TEST_F(ExplainCapture, oneFrameIsExplainedAsAPacket) {
   const std::string file = policy(capturePolicy);
   const std::string path =
         capture(Capture{}.add(packet({.checksum = 8})).add(packet({.checksum = 9})).add({0x45}));
   const auto frame = [&](const std::string& number, std::vector<std::string> more = {}) {
      more.insert(more.begin(), {file, "--pcap", path, "--frame", number});
      return explain(more);
   };
   const auto first = frame("1", {"--expect", "class=web"});
   EXPECT_EQ(first.exitCode, 0) << first.err;
   EXPECT_NE(first.out.find("      class web: yes, rule 0 "), std::string::npos) << first.out;
   EXPECT_EQ(first.out.find("left out"), std::string::npos) << first.out;
   const auto second = frame("2", {"--expect", "class=web"});
   EXPECT_EQ(second.exitCode, 1);
   EXPECT_NE(second.err.find("class 'rest' of ACL p-ipv4 has it and does not sample it\n"),
             std::string::npos)
         << second.err;
   EXPECT_EQ(frame("3").out, "a frame that gives no packet\n"
                             "   no ACL is asked about this packet: IP header truncated\n");
   const auto none = frame("4");
   EXPECT_EQ(none.exitCode, 2);
   EXPECT_EQ(none.err, path + ": there is no frame 4, only 3 can be read\n");
   EXPECT_EQ(frame("0").err, "postcard explain: --frame: the first frame has the number 1\n");
   EXPECT_EQ(frame("one").exitCode, 2);
}

TEST_F(ExplainCapture, optionsThatNeedEachOther) {
   const std::string file = policy(capturePolicy);
   const auto frame = explain({file, "--packet", "icmp 1.2.3.4 > 5.6.7.8", "--frame", "1"});
   EXPECT_EQ(frame.exitCode, 2);
   EXPECT_TRUE(frame.err.starts_with("postcard explain: --frame requires --pcap\n")) << frame.err;
   const auto expect =
         explain({file, "--pcap", capture(knownCapture()), "--expect", "not-sampled"});
   EXPECT_EQ(expect.exitCode, 2);
   EXPECT_EQ(expect.err, "postcard explain: --expect is about single packets; choose one of the "
                         "capture with --frame N\n");
   EXPECT_EQ(explain({file, "--pcap", ""}).exitCode, 2);
   EXPECT_EQ(explain({file, "--pcap", "", "--expect", "sampled"}).err, expect.err);
}

// ---- The examples ----

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

TEST_F(ExplainCapture, rulesAndReasonsAgreeOnTheExamples) {
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
TEST_F(ExplainCapture, theObservedShareComesNearTheExpectedOne) {
   const std::string file = policy(ipv4Policy + "      - { name: c, actions: [sample], ipv4: { "
                                                "sample: { data: 0x10, mask: 0x3d } } }\n");
   const auto result = explain({file, "--pcap", capture(randomCapture()), "--format", "json"});
   const Json each = Json::parse(result.out).at("capture").at("acls").at(0).at("classes").at(0);
   EXPECT_EQ(each.at("expectedOneIn"), 32.0);
   EXPECT_GT(each.at("candidates"), 2000);
   EXPECT_NEAR(each.at("observedOneIn").get<double>(), 32.0, 10.0);
}

TEST_F(ExplainCapture, capturesThatCannotBeUsed) {
   const std::string file = policy(capturePolicy);
   Capture cut = knownCapture();
   cut.bytes.resize(cut.bytes.size() - 7);
   const std::string path = capture(cut);
   const auto result = explain({file, "--pcap", path});
   EXPECT_EQ(result.exitCode, 2);
   EXPECT_TRUE(result.err.starts_with(path + ": truncated dump file")) << result.err;
   EXPECT_TRUE(result.out.starts_with(path + ": 4674 frames")) << result.out;
   Capture huge = Capture{}.add(packet({})).add(packet({}), 0xffffffff, 0xffffffff);
   const std::string hugePath = capture(huge);
   const auto tooLong = explain({file, "--pcap", hugePath});
   EXPECT_EQ(tooLong.exitCode, 2);
   EXPECT_TRUE(tooLong.err.starts_with(hugePath + ": invalid packet capture length"))
         << tooLong.err;
   EXPECT_TRUE(tooLong.out.starts_with(hugePath + ": 1 frames, 1 packets, 0 undecodable"));
   EXPECT_EQ(explain({file, "--pcap", hugePath + "x"}).exitCode, 2);
   const auto wrongLink = explain({file, "--pcap", capture(Capture{105})});
   EXPECT_EQ(wrongLink.exitCode, 2);
   EXPECT_NE(wrongLink.err.find("link type"), std::string::npos);
   EXPECT_EQ(wrongLink.out, "");
   EXPECT_EQ(explain({file, "--pcap", file}).exitCode, 2);
}

} // namespace
