// The small values of the data model: construction, equality, order, hash, text.

#include "Check.h"
#include "Guesses.h"

#include <compare>
#include <sstream>
#include <type_traits>

using namespace OruPostcardTelemetry;
using namespace thirdparty;

namespace {

using Key = PostcardTelemetryPolicyKey;

template <typename Value>
concept Hashable = requires(const Value& value) { value.hash(0u); };

template <typename Value>
concept Ordered = requires(const Value& value) { value < value; };

static_assert(Hashable<Key>);
static_assert(Hashable<DscpDataAndMask>);
static_assert(Hashable<L4Port>);
static_assert(Hashable<L4PortDataMask>);
static_assert(!Hashable<Protocol>);

static_assert(Ordered<Key>);
static_assert(!Ordered<DscpDataAndMask>);
static_assert(!Ordered<L4PortDataMask>);

static_assert(std::is_default_constructible_v<Key>);
static_assert(std::is_default_constructible_v<Protocol>);
static_assert(std::is_copy_constructible_v<L4PortDataMask>);
static_assert(std::is_copy_assignable_v<DscpDataAndMask>);
static_assert(std::is_constructible_v<bool, Key>);
static_assert(std::is_constructible_v<Key, PolicyMap::PolicyMapSmKey, MatchOption>);
static_assert(std::is_constructible_v<Protocol, const char*, const char*>);
static_assert(std::is_constructible_v<L4Port, const char*, const char*>);

const char* const protocolMessage{
      "OruPostcardTelemetry::Protocol::value < OruPostcardTelemetry::Protocol::minProto or > "
      "OruPostcardTelemetry::Protocol::maxProto not allowed"};

// The value that the text of another one spells.
template <typename Value>
Value reread(const Value& value) {
   std::string const spelled{streamed(value)};
   return Value{spelled.data(), spelled.data() + spelled.size()};
}

Protocol protocolOf(const std::string& spelled) {
   return Protocol{spelled.data(), spelled.data() + spelled.size()};
}

void protocols() {
   CHECK_EQ(Protocol{}.value(), 1);
   CHECK_EQ(Protocol{1}.value(), 1);
   CHECK_EQ(Protocol{255}.value(), 255);
   CHECK_EQ(Protocol::minProto, 1);
   CHECK_EQ(Protocol::maxProto, 255);
   CHECK(Protocol{6}.isEq(Protocol{6}));
   CHECK(!Protocol{6}.isEq(Protocol{17}));
   // A number, not the control character with that code.
   CHECK_EQ(streamed(Protocol{6}), "6");
   CHECK_EQ(streamed(Protocol{65}), "65");
}

void protocolRange() {
   CHECK_EQ(raised([] { Protocol{0}; }), protocolMessage);
   CHECK_EQ(raised([] { Protocol{1}; }), "");
   CHECK_EQ(raised([] { Protocol{255}; }), "");
   CHECK_EQ(raised([] { protocolOf("0"); }), protocolMessage);
   CHECK_EQ(protocolOf("17").value(), 17);
   CHECK_EQ(protocolOf("255").value(), 255);
}

void unreadableProtocols() {
   CHECK(!raised([] { protocolOf("six"); }).empty());
   CHECK(!raised([] { protocolOf(""); }).empty());
   CHECK(!raised([] { protocolOf("256"); }).empty());
}

void ports() {
   CHECK_EQ(L4Port{}.value(), 0);
   CHECK_EQ(L4Port{0}.value(), 0);
   CHECK_EQ(L4Port{65535}.value(), 65535);
   CHECK_EQ(L4Port::minPort, 0);
   CHECK_EQ(L4Port::maxPort, 65535);
   CHECK(L4Port{80}.isEq(L4Port{80}));
   CHECK(!L4Port{80}.isEq(L4Port{81}));
   CHECK_EQ(streamed(L4Port{65}), "65");
   CHECK_EQ(streamed(L4Port{65535}), "65535");
   CHECK_EQ(L4Port{80}.hash(0), L4Port{80}.hash(0));
   CHECK_EQ(reread(L4Port{443}).value(), 443);
}

void dscpValues() {
   const DscpDataAndMask none{};
   CHECK(none.isEq(DscpDataAndMask{0, 0}));
   const DscpDataAndMask value{10, 63};
   CHECK(value.dscpData() == Orlix::DscpValue{10});
   CHECK_EQ(value.dscpMask(), 63);
   CHECK(value.isEq(DscpDataAndMask{10, 63}));
   CHECK(!value.isEq(DscpDataAndMask{10, 62}));
   CHECK(!value.isEq(DscpDataAndMask{11, 63}));
   CHECK_EQ(value.hash(7), DscpDataAndMask{10, 63}.hash(7));
   CHECK(reread(value).isEq(value));
   CHECK(contains(streamed(value), "dscpData"));
   CHECK(contains(streamed(value), "dscpMask"));
}

void portMatches() {
   const L4PortDataMask none{};
   CHECK_EQ(none.l4PortData(), 0);
   CHECK_EQ(none.l4PortMask(), 0);
   const L4PortDataMask web{80, 0xffff};
   CHECK_EQ(web.l4PortData(), 80);
   CHECK_EQ(web.l4PortMask(), 65535);
   CHECK(web.isEq(L4PortDataMask{80, 0xffff}));
   CHECK(!web.isEq(L4PortDataMask{80, 0xfffe}));
   CHECK_EQ(web.hash(1), L4PortDataMask{80, 0xffff}.hash(1));
   CHECK(reread(web).isEq(web));
   // The type's name leads the text, then each attribute by its name, in order of declaration.
   std::string const spelled{streamed(web)};
   CHECK(contains(spelled, "OruPostcardTelemetry::L4PortDataMask"));
   CHECK(spelled.find("l4PortData") < spelled.find("l4PortMask"));
}

void unreadableComposites() {
   std::string const noise{"no value at all"};
   const char* const begin{noise.data()};
   const char* const end{noise.data() + noise.size()};
   CHECK(!raised([=] { L4PortDataMask{begin, end}; }).empty());
   CHECK(!raised([=] { DscpDataAndMask{begin, end}; }).empty());
   CHECK(!raised([=] { Key{begin, end}; }).empty());
}

void policyKeys() {
   const Key none{};
   CHECK(!none);
   CHECK(none.option() == ipv4());
   CHECK(none.key() == PolicyMap::PolicyMapSmKey{});
   const Key four{PolicyMap::PolicyMapSmKey{"p1", "g1"}, ipv4()};
   CHECK(static_cast<bool>(four));
   // The empty key with another option is not the default one either.
   CHECK(static_cast<bool>(Key{PolicyMap::PolicyMapSmKey{}, ipv6()}));
   CHECK(four.isEq(Key{PolicyMap::PolicyMapSmKey{"p1", "g1"}, ipv4()}));
   CHECK(!four.isEq(Key{PolicyMap::PolicyMapSmKey{"p1", "g1"}, ipv6()}));
   CHECK(!four.isEq(Key{PolicyMap::PolicyMapSmKey{"p1", "g2"}, ipv4()}));
   CHECK_EQ(four.hash(3), Key(PolicyMap::PolicyMapSmKey{"p1", "g1"}, ipv4()).hash(3));
   CHECK(reread(four).isEq(four));
}

void policyKeyOrder() {
   const Key four{PolicyMap::PolicyMapSmKey{"p1"}, ipv4()};
   const Key six{PolicyMap::PolicyMapSmKey{"p1"}, ipv6()};
   const Key other{PolicyMap::PolicyMapSmKey{"p2"}, ipv4()};
   CHECK(four < six);
   CHECK(!(six < four));
   CHECK(!(four < four));
   // Different policies order by the policy alone, whatever the families.
   CHECK(six < other);
   CHECK((four <=> other) < 0);
   CHECK((six <=> four) > 0);
   CHECK((four <=> four) == 0);
}

void values() {
   protocols();
   protocolRange();
   unreadableProtocols();
   ports();
   dscpValues();
   portMatches();
   unreadableComposites();
   policyKeys();
   policyKeyOrder();
}

const Subject subject{"values", values};

} // namespace
