// A page holds what the command says elsewhere, and the rules of the ACLs field by field. What a
// browser makes of it is tested in browser/.
#include "postcard/report/page/Page.h"

#include "postcard/analysis/CompiledAcl.h"
#include "postcard/policy/Classes.h"
#include "postcard/policy/file/PolicyFile.h"
#include "postcard/report/page/PageReader.h"
#include "support/Examples.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <memory>

namespace {

using namespace Postcard;
using AnalysisTest::CompiledAcl;
using OruPostcardTelemetry::RuleConfig;
using PageTest::PageReader;
using Policy::Family;
using Json = nlohmann::ordered_json;

// The page of a policy file, and what it was made of.
class MadePage {
 public:
   explicit MadePage(Policy::PolicyFile file) : file_{std::move(file)}, page_{makePage()} {}

   static MadePage ofExample(const std::string& path) {
      return MadePage{*Policy::File::loadPolicyFile(path).policyFile};
   }

   const Policy::PolicyFile& file() const { return file_; }
   Report::Page& page() { return page_; }
   const std::vector<std::unique_ptr<CompiledAcl>>& acls() const { return acls_; }
   const Analysis::Warnings& warnings() const { return warnings_; }
   std::vector<Advice::Advice> advice() const { return Advice::adviceOf(merges_, warnings_); }

 private:
   Report::Page makePage() {
      Report::Scope scope;
      for (const Policy::Policy& policy : file_.policies) {
         scope.policies.push_back(&policy);
      }
      Report::Page page{"postcard 1", "file.yaml", file_, scope};
      Analysis::PacketSpace space;
      for (const Policy::Policy& policy : file_.policies) {
         bool warned = false;
         for (const Family family : {Family::ipv4, Family::ipv6}) {
            if (policy.interfaces(family).empty()) {
               continue;
            }
            auto acl = std::make_unique<CompiledAcl>(policy, family, file_.hardware.tcpFlags);
            if (!acl->message().empty()) {
               continue;
            }
            page.add(space, {policy, family, file_.hardware.tcpFlags, acl->acl()},
                     Classifier::AclTable{acl->acl()});
            if (!std::exchange(warned, true)) {
               warnings_.add(Analysis::warningsOf(policy));
            }
            warnings_.add(Analysis::warningsOf(space, policy,
                                               {family, file_.hardware.tcpFlags,
                                                file_.collector ? &*file_.collector : nullptr}));
            std::ranges::move(Advice::mergesOf(policy, family, file_.hardware.tcpFlags),
                              std::back_inserter(merges_));
            acls_.push_back(std::move(acl));
         }
      }
      return page;
   }

