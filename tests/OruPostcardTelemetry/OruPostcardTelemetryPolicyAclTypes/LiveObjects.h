// `LiveObjects`: a fixture after whose tests as many objects of the data model exist as before.
#pragma once

#include "Kiv/TypeData.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/TypeModule.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace TestSupport {

class LiveObjects : public testing::Test {
 protected:
   void SetUp() override { before_ = live(); }
   void TearDown() override { EXPECT_EQ(live(), before_); }

   // Objects by type name.
   static std::map<std::string, U64> live() {
      std::map<std::string, U64> counts;
      for (const Kiv::TypeData* type : Kiv::registeredTypes()) {
         if (type->tracker != nullptr) {
            counts[std::string{type->name}] = type->tracker->live();
         }
      }
      return counts;
   }

 private:
   std::map<std::string, U64> before_;
};

} // namespace TestSupport
