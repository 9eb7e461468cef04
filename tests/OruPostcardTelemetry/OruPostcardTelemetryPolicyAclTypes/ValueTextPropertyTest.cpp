// The generic text of every value type of the framework: what is printed is read back, whatever
// bytes a name is made of. A text that lost a character is refused at a place inside it, or is that
// of a value, whose own text is read back too.
#include "Kiv/Enumeration.h"
#include "Kiv/Operation.h"
#include "Kiv/TypeData.h"
#include "Kiv/TypeRegistry.h"
#include "support/ValueRows.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <any>
#include <set>
#include <string>
#include <vector>

namespace OruPostcardTelemetry {
namespace {

using Kiv::TypeData;
using Kiv::TypeKind;
using TestSupport::valueRows;

// Of bytes that mean something in a value's text, or in no text at all.
rc::Gen<std::string> hostileText() {
   using namespace std::string_literals;
   return rc::gen::container<std::string>(
         rc::gen::elementOf("\"\\'\n\t\r\0\x01\x7f\x80\xc3\xa9\xff(),= :/.-x7"s));
}

// Small numbers collide; the others are of every length.
std::string numberText() {
   return std::to_string(*rc::gen::oneOf(rc::gen::inRange<U64>(0, 20), rc::gen::arbitrary<U64>()) >>
                         *rc::gen::element(0, 0, 32, 48, 56));
}

std::string prefixText() {
   const auto byte = [] { return std::to_string(*rc::gen::inRange(0, 256)); };
   if (*rc::gen::arbitrary<bool>()) {
      return byte() + "." + byte() + "." + byte() + "." + byte() + "/" +
             std::to_string(*rc::gen::inRange(0, 33));
   }
   return byte() + "::" + byte() + ":" + byte() + "/" + std::to_string(*rc::gen::inRange(0, 129));
}

// A value of the type; its default where what was drawn is none.
std::any anyValueOf(const TypeData& type) {
   try {
      switch (type.kind) {
      case TypeKind::number:
         return type.name == "double" ? std::any{*rc::gen::arbitrary<double>()}
                                      : type.parse(numberText());
      case TypeKind::boolean:
         return *rc::gen::arbitrary<bool>();
      case TypeKind::string:
         return Pello::String{*hostileText()};
      case TypeKind::enumeration:
         return type.parse("'" + Kiv::enumName(*type.enumeration, *rc::gen::arbitrary<U8>()) + "'");
      default:
         break;
      }
      std::vector<Kiv::NamedArgument> arguments;
      for (const Kiv::Parameter& parameter : type.parameters) {
         arguments.push_back({parameter.name, type.name == "Orlix::IpGenPrefix"
                                                    ? std::any{Pello::String{prefixText()}}
                                                    : anyValueOf(*Kiv::findType(parameter.type))});
      }
      return Kiv::makeObject(type, arguments);
   } catch (const Kiv::RangeError&) {
      return type.defaultObject;
   } catch (const Kiv::ParseError&) {
      return type.defaultObject;
   }
}

TEST(ValueRows, areThoseOfAllRegisteredValueTypes) {
   std::set<std::string_view> rows;
   for (const auto& row : valueRows) {
      rows.insert(row.name);
      EXPECT_NE(row.valueIn(Kiv::findType(row.name)->defaultObject), nullptr) << row.name;
   }
   std::set<std::string_view> types;
   for (const TypeData* type : Kiv::registeredTypes()) {
      if (type->kind != TypeKind::entity) {
         types.insert(type->name);
      }
   }
   EXPECT_EQ(rows, types);
}

RC_GTEST_PROP(ValueTextProperty, whatIsPrintedIsReadBack, ()) {
   for (const auto& row : valueRows) {
      const TypeData& type = *Kiv::findType(row.name);
      const std::any value = anyValueOf(type);
      const void* first = row.valueIn(value);
      const bool isOfItsType = first != nullptr;
      RC_ASSERT(isOfItsType);
      const std::string text = type.valueText(first);
      RC_LOG() << row.name << ": " << text << "\n";
      const std::any again = type.parse(text);
      RC_ASSERT(type.equal(row.valueIn(again), first));
      RC_ASSERT(type.valueText(row.valueIn(again)) == text);
   }
}

RC_GTEST_PROP(ValueTextProperty, aTextThatWasCutIsRefusedInside, ()) {
   for (const auto& row : valueRows) {
      const TypeData& type = *Kiv::findType(row.name);
      const std::any value = anyValueOf(type);
      std::string text = type.valueText(row.valueIn(value));
      text.erase(*rc::gen::inRange<std::size_t>(0, text.size()), 1);
      RC_LOG() << row.name << ": " << text << "\n";
      try {
         const std::any other = type.parse(text);
         const std::any again = type.parse(type.valueText(row.valueIn(other)));
         RC_ASSERT(type.equal(row.valueIn(again), row.valueIn(other)));
      } catch (const Kiv::ParseError& error) {
         RC_ASSERT(error.position() <= text.size());
         RC_ASSERT(!error.reason().empty());
      } catch (const Kiv::RangeError& error) {
         RC_ASSERT(!std::string_view{error.what()}.empty());
      }
   }
}

} // namespace
} // namespace OruPostcardTelemetry
