// What a run of the program cannot show: an ACL that does something else than the classes of its
// policy say is noticed, whichever of the two has the packet.
#include "postcard/report/explain/ExplainedAcl.h"

#include "support/AclRecords.h"

#include <gtest/gtest.h>

namespace {

using Postcard::Report::ExplainedAcl;
using RulesClientTest::AclRecords;

// A policy with two classes, the first about the sources 10.0.0.0/8.
Postcard::Policy::Policy twoClasses() {
   Postcard::Policy::Policy policy;
   policy.classes.resize(2);
   for (U32 i = 0; i < 2; ++i) {
      policy.classes[i].name.text = i == 0 ? "ten" : "rest";
      policy.classes[i].priority = i;
      policy.classes[i].ipv4.emplace();
   }
   policy.classes[0].ipv4->source = {{Orlix::IpGenPrefix{"10.0.0.0/8"}, {}}};
   return policy;
}

// What is said of a packet when the ACL has one rule of this name, or none without a name.
std::string said(const std::string& rule, const char* packet) {
   const Postcard::Policy::Policy policy = twoClasses();
   const Postcard::Policy::Hardware hardware;
   AclRecords records{"p-ipv4"};
   if (!rule.empty()) {
      const auto only = records.data()->ruleByNameIs(Pello::String{rule});
      only->ruleFilterIs()->protoIs(OruPostcardTelemetry::Protocol{U8{6}});
      only->ruleActionIs();
      records.data()->ruleByIndexIs(0, only);
   }
   ExplainedAcl acl{policy, Postcard::Policy::Family::ipv4, hardware, *records};
   try {
      const Postcard::Report::Verdict verdict = acl.explain(Postcard::Packets::parsePacket(packet));
      return verdict.entry == nullptr ? "none" : acl.classes()[verdict.matched]->name.text;
   } catch (const std::logic_error& error) {
      return error.what();
   }
}

TEST(ExplainedAcl, rulesThatContradictTheClassesAreNoticed) {
   const std::string defect = "p-ipv4 does something else than its classes say with ";
   const std::string ten = "tcp 10.0.0.1:1 > 5.6.7.8:2";
   const std::string other = "tcp 11.0.0.1:1 > 5.6.7.8:2";
   const std::string icmp = "icmp 10.0.0.1 > 5.6.7.8";
   EXPECT_EQ(said("ten-ipv4-tcp", ten.c_str()), "ten");
   EXPECT_EQ(said("rest-ipv4-tcp", other.c_str()), "rest");
   EXPECT_EQ(said("ten-ipv4-tcp", icmp.c_str()), "none");
   EXPECT_EQ(said("rest-ipv4-tcp", ten.c_str()), defect + ten); // another class
   EXPECT_EQ(said("ten-ipv4-tcp", other.c_str()), defect + other);
   EXPECT_EQ(said("", ten.c_str()), defect + ten); // no rule, but a class
}

} // namespace
