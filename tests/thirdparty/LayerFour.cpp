// Protocols, ports and TCP flags: one template becomes many numbered rules.

#include "Bench.h"
#include "Check.h"
#include "Orlix/RangeMaskGen.h"

#include <cstdint>
#include <string>
#include <vector>

using namespace OruPostcardTelemetry;
using namespace thirdparty;

namespace {

using Config = PostcardTelemetryAclConfig;
using Generator = Orlix::RangeMaskGen<std::uint16_t>;
using Names = std::vector<std::string>;

std::vector<Generator::Entry> blocks(std::uint16_t low, std::uint16_t high) {
   std::vector<Generator::Entry> out{};
   Generator::run(low, high, out);
   return out;
}

bool is(const Generator::Entry& entry, unsigned data, unsigned end, unsigned mask) {
   return entry.data == data && entry.end == end && entry.mask == mask;
}

void blocksOfRanges() {
   const std::vector<Generator::Entry> ten{blocks(1, 10)};
   CHECK_EQ(ten.size(), 5);
   CHECK(is(ten.at(0), 0x1, 0x1, 0xffff));
   CHECK(is(ten.at(1), 0x2, 0x3, 0xfffe));
   CHECK(is(ten.at(2), 0x4, 0x7, 0xfffc));
   CHECK(is(ten.at(3), 0x8, 0x9, 0xfffe));
   CHECK(is(ten.at(4), 0xa, 0xa, 0xffff));
   CHECK_EQ(blocks(80, 80).size(), 1);
   CHECK(is(blocks(80, 80).at(0), 80, 80, 0xffff));
   CHECK_EQ(blocks(0, 65535).size(), 1);
   CHECK(is(blocks(0, 65535).at(0), 0, 0xffff, 0));
   CHECK_EQ(blocks(1024, 65535).size(), 6);
   CHECK(is(blocks(1024, 65535).front(), 0x400, 0x7ff, 0xfc00));
   CHECK(is(blocks(1024, 65535).back(), 0x8000, 0xffff, 0x8000));
   CHECK_EQ(blocks(65535, 65535).size(), 1);
   CHECK_EQ(blocks(1, 65534).size(), 30);
   CHECK(blocks(10, 9).empty());
   CHECK_EQ(Generator::getMaskBits(8, 10), 1);
   CHECK_EQ(Generator::getMaskBits(0, 65535), 16);
   std::vector<Generator::Entry> kept{blocks(80, 80)};
   Generator::run(443, 443, kept);
   CHECK_EQ(kept.size(), 2);
}

void namesOfPorts() {
   CHECK_EQ(text(ruleNameL4Port("web-tcp", "SportData", L4Port{80})), "web-tcp-SportData-80");
   CHECK_EQ(text(ruleNameL4Port("w", "DportMask", L4Port{65535})), "w-DportMask-65535");
   // A name may become the beginning of the next one.
   Pello::String const name{
         ruleNameL4Port(ruleNameL4Port("w", "SportData", L4Port{0}), "SportMask", L4Port{1})};
   CHECK_EQ(text(name), "w-SportData-0-SportMask-1");
}

// A template for leaf rules and a protocol field to take ports and flags from.
struct Leaves {
   Bench bench;
   Class web{};
   Config::Ptr config{postcardTelemetryAclConfigFactory("p1-acl")};
   RuleConfig::Ptr rule{};

   explicit Leaves(bool tcpFlagsSupported = true) : bench{tcpFlagsSupported} {
      web = addClass(attachedPolicy("p1"), ipv4(), 1, "web");
      rule = config->ruleByNameIs("web");
      rule->ruleFilterIs();
      rule->ruleActionIs()->actionIs(RuleAction::sampleAction);
   }

