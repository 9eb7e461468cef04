// The platform's string is used like any other string.

#include "Check.h"
#include "Guesses.h"
#include "Kiv/String.h"
#include "Pello/String.h"
#include "PolicyMap/PolicyMapSmKey.h"

#include <algorithm>
#include <string>
#include <type_traits>

using namespace thirdparty;

namespace {

static_assert(std::is_default_constructible_v<Pello::String>);
static_assert(std::is_constructible_v<Pello::String, const char*>);
static_assert(std::is_constructible_v<Pello::String, std::string>);
static_assert(std::is_convertible_v<Pello::String, std::string>);
static_assert(std::is_convertible_v<Kiv::String, Pello::String>);
static_assert(std::is_copy_assignable_v<Pello::String>);
static_assert(!std::is_constructible_v<Pello::String, int*>);

template <typename Position>
bool found(Position position) {
   return static_cast<std::size_t>(position) != std::string::npos;
}

void contents() {
   Pello::String const web{"web-class"};
   CHECK_EQ(web.length(), 9);
   CHECK_EQ(Pello::String{}.length(), 0);
   CHECK_EQ(web[0], 'w');
   CHECK_EQ(web[8], 's');
   CHECK_EQ(web.find("class"), 4);
   CHECK_EQ(web.find("web"), 0);
   CHECK_EQ(web.find('-'), 3);
   CHECK(!found(web.find("dns")));
   CHECK(found(web.find("")));
   CHECK(Pello::String{}.empty());
   CHECK(!web.empty());
}

void comparisons() {
   Pello::String const web{"web"};
   CHECK(web == "web");
   CHECK("web" == web);
   CHECK(web == Pello::String{"web"});
   CHECK(web == std::string{"web"});
   CHECK(web != "dns");
   CHECK(Pello::String{"dns"} < web);
   CHECK(web > Pello::String{"dns"});
   CHECK(!(web < web));
   CHECK(Pello::String{} == "");
   CHECK(Pello::String{"we"} < web);
}

void sums() {
   Pello::String const web{"web"};
   CHECK_EQ(text(web + "-tcp"), "web-tcp");
   CHECK_EQ(text("my-" + web), "my-web");
   CHECK_EQ(text(web + Pello::String{"-udp"}), "web-udp");
   CHECK_EQ(text(web + "-" + web), "web-web");
   // The operands stay what they were.
   CHECK_EQ(text(web), "web");
}

void conversions() {
   Pello::String const web{std::string{"web"}};
   std::string const copied = web;
   CHECK_EQ(copied, "web");
   CHECK_EQ(streamed(web), "web");
   Pello::String assigned{};
   assigned = "dns";
   CHECK_EQ(text(assigned), "dns");
   assigned = web;
   CHECK_EQ(text(assigned), "web");
   Kiv::String const status{"all well"};
   Pello::String const asName = status;
   CHECK_EQ(text(asName), "all well");
   CHECK(status == "all well");
   CHECK(Kiv::String{} == "");
}

// A name alone is a policy's key, not a text that spells a whole key.
void keysFromNames() {
   PolicyMap::PolicyMapSmKey const braces{"p1"};
   PolicyMap::PolicyMapSmKey const parentheses("p1");
   PolicyMap::PolicyMapSmKey const both{"p1", ""};
   CHECK(braces == parentheses);
   CHECK(braces == both);
   CHECK(!(braces == PolicyMap::PolicyMapSmKey{"p2"}));
   CHECK(!(braces == PolicyMap::PolicyMapSmKey{"p1", "g1"}));
   CHECK(braces < PolicyMap::PolicyMapSmKey{"p2"});
   CHECK(contains(text(PolicyMap::PolicyMapSmKey{"p1", "g1"}.strDesc()), "p1"));
}

void strings() {
   contents();
   comparisons();
   sums();
   conversions();
   keysFromNames();
}

const Subject subject{"strings", strings};

} // namespace
