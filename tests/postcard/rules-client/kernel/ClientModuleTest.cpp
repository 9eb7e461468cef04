// Rules clients in libraries of their own: what is no such library is refused in words.
#include "postcard/rules-client/ClientModule.h"

#include "TestRun.h"

#include <gtest/gtest.h>

namespace {

using namespace Postcard::RulesClient;

std::string refusal(const std::string& file) {
   try {
      openClientModule(file, {});
   } catch (const ClientModuleError& error) {
      return error.what();
   }
   return "none";
}

TEST(ClientModule, whatIsNoRulesClientIsRefused) {
   EXPECT_EQ(
         refusal("/nowhere.so"),
         "the rules client cannot be loaded: /nowhere.so: cannot open shared object file: No such "
         "file or directory (it comes in a package of its own, such as postcard-kernel)");
   const std::string core = POSTCARD_LIB_DIR "/libPostcardCore.so";
   EXPECT_EQ(refusal(core),
             core + " is no rules client: it has no symbol postcardClientPlatformVersion");
}

TEST(ClientModule, theKernelsIsInTheFolderOfModules) {
   EXPECT_TRUE(
         clientModule("PostcardKernel").string().ends_with("lib/postcard/libPostcardKernel.so"));
}

TEST(ClientModule, isOpenedAndWatched) {
   if (const std::string missing = RulesClientTest::missingForKernel(); !missing.empty()) {
      GTEST_SKIP() << missing;
   }
   const auto client = openClientModule(clientModule("PostcardKernel"), {});
   ASSERT_EQ(client->watched().size(), 1U);
   EXPECT_GE(client->watched()[0].descriptor, 0);
   EXPECT_TRUE(client->counters().empty());
}

} // namespace
