// `Orlix::DscpValue`: a byte that is shown and read as a decimal number.
#include "Orlix/DscpValue.h"

#include "Kiv/Exception.h"
#include "Kiv/Format.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace Orlix {
namespace {

static_assert(sizeof(DscpValue) == 1);

TEST(DscpValue, isZeroByDefault) {
   EXPECT_EQ(DscpValue{}.value(), 0);
   EXPECT_EQ(DscpValue{}, DscpValue{U8{0}});
}

TEST(DscpValue, everyByteIsAcceptedAndReadBack) {
   for (unsigned number = 0; number <= 255; ++number) {
      const DscpValue dscp{static_cast<U8>(number)};
      std::ostringstream out;
      out << dscp;
      EXPECT_EQ(dscp.value(), number);
      EXPECT_EQ(out.str(), std::to_string(number));
      EXPECT_EQ(fmt::format("{}", dscp), out.str());
      EXPECT_EQ(Kiv::valueText(dscp), out.str());
      EXPECT_EQ(DscpValue{std::string_view{out.str()}}, dscp);
      EXPECT_EQ(dscp == DscpValue{U8{46}}, number == 46);
      EXPECT_EQ(dscp.hash(0) == DscpValue{U8{46}}.hash(0), number == 46);
   }
}

TEST(DscpValue, hashIsThatOfItsNumberWhateverTheSeed) {
   EXPECT_EQ(DscpValue{U8{46}}.hash(0), Kiv::hashNumber(46, 0));
   EXPECT_EQ(DscpValue{U8{46}}.hash(7), Kiv::hashNumber(46, 0));
}

struct WrongDscp {
   std::string text;
   std::string message;
};

TEST(DscpValue, refusesWhatIsNoByte) {
   for (const auto& [text, message] : {
              WrongDscp{"", "expected a number at position 0"},
              WrongDscp{" 1", "expected a number at position 0"},
              WrongDscp{"-1", "expected a number at position 0"},
              WrongDscp{"af11", "expected a number at position 0"},
              WrongDscp{"256", "expected a number from 0 to 255 at position 0"},
              WrongDscp{"46 ", "expected the end of the text at position 2"},
        }) {
      try {
         const DscpValue dscp{std::string_view{text}};
         ADD_FAILURE() << '"' << text << "\" was read as " << dscp;
      } catch (const Kiv::ParseError& error) {
         EXPECT_EQ(error.what(), message) << text;
      }
   }
}

} // namespace
} // namespace Orlix