   std::uint32_t expand(std::uint8_t proto, std::uint32_t index) const {
      return bench.helper->addRulesProtoField(config, rule, web.filter, proto, index);
   }
};

void withoutProtocolField() {
   const Leaves leaves{};
   CHECK_EQ(leaves.expand(6, 3), 4);
   CHECK(namesInOrder(*leaves.config) == Names{"web-tcp"});
   CHECK_EQ(text(leaves.config->ruleByIndex(3)->name()), "web-tcp");
   CHECK_EQ(leaves.config->ruleByIndex(3)->ruleFilter()->proto().value(), 6);
   CHECK(leaves.config->ruleByIndex(3)->ruleAction()->action(RuleAction::sampleAction));
   // A range that only covers the protocol does not name it.
   addProtocols(leaves.web, 6, 17);
   CHECK_EQ(leaves.expand(17, 4), 5);
   CHECK(namesInOrder(*leaves.config) == Names{"web-tcp", "web-udp"});
   CHECK_EQ(leaves.rule->ruleFilter()->proto().value(), 1);
}

void onePair() {
   const Leaves leaves{};
   const auto field = addProtocols(leaves.web, 6, 6);
   leaves.rule->ruleFilter()->sportDataMaskValidIs(true);
   leaves.rule->ruleFilter()->sportDataMaskIs(L4PortDataMask{7, 0xffff});
   CHECK_EQ(leaves.bench.helper->addRulesL4PortDataMask(field, leaves.rule, leaves.config, false,
                                                        L4PortDataMask{}, true,
                                                        L4PortDataMask{80, 0xffff}, false, 2),
            3);
   RuleConfig::Ptr const leaf{leaves.config->ruleByIndex(2)};
   CHECK_EQ(text(leaf->name()), "web-DportData-80-DportMask-65535");
   CHECK(same(leaf, leaves.config->ruleByName("web-DportData-80-DportMask-65535")));
   CHECK(leaf->ruleFilter()->dportDataMaskValid());
   CHECK(leaf->ruleFilter()->dportDataMask().isEq(L4PortDataMask{80, 0xffff}));
   CHECK(leaf->ruleFilter()->sportDataMaskValid());
   CHECK(leaf->ruleFilter()->sportDataMask().isEq(L4PortDataMask{7, 0xffff}));
   CHECK(leaves.config->ruleByName("web"));
}

void pairWithFlags() {
   const Leaves leaves{};
   const auto field = addProtocols(leaves.web, 6, 6);
   addTcpFlags(field, 16, 24);
   addTcpFlags(field, 2, 18);
   CHECK_EQ(leaves.bench.helper->addRulesL4PortDataMask(field, leaves.rule, leaves.config, true,
                                                        L4PortDataMask{80, 0xffff}, true,
                                                        L4PortDataMask{1024, 0xfc00}, true, 7),
            9);
   std::string const pair{"web-SportData-80-SportMask-65535-DportData-1024-DportMask-64512"};
   CHECK(namesInOrder(*leaves.config) ==
         Names{pair + "-tcpFlag-2-tcpFlagMask-18", pair + "-tcpFlag-16-tcpFlagMask-24"});
   CHECK(leaves.config->ruleByIndex(7)->ruleFilter()->tcpFlagAndMask() == tcpFlags(2, 18));
   CHECK(leaves.config->ruleByIndex(8));
   CHECK(!leaves.config->ruleByName(pair.c_str()));
   CHECK(leaves.config->ruleByIndex(8)->ruleFilter()->sportDataMaskValid());
}

void flagsAlone() {
   const Leaves leaves{};
   const auto field = addProtocols(leaves.web, 6, 6);
   addTcpFlags(field, 2, 18);
   CHECK_EQ(leaves.expand(6, 0), 1);
   CHECK(namesInOrder(*leaves.config) == Names{"web-tcp-tcpFlag-2-tcpFlagMask-18"});
   CHECK(!leaves.config->ruleByName("web-tcp"));
   const Leaves plain{false};
   addTcpFlags(addProtocols(plain.web, 6, 6), 2, 18);
   CHECK_EQ(plain.expand(6, 0), 1);
   CHECK(namesInOrder(*plain.config) == Names{"web-tcp"});
   CHECK(plain.config->ruleByIndex(0)->ruleFilter()->tcpFlagAndMask() == tcpFlags(0, 0));
}

void noFlags() {
   const Leaves leaves{};
   const auto field = addProtocols(leaves.web, 6, 6);
   CHECK_EQ(leaves.bench.helper->addRulesTcpFlagField(field, leaves.rule, leaves.config, 5), 5);
   CHECK(!leaves.config->ruleByName("web"));
   CHECK_EQ(count(rulesByIndex(*leaves.config)), 0);
}

void sourceMajorOrder() {
   const Leaves leaves{};
   const auto field = addProtocols(leaves.web, 6, 6);
   addSourcePorts(field, 0, 7, 7);
   addSourcePorts(field, 0, 5, 5);
   addDestinationPorts(field, 0, 80, 82);
   addDestinationPorts(field, 0, 443, 443);
   CHECK_EQ(leaves.expand(6, 0), 6);
   CHECK_EQ(count(rulesByIndex(*leaves.config)), 6);
   std::string const five{"web-tcp-SportData-5-SportMask-65535-DportData-"};
   std::string const seven{"web-tcp-SportData-7-SportMask-65535-DportData-"};
   CHECK(namesInOrder(*leaves.config) ==
         Names{five + "80-DportMask-65534", five + "82-DportMask-65535",
               five + "443-DportMask-65535", seven + "80-DportMask-65534",
               seven + "82-DportMask-65535", seven + "443-DportMask-65535"});
   CHECK(!leaves.config->ruleByName("web-tcp"));
   CHECK(leaves.config->ruleByName("web"));
}

void oneSidedPorts() {
   const Leaves leaves{};
   const auto field = addProtocols(leaves.web, 17, 17);
   addDestinationPorts(field, 0, 53, 53);
   addSourcePorts(field, 1, 123, 123);
   CHECK_EQ(leaves.expand(17, 0), 2);
   CHECK(namesInOrder(*leaves.config) ==
         Names{"web-udp-DportData-53-DportMask-65535", "web-udp-SportData-123-SportMask-65535"});
   CHECK(!leaves.config->ruleByIndex(0)->ruleFilter()->sportDataMaskValid());
   CHECK(!leaves.config->ruleByIndex(1)->ruleFilter()->dportDataMaskValid());
}

void emptyPortEntry() {
   const Leaves leaves{};
   const auto field = addProtocols(leaves.web, 6, 6);
   addPortEntry(field, 0);
   CHECK_EQ(leaves.bench.helper->addRulesPortField(field, leaves.rule, leaves.config, false, 4), 4);
   CHECK_EQ(count(rulesByIndex(*leaves.config)), 0);
   CHECK(leaves.config->ruleByName("web"));
   CHECK(contains(raised([&leaves] { leaves.expand(0, 0); }), "minProto"));
}

void layerFour() {
   blocksOfRanges();
   namesOfPorts();
   withoutProtocolField();
   onePair();
   pairWithFlags();
   flagsAlone();
   noFlags();
   sourceMajorOrder();
   oneSidedPorts();
   emptyPortEntry();
}

const Subject subject{"layer-4 rules", layerFour};

} // namespace