   Policy::PolicyFile file_;
   std::vector<std::unique_ptr<CompiledAcl>> acls_;
   Analysis::Warnings warnings_;
   std::vector<Advice::Advice> merges_;
   Report::Page page_;
};

// What a rule matches, as text, from the rule and from the columns.
std::string textOf(const RuleConfig& rule) {
   const auto& filter = *rule.ruleFilter();
   const bool source = filter.sportDataMaskValid();
   const bool destination = filter.dportDataMaskValid();
   return fmt::format(
         "{} {}:{}/{} {}:{}/{} {}/{}", filter.proto().value(), source,
         filter.sportDataMask().l4PortData(), filter.sportDataMask().l4PortMask(), destination,
         filter.dportDataMask().l4PortData(), filter.dportDataMask().l4PortMask(),
         filter.tcpFlagAndMask().tcpFlag().value(), filter.tcpFlagAndMask().tcpFlagMask().value());
}

std::string textOf(const PageReader& page, std::size_t rule) {
   return fmt::format("{} {}:{}/{} {}:{}/{} {}/{}", page.at("protocol", rule),
                      (page.at("ports", rule) & 1) != 0, page.at("sourceData", rule),
                      page.at("sourceMask", rule), (page.at("ports", rule) & 2) != 0,
                      page.at("destinationData", rule), page.at("destinationMask", rule),
                      page.at("flagsData", rule), page.at("flagsMask", rule));
}

std::string originText(const PageReader& page, std::size_t rule) {
   return fmt::format("{}:{} entry {} {}-{} {}-{}", page.at("line", rule), page.at("column", rule),
                      page.at("entry", rule), page.at("sourceLow", rule),
                      page.at("sourceHigh", rule), page.at("destinationLow", rule),
                      page.at("destinationHigh", rule));
}

std::string originText(const Host::RuleOrigin& origin) {
   const Policy::NumberRange none;
   const Policy::NumberRange& source = origin.source == nullptr ? none : *origin.source;
   const Policy::NumberRange& destination =
         origin.destination == nullptr ? none : *origin.destination;
   return fmt::format("{}:{} entry {} {}-{} {}-{}", origin.location().line,
                      origin.location().column, origin.entryNumber, source.low, source.high,
                      destination.low, destination.high);
}

TEST(Page, holdsEveryRuleOfEveryExample) {
   for (const auto& path : TestSupport::examplePolicies()) {
      MadePage made = MadePage::ofExample(path);
      const PageReader page{html(made.page())};
      std::size_t rule = 0;
      std::size_t number = 0;
      for (const Json& acl : page.document().at("acls")) {
         const auto& compiled = made.acls().at(number++);
         EXPECT_EQ(acl.at("names"), Json::object()) << path; // all of them are made of the fields
         const auto& policy = *std::ranges::find_if(made.file().policies, [&](const auto& each) {
            return each.name.text == acl.at("policy");
         });
         const Family family = acl.at("family") == "ipv6" ? Family::ipv6 : Family::ipv4;
         Host::forEachRule(
               {policy, family, made.file().hardware.tcpFlags, compiled->acl()},
               [&](U32 /*index*/, const RuleConfig& each, const Host::RuleOrigin& origin) {
                  EXPECT_EQ(textOf(page, rule), textOf(each)) << each.name().view();
                  EXPECT_EQ(originText(page, rule), originText(origin));
                  const Json& which = acl.at("classes").at(page.at("class", rule));
                  EXPECT_EQ(which.at("name"), origin.which->name.text);
                  EXPECT_EQ(page.at("actions", rule) & 1, samples(*origin.which) ? 1U : 0U);
                  ++rule;
               });
      }
      EXPECT_EQ(page.document().at("rules"), rule);
      for (const auto& [name, numbers] : page.columns()) {
         EXPECT_EQ(numbers.size(), rule) << name;
      }
   }
}

TEST(Page, holdsTheDocumentsOfTheCommand) {
   for (const auto& path : TestSupport::examplePolicies()) {
      MadePage made = MadePage::ofExample(path);
      made.page().refusedIs({{"p", Family::ipv6, "no"}});
      const Json document = PageReader{html(made.page())}.document();
      EXPECT_EQ(document.at("cost"), json(made.page().cost()));
      EXPECT_EQ(document.at("cost").at("refused").size(), 1U);
      EXPECT_EQ(document.at("warnings"), json(made.warnings()));
      EXPECT_EQ(document.at("notDecided"), Json::array());
      EXPECT_EQ(document.at("advice"), json(made.advice()));
      EXPECT_EQ(document.at("capture"), nullptr);
      EXPECT_EQ(document.at("scope").at("policies").size(), made.file().policies.size());
   }
}

TEST(Page, aClassIsWrittenAsItIsCompared) {
   const std::string path = POSTCARD_SOURCE_DIR "/examples/all-features.yaml";
   MadePage made = MadePage::ofExample(path);
   const Json document = PageReader{html(made.page())}.document();
   EXPECT_EQ(document.at("acls").at(0).at("classes").at(1).dump(), Json::parse(R"(
      {"name": "first-by-position", "line": 20, "column": 15,
       "actions": ["sample", "set-dscp"], "dscp": 46,
       "source": "10.0.0.0/8", "destination": "192.0.2.0/24",
       "sample": {"field": "checksum", "data": 18, "mask": 255},
       "protocols": [{"protocol": 6,
                      "ports": [{"source": [[1024, 65535]],
                                 "destination": [[80, 80], [443, 443], [8000, 8999]]},
                                {"source": [], "destination": [[53, 53]]},
                                {"source": [[179, 179]], "destination": []}],
                      "flags": [[2, 18], [17, 19]]},
                     {"protocol": 17, "ports": [{"source": [], "destination": [[8080, 8080]]}],
                      "flags": []}]})")
                                                                         .dump());
}

// The names of all rules are listed in a page of which the script could not make them.
TEST(Page, namesThatAreNotMadeOfTheFieldsAreListed) {
   MadePage made = MadePage::ofExample(POSTCARD_SOURCE_DIR "/examples/web-tier.yaml");
   const Policy::Policy& policy = made.file().policies.front();
   CompiledAcl compiled{policy, Family::ipv4};
   const auto rule = compiled.acl().ruleByNameIs("connections-ipv4-odd");
   rule->copy(*compiled.acl().ruleByIndex(6));
   compiled.acl().ruleByIndexIs(6, rule);
   Report::RuleColumns columns;
   const auto names = columns.add({policy, Family::ipv4, true, compiled.acl()},
                                  Classifier::AclTable{compiled.acl()});
   EXPECT_EQ(names, (std::map<std::size_t, std::string>{{6, "connections-ipv4-odd"}}));
}

TEST(Page, hitsOfACaptureAreAColumn) {
   MadePage made = MadePage::ofExample(POSTCARD_SOURCE_DIR "/examples/web-tier.yaml");
   Report::CaptureTotals totals;
   totals.file = "c.pcap";
   totals.frames = 9;
   totals.acls.resize(2);
   totals.acls[0].rules = {{3, "r", 7}};
   totals.acls[1].rules = {{0, "r", 1}, {10, "r", 2}};
   made.page().captureIs(totals);
   const PageReader page{html(made.page())};
   std::vector<std::uint32_t> hits(28);
   hits[3] = 7;
   hits[17] = 1;
   hits[27] = 2;
   EXPECT_EQ(page.columns().at("hits"), hits);
   EXPECT_EQ(page.document().at("capture").at("frames"), 9);
   EXPECT_FALSE(page.document().at("capture").at("acls").at(0).contains("rules"));
}

TEST(Page, aFileWithoutPoliciesHasAPage) {
   const Policy::PolicyFile file;
   Report::Page page{"postcard 1", "\xff.yaml", file, {}};
   const PageReader reader{html(page)};
   EXPECT_EQ(reader.document().at("rules"), 0);
   EXPECT_EQ(reader.document().at("file"), "\xef\xbf\xbd.yaml"); // no UTF-8: U+FFFD
}

// The policy forbids everything but the two parts of the file whose hashes it names.
TEST(Page, allowsNoRequest) {
   const Policy::PolicyFile file;
   const std::string text = html(Report::Page{"postcard 1", "f", file, {}});
   EXPECT_NE(text.find("content=\"default-src 'none'; style-src 'sha256-"), std::string::npos);
   EXPECT_EQ(text.find("://"), std::string::npos);
   EXPECT_EQ(text.find("unsafe"), std::string::npos);
   EXPECT_EQ(text.find('@' + std::string{"DATA@"}), std::string::npos);
}

} // namespace
