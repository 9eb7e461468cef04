// Which class a rule was made for, read from its name: for names as written here, and for those
// that the helper's own function makes.
#include "postcard/host/RuleNames.h"

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Naming.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Postcard::Host::classOfRule;
using Postcard::Policy::Family;

TEST(RuleNames, theClassIsWhatStandsBeforeTheLastFamily) {
   struct Row {
      const char* rule;
      Family family;
      const char* expected;
   };
   const Row rows[] = {
         {"web-ipv4-tcp", Family::ipv4, "web"},
         {"web-ipv6-udp", Family::ipv6, "web"},
         {"web-ipv4-udp-SportData-53-SportMask-65535", Family::ipv4, "web"},
         {"a-ipv4-tcp-ipv4-udp", Family::ipv4, "a-ipv4-tcp"},
         {"a-ipv6-b-ipv4-tcp", Family::ipv4, "a-ipv6-b"},
         {"a-ipv4-b-ipv6-tcp", Family::ipv6, "a-ipv4-b"},
         {"-ipv6--ipv6-udp", Family::ipv6, "-ipv6-"},
         {"-ipv4-tcp", Family::ipv4, ""},
         // No name of a rule of this family.
         {"web-ipv4-tcp", Family::ipv6, "web-ipv4-tcp"},
         {"web-ipv4", Family::ipv4, "web-ipv4"},
         {"web", Family::ipv4, "web"},
         {"", Family::ipv4, ""},
   };
   for (const Row& row : rows) {
      EXPECT_EQ(classOfRule(row.rule, row.family), row.expected) << row.rule;
   }
}

TEST(RuleNames, readsWhatTheHelperWrites) {
   const std::vector<std::string> classes = {"web", "a-ipv4", "a-ipv4-tcp", "-ipv6-", "ipv4", "-"};
   const std::vector<std::string> rests = {"-tcp", "-udp-DportData-2-DportMask-65534"};
   for (const std::string& name : classes) {
      for (const Family family : {Family::ipv4, Family::ipv6}) {
         const auto type = static_cast<Acl::AclType>(family);
         for (const std::string& rest : rests) {
            const std::string rule{
                  OruPostcardTelemetry::ruleName(Pello::String{name}, type).view()};
            EXPECT_EQ(classOfRule(rule + rest, family), name) << rule + rest;
         }
      }
   }
}

} // namespace
