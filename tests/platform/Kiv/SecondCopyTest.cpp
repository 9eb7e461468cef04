// Two copies of one type library in a process. What is loaded stays, so a child process loads them.
#include "Kiv/TypeRegistry.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <initializer_list>
#include <string>

namespace {

void load(const char* path) {
   if (::dlopen(path, RTLD_NOW | RTLD_LOCAL) == nullptr) {
      std::fprintf(stderr, "%s\n", ::dlerror());
      std::_Exit(2);
   }
}

// Ends with 0 when the types of the copies at `paths` are known, each once.
[[noreturn]] void loadAll(std::initializer_list<const char*> paths) {
   const std::size_t before = Kiv::registeredTypes().size();
   for (const char* path : paths) {
      load(path);
   }
   const bool known =
         Kiv::findType("Twin::Shoe") != nullptr && Kiv::registeredTypes().size() == before + 2;
   std::_Exit(known ? 0 : 3);
}

TEST(SecondCopyDeathTest, oneCopyOfALibraryIsWelcome) {
   EXPECT_EXIT(loadAll({KIV_TWIN_FIRST}), testing::ExitedWithCode(0), "^$");
   EXPECT_EXIT(loadAll({KIV_TWIN_SECOND}), testing::ExitedWithCode(0), "^$");
}

TEST(SecondCopyDeathTest, theSameCopyAgainIsNoSecondOne) {
   EXPECT_EXIT(loadAll({KIV_TWIN_FIRST, KIV_TWIN_FIRST}), testing::ExitedWithCode(0), "^$");
}

TEST(SecondCopyDeathTest, aSecondCopyEndsTheProcess) {
   EXPECT_EXIT(
         loadAll({KIV_TWIN_FIRST, KIV_TWIN_SECOND}), testing::KilledBySignal(SIGABRT),
         "^Kiv/TypeRegistry\\.cpp:[0-9]+: registerLoadedModule: Assertion 'Twin' failed: type "
         "Twin::Shoe is registered twice\n$");
}

} // namespace
