// `Acl::AclType`: numbers, names and registration.
#include "Acl/AclType.h"

#include "Acl/TypeModule.h"
#include "Kiv/Exception.h"
#include "Kiv/Format.h"
#include "Kiv/TypeData.h"
#include "Kiv/detail/ValueOps.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <any>
#include <sstream>
#include <string>

namespace Acl {
namespace {

static_assert(sizeof(AclType) == 1);
static_assert(AclType{} == AclType::ipv4);

template <class Error, class Call>
std::string messageOf(Call call) {
   try {
      call();
   } catch (const Error& error) {
      return error.what();
   }
   return "nothing was thrown";
}

struct Known {
   AclType type;
   U32 number;
   std::string name;
};

TEST(AclType, hasOneNumberAndOneNameEach) {
   for (const auto& [type, number, name] :
        {Known{AclType::ipv4, 0, "ipv4"}, Known{AclType::ipv6, 1, "ipv6"}}) {
      EXPECT_EQ(static_cast<U32>(type), number);
      EXPECT_EQ(AclTypeInstance(number), type);
      EXPECT_EQ(AclTypeInstance(name), type);
      EXPECT_EQ(stringValue(type), name);
      EXPECT_EQ(fmt::format("{}", type), name);
      std::ostringstream out;
      out << type;
      EXPECT_EQ(out.str(), name);
      AclType read{};
      sequenceToValue(name, read);
      EXPECT_EQ(read, type);
   }
}

TEST(AclType, genericTextIsInSingleQuotes) {
   EXPECT_EQ(Kiv::valueText(AclType::ipv4), "'ipv4'");
   EXPECT_EQ(Kiv::valueText(AclType::ipv6), "'ipv6'");
   EXPECT_EQ(Kiv::parseValue<AclType>("'ipv6'"), AclType::ipv6);
}

TEST(AclType, refusesWhatItDoesNotKnow) {
   EXPECT_EQ(messageOf<Kiv::RangeError>([] { AclTypeInstance(2); }),
             "Acl::AclType has no enumerator of number 2");
   EXPECT_EQ(messageOf<Kiv::RangeError>([] { AclTypeInstance(256); }),
             "Acl::AclType has no enumerator of number 256");
   for (const std::string name : {"", "IPv4", "ipv4 ", "'ipv4'", "mac"}) {
      EXPECT_EQ(messageOf<Kiv::ParseError>([&] { AclTypeInstance(name); }),
                "Acl::AclType has no enumerator '" + name +
                      "' (expected one of: ipv4, ipv6) at position 0");
   }
}

TEST(AclType, isRegisteredByItsModule) {
   Kiv::registerTypeModule(typeModule());
   const Kiv::TypeData* type = Kiv::findType("Acl::AclType");
   ASSERT_EQ(type, &kivTypeData(std::type_identity<AclType>{}));
   EXPECT_EQ(type->kind, Kiv::TypeKind::enumeration);
   EXPECT_EQ(type->size, 1U);
   EXPECT_EQ(std::any_cast<AclType>(type->defaultObject), AclType::ipv4);
   Kiv::unregisterTypeModule("Acl");
   EXPECT_EQ(Kiv::findType("Acl::AclType"), nullptr);
}

} // namespace
} // namespace Acl
