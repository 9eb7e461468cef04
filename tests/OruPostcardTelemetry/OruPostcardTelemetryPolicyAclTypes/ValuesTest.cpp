// Values and enumerations of the data model.
#include "Kiv/Format.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/DscpDataAndMask.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/L4Port.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryPolicyKey.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/Protocol.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RulesClientSm.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <sstream>

namespace OruPostcardTelemetry {
namespace {

using Key = PostcardTelemetryPolicyKey;
using PolicyMap::matchIpAccessGroup;
using PolicyMap::matchIpv6AccessGroup;
using PolicyMap::PolicyMapSmKey;

template <class T>
std::string streamed(const T& value) {
   std::ostringstream out;
   out << value;
   return out.str();
}

// What the error `E` says, or that there was none.
template <class E, class Make>
std::string errorOf(Make make) {
   try {
      make();
      return "no error";
   } catch (const E& error) {
      return error.what();
   }
}

constexpr const char* protocolRange =
      "OruPostcardTelemetry::Protocol::value < OruPostcardTelemetry::Protocol::minProto or > "
      "OruPostcardTelemetry::Protocol::maxProto not allowed";

TEST(ProtocolTest, zeroIsRefusedAsNumberAndAsText) {
   EXPECT_EQ(errorOf<Kiv::RangeError>([] { Protocol{U8{0}}; }), protocolRange);
   EXPECT_EQ(errorOf<Kiv::RangeError>([] { Protocol{"0"}; }), protocolRange);
   EXPECT_EQ(Protocol{U8{1}}.value(), 1);
   EXPECT_EQ(Protocol{U8{255}}.value(), 255);
   EXPECT_EQ(Protocol{"255"}.value(), 255);
   EXPECT_EQ(Protocol{}.value(), 1);
   EXPECT_EQ(Protocol::minProto, 1);
   EXPECT_EQ(Protocol::maxProto, 255);
   for (const char* text : {"", "256", "-1", "x", "6 ", " 6", "+6"}) {
      EXPECT_THROW(Protocol{text}, Kiv::ParseError) << text;
   }
}

TEST(ProtocolTest, streamsAsANumber) {
   EXPECT_EQ(streamed(Protocol{U8{6}}), "6");
   EXPECT_EQ(streamed(Protocol{U8{65}}), "65");
   EXPECT_EQ(fmt::format("{}", Protocol{U8{17}}), "17");
}

TEST(ProtocolTest, cannotBeHashed) {
   EXPECT_EQ(errorOf<Kiv::NotHashable>([] { Kiv::hashOf(Protocol{}, 0); }),
             "OruPostcardTelemetry::Protocol cannot be hashed");
   EXPECT_EQ(Protocol{U8{6}}, Protocol{"6"});
   EXPECT_NE(Protocol{U8{6}}, Protocol{});
}

TEST(L4PortTest, takesEveryNumberOfSixteenBits) {
   EXPECT_EQ(L4Port{}.value(), 0);
   EXPECT_EQ(L4Port::minPort, 0);
   EXPECT_EQ(L4Port::maxPort, 65535);
   for (const U16 port : {U16{0}, U16{443}, U16{65535}}) {
      EXPECT_EQ(streamed(L4Port{port}), std::to_string(port));
      EXPECT_EQ(L4Port{std::to_string(port)}, L4Port{port});
      EXPECT_EQ(L4Port{port}.hash(77), Kiv::hashNumber(port, 0));
   }
   EXPECT_THROW(L4Port{"65536"}, Kiv::ParseError);
   EXPECT_NE(L4Port{U16{1}}, L4Port{U16{2}});
}

TEST(L4PortDataMaskTest, defaultEqualityHashAndText) {
   EXPECT_EQ(L4PortDataMask{}, (L4PortDataMask{0, 0}));
   const L4PortDataMask ports{1024, 65520};
   EXPECT_EQ(ports.l4PortData(), 1024);
   EXPECT_EQ(ports.l4PortMask(), 65520);
   EXPECT_NE(ports, (L4PortDataMask{1024, 0}));
   EXPECT_NE(ports, (L4PortDataMask{0, 65520}));
   EXPECT_EQ(
         ports.hash(9),
         Kiv::HashState{9}.mix(Kiv::hashNumber(1024, 0)).mix(Kiv::hashNumber(65520, 0)).result());
   EXPECT_EQ(streamed(ports),
             "OruPostcardTelemetry::L4PortDataMask(l4PortData=1024, l4PortMask=65520)");
   EXPECT_EQ(L4PortDataMask{streamed(ports)}, ports);
}

TEST(DscpDataAndMaskTest, defaultEqualityHashAndText) {
   EXPECT_EQ(DscpDataAndMask{}, (DscpDataAndMask{Orlix::DscpValue{0}, 0}));
   const DscpDataAndMask dscp{Orlix::DscpValue{46}, 63};
   EXPECT_EQ(dscp.dscpData(), Orlix::DscpValue{46});
   EXPECT_EQ(dscp.dscpMask(), 63);
   EXPECT_NE(dscp, (DscpDataAndMask{Orlix::DscpValue{46}, 0}));
   EXPECT_NE(dscp, (DscpDataAndMask{Orlix::DscpValue{0}, 63}));
   EXPECT_EQ(dscp.hash(9),
             Kiv::HashState{9}.mix(Kiv::hashNumber(46, 0)).mix(Kiv::hashNumber(63, 0)).result());
   EXPECT_EQ(streamed(dscp), "OruPostcardTelemetry::DscpDataAndMask(dscpData=46, dscpMask=63)");
   EXPECT_EQ(DscpDataAndMask{streamed(dscp)}, dscp);
}

const Key webKey{PolicyMapSmKey{"web", "s"}, matchIpv6AccessGroup()};
constexpr const char* webText = "OruPostcardTelemetry::PostcardTelemetryPolicyKey(key=PolicyMap::"
                                "PolicyMapSmKey(name=\"web\", "
                                "scope=\"s\"), option='matchIpv6AccessGroup')";

TEST(PolicyKeyTest, textGoesBothWays) {
   EXPECT_EQ(streamed(webKey), webText);
   EXPECT_EQ(Key{webText}, webKey);
   EXPECT_EQ(Key{webText}.key(), webKey.key());
   EXPECT_EQ(Key{webText}.option(), matchIpv6AccessGroup());
}

// Whether the text is refused with a message that has `part` in it.
template <class T>
void expectRefused(std::string text, std::string_view from, std::string_view to,
                   std::string_view part) {
   const std::size_t at = text.find(from);
   ASSERT_NE(at, std::string::npos);
   text.replace(at, from.size(), to);
   const std::string error = errorOf<Kiv::ParseError>([&] { T{text}; });
   EXPECT_NE(error.find(part), std::string::npos) << text << "\n" << error;
}

// A value is also made from a range of characters, which may be part of a longer text.
template <class Value>
void expectFromRange(const Value& value, const std::string& text) {
   const std::string longer = text + ", and more";
   EXPECT_EQ((Value{longer.data(), longer.data() + text.size()}), value);
   EXPECT_EQ((Value{text.begin(), text.end()}), value);
   EXPECT_EQ((Value{text.cbegin(), text.end()}), value);
   const Pello::String shared{text};
   EXPECT_EQ((Value{shared.begin(), shared.end()}), value);
   EXPECT_THROW((Value{text.data(), text.data()}), Kiv::ParseError);
   EXPECT_THROW((Value{longer.data(), longer.data() + longer.size()}), Kiv::ParseError);
   static_assert(!std::is_convertible_v<const char*, Value>);
   // Two literals are two texts, not the ends of one.
   static_assert(!std::is_constructible_v<Value, const char(&)[3], const char(&)[3]>);
   static_assert(!std::is_constructible_v<Value, const char*, std::nullptr_t>);
   static_assert(std::is_constructible_v<Value, const char(&)[3], const char*>);
}

TEST(CharacterRangeTest, everyValueIsReadFromOne) {
   expectFromRange(Protocol{U8{17}}, "17");
   expectFromRange(L4Port{443}, "443");
   for (const L4PortDataMask value : {L4PortDataMask{}, L4PortDataMask{80, 0xffff}}) {
      expectFromRange(value, streamed(value));
   }
   expectFromRange(DscpDataAndMask{46, 63}, streamed(DscpDataAndMask{46, 63}));
   const PostcardTelemetryPolicyKey key{PolicyMap::PolicyMapSmKey{"p", "s"},
                                        PolicyMap::matchIpv6AccessGroup()};
   expectFromRange(key, streamed(key));
   const std::string zero = "0";
   EXPECT_THROW((Protocol{zero.data(), zero.data() + 1}), Kiv::RangeError);
}

// Two zeros are numbers, not an empty range.
TEST(CharacterRangeTest, plainNumbersAreNotARange) {
   EXPECT_EQ((DscpDataAndMask{0, 0}), DscpDataAndMask{});
   EXPECT_EQ((L4PortDataMask{0, 0}), L4PortDataMask{});
   EXPECT_EQ((DscpDataAndMask{10, 63}), (DscpDataAndMask{Orlix::DscpValue{10}, 63}));
}

TEST(CompositeTextTest, wrongTextsAreRefusedWithTheAttribute) {
   expectRefused<Key>(webText, "PolicyKey", "Policy", "OruPostcardTelemetry::PostcardTelemetryPol");
   expectRefused<Key>(webText, "(key=", "(kez=", "(key=");
   expectRefused<Key>(webText, ", option", "; option", "expected \", \"");
   expectRefused<Key>(webText, ", option=", ", options=", "option=");
   expectRefused<Key>(webText, "'matchIpv6AccessGroup'", "'nothing'", "attribute 'option': ");
   expectRefused<Key>(webText, "name=\"web\"", "name=web", "attribute 'key': attribute 'name': ");
   expectRefused<Key>(webText, "')", "'", "expected \")\"");
   expectRefused<Key>(webText, "')", "')x", "expected the end of the text");
   const std::string dscp = "OruPostcardTelemetry::DscpDataAndMask(dscpData=46, dscpMask=63)";
   expectRefused<DscpDataAndMask>(dscp, "46", "256", "attribute 'dscpData': ");
   expectRefused<DscpDataAndMask>(dscp, "63", "x", "attribute 'dscpMask': ");
   expectRefused<DscpDataAndMask>(dscp, "dscpMask", "mask", "dscpMask=");
   expectRefused<DscpDataAndMask>(dscp, ", ", ",", "expected \", \"");
   expectRefused<DscpDataAndMask>(dscp, "Dscp", "dscp", "DscpDataAndMask(dscpData=");
   const std::string port = "OruPostcardTelemetry::L4PortDataMask(l4PortData=1, l4PortMask=2)";
   expectRefused<L4PortDataMask>(port, "=1", "=65536", "attribute 'l4PortData': ");
   expectRefused<L4PortDataMask>(port, "=2", "=", "attribute 'l4PortMask': ");
   expectRefused<L4PortDataMask>(port, "Data=1, l4PortMask=2", "Mask=2, l4PortData=1",
                                 "l4PortData=");
   expectRefused<L4PortDataMask>(port, port, "", "l4PortData=");
}

TEST(PolicyKeyTest, hashesTheKeysHashThenTheOption) {
   const U64 ofKey =
         Kiv::HashState{0}.mix(Kiv::hashString("web", 0)).mix(Kiv::hashString("s", 0)).result();
   EXPECT_EQ(webKey.hash(77), Kiv::HashState{77}.mix(ofKey).mix(1).result());
   EXPECT_NE(webKey.hash(77), webKey.hash(78));
   EXPECT_EQ(Kiv::hashOf(webKey, 5), webKey.hash(5));
}

TEST(PolicyKeyTest, isTrueUnlessItIsTheDefault) {
   EXPECT_FALSE(Key{});
   EXPECT_FALSE((Key{PolicyMapSmKey{}, matchIpAccessGroup()}));
   EXPECT_TRUE((Key{PolicyMapSmKey{"web", ""}, matchIpAccessGroup()}));
   EXPECT_TRUE((Key{PolicyMapSmKey{"", "s"}, matchIpAccessGroup()}));
   EXPECT_TRUE((Key{PolicyMapSmKey{}, matchIpv6AccessGroup()}));
}

TEST(PolicyKeyTest, ordersByKeyThenOption) {
   const PolicyMapSmKey a{"a", "z"};
   const PolicyMapSmKey b{"b", "a"};
   EXPECT_LT((Key{a, matchIpAccessGroup()}), (Key{a, matchIpv6AccessGroup()}));
   EXPECT_LT((Key{a, matchIpv6AccessGroup()}), (Key{b, matchIpAccessGroup()}));
   EXPECT_LT((Key{a, PolicyMap::ClassMapMatchOption{127}}),
             (Key{a, PolicyMap::ClassMapMatchOption{128}}));
   EXPECT_EQ((Key{a, matchIpAccessGroup()} <=> Key{a, matchIpAccessGroup()}),
             std::strong_ordering::equal);
}

RC_GTEST_PROP(PolicyKeyProperty, equalityOrderAndHashAgree, ()) {
   const auto draw = [] {
      const auto text = [] { return Pello::String{*rc::gen::element<std::string>("", "a", "b")}; };
      return Key{PolicyMapSmKey{text(), text()},
                 static_cast<PolicyMap::ClassMapMatchOption>(*rc::gen::inRange(0, 3))};
   };
   const Key one = draw();
   const Key two = draw();
   RC_ASSERT((one == two) == ((one <=> two) == 0));
   RC_ASSERT(one.isEq(two) == (one == two));
   RC_ASSERT(!(one == two) || one.hash(3) == two.hash(3));
   RC_ASSERT((one < two) == (two > one));
   RC_ASSERT(Key{streamed(one)} == one);
}

template <class E>
struct EnumRow {
   E value;
   U32 number;
   std::string name;
};

// All that can be done with enumerators; `instance` makes them from a number or a name.
template <class E, std::size_t count, class Instance>
void expectEnum(const EnumRow<E> (&rows)[count], Instance instance) {
   static_assert(sizeof(E) == 1);
   for (const auto& [value, number, name] : rows) {
      EXPECT_EQ(static_cast<U32>(value), number);
      EXPECT_EQ(stringValue(value), name);
      EXPECT_EQ(instance(U32{number}), value);
      EXPECT_EQ(instance(std::string_view{name}), value);
      E out = rows[count - 1].value;
      sequenceToValue(name, out);
      EXPECT_EQ(out, value);
      const std::string text{name};
      out = rows[count - 1].value;
      sequenceToValue(text.begin(), text.end(), out);
      EXPECT_EQ(out, value);
      EXPECT_EQ(streamed(value), name);
      EXPECT_EQ(fmt::format("{}", value), name);
   }
   EXPECT_THROW(instance(U32{count}), Kiv::RangeError);
   EXPECT_THROW(instance(U32{256}), Kiv::RangeError);
   EXPECT_THROW(instance(std::string_view{"none"}), Kiv::ParseError);
   EXPECT_THROW(instance(std::string_view{""}), Kiv::ParseError);
}

TEST(EnumerationsTest, action) {
   const EnumRow<RuleAction::Action> rows[] = {{RuleAction::sampleAction, 0, "sampleAction"},
                                               {RuleAction::policeAction, 1, "policeAction"},
                                               {RuleAction::setDscpAction, 2, "setDscpAction"}};
   expectEnum(rows, [](auto from) { return ActionInstance(from); });
   expectEnum(rows, [](auto from) { return RuleAction::ActionInstance(from); });
}

TEST(EnumerationsTest, statusType) {
   const EnumRow<PostcardTelemetryRulesClientSmStatusType> rows[] = {
         {statusSuccess, 0, "statusSuccess"}, {statusFailure, 1, "statusFailure"}};
   expectEnum(rows,
              [](auto from) { return PostcardTelemetryRulesClientSmStatusTypeInstance(from); });
}

TEST(EnumerationsTest, event) {
   const EnumRow<PostcardTelemetryRulesClientSmEvent> rows[] = {
         {policyCreate, 0, "policyCreate"},
         {policyUpdate, 1, "policyUpdate"},
         {policyDelete, 2, "policyDelete"},
         {policyIntfUpdate, 3, "policyIntfUpdate"}};
   expectEnum(rows, [](auto from) { return PostcardTelemetryRulesClientSmEventInstance(from); });
}

} // namespace
} // namespace OruPostcardTelemetry
