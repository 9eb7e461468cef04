// Totals of a capture, printed from values that are written here. How they are counted is shown by
// the tests of the command, which read real captures.
#include "postcard/report/explain/CaptureTotals.h"

#include "postcard/json/Document.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using Postcard::Policy::Family;
using Postcard::Report::AclTotals;
using Postcard::Report::CaptureCounter;
using Postcard::Report::CaptureTotals;
using Postcard::Report::ClassTotals;
using Postcard::Report::ExplainedAcl;
using Postcard::Report::NoAclCause;
using Postcard::Report::Share;

CaptureTotals someTotals() {
   CaptureTotals totals;
   totals.file = "c.pcap";
   totals.frames = 20;
   totals.packets = 17;
   totals.cutHeaders = 1;
   totals.withoutAcl = 2;
   totals.withoutAclBy = {
         {Family::ipv4,
          2,
          {NoAclCause::noInterfaces, "policy 'web' has no interfaces for ipv4", ""}}};
   totals.undecodable[static_cast<std::size_t>(Postcard::Packets::Undecodable::notIp)] = 3;
   AclTotals& acl = totals.acls.emplace_back();
   acl.acl = "web-ipv6";
   acl.policy = "web";
   acl.family = Family::ipv6;
   acl.packets = 15;
   acl.matched = 6;
   acl.sampled = 4;
   acl.classes = {{"sampled", 10, 4, 4, Share{4}}, {"plain", 2, 2, 0, Share{}}};
   acl.rules = {{3, "sampled-ipv6-tcp", 4}, {8, "plain-ipv6-udp", 2}};
   return totals;
}

TEST(CaptureTotals, asText) {
   EXPECT_EQ(text(someTotals()),
             "c.pcap: 20 frames, 17 packets, 3 undecodable\n"
             "   not IP: 3\n"
             "   TCP or UDP header cut off: 1 of the packets\n"
             "   no ACL is asked about: 2\n"
             "      2 ipv4: policy 'web' has no interfaces for ipv4\n"
             "\nweb-ipv6: 15 packets, 6 match a rule, 4 sampled\n"
             "   class    candidates     matched     sampled      observed      expected\n"
             "   sampled          10           4           4      1 in 2.5        1 in 4\n"
             "   plain             2           2           0          none          none\n"
             "   rule 3 sampled-ipv6-tcp: 4\n"
             "   rule 8 plain-ipv6-udp: 2\n");
   EXPECT_EQ(text(CaptureTotals{}), ": 0 frames, 0 packets, 0 undecodable\n");
}

TEST(CaptureTotals, asJson) {
   CaptureTotals totals = someTotals();
   totals.file = "\xff.pcap";
   totals.refused = {{"bad", Family::ipv4, "no"}};
   EXPECT_EQ(nlohmann::json::parse(Postcard::Json::documentText(json(totals))),
             nlohmann::json::parse("{\"schema\": 1, \"capture\": {\"file\": \"\xef\xbf\xbd.pcap\","
                                   R"(
      "frames": 20, "packets": 17, "cutHeaders": 1, "withoutAcl": 2,
      "withoutAclBy": [{"family": "ipv4", "packets": 2, "code": "no-interfaces",
                        "text": "policy 'web' has no interfaces for ipv4", "guess": null}],
      "undecodable": {"not IP": 3},
      "acls": [{"acl": "web-ipv6", "policy": "web", "family": "ipv6",
         "packets": 15, "matched": 6, "sampled": 4,
         "classes": [{"class": "sampled", "candidates": 10, "matched": 4, "sampled": 4,
                      "observedOneIn": 2.5, "expectedOneIn": 4.0},
                     {"class": "plain", "candidates": 2, "matched": 2, "sampled": 0,
                      "observedOneIn": null, "expectedOneIn": null}],
         "rules": [{"index": 3, "name": "sampled-ipv6-tcp", "packets": 4},
                   {"index": 8, "name": "plain-ipv6-udp", "packets": 2}]}]},
      "refused": [{"policy": "bad", "family": "ipv4", "message": "no", "classes": []}]})"));
}

TEST(CaptureCounter, countsPacketsWithoutAclAndFramesThatAreNone) {
   std::vector<ExplainedAcl> none;
   CaptureCounter counter{none, {}};
   counter.count(Postcard::Packets::parsePacket("icmp 10.0.0.1 > 10.0.0.2"));
   counter.count(Postcard::Packets::parsePacket("tcp [::1] > [::2] cut"));
   counter.count(Postcard::Packets::Undecodable::notIp);
   counter.count(Postcard::Packets::Undecodable::ipHeaderBad);
   const CaptureTotals totals = counter.totals();
   EXPECT_EQ(totals.frames, 4U);
   EXPECT_EQ(totals.packets, 2U);
   EXPECT_EQ(totals.cutHeaders, 1U);
   EXPECT_EQ(totals.withoutAcl, 2U);
   ASSERT_EQ(totals.withoutAclBy.size(), 2U);
   EXPECT_EQ(totals.withoutAclBy[0].family, Family::ipv4);
   EXPECT_EQ(totals.withoutAclBy[1].family, Family::ipv6);
   EXPECT_EQ(totals.withoutAclBy[1].packets, 1U);
   EXPECT_EQ(totals.withoutAclBy[1].reason.text, "no policy has interfaces for ipv6");
   EXPECT_EQ(totals.undecodable, (decltype(totals.undecodable){0, 1, 0, 1}));
}

} // namespace
