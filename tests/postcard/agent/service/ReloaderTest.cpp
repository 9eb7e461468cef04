#include "postcard/agent/service/Reloader.h"

#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <new>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Postcard::Agent::ReloadResult;
using Postcard::Agent::Service::EventLoop;
using Postcard::Agent::Service::Reloader;
using Postcard::Agent::Service::ReloadOptions;

TEST(Reloader, aReloadThatThrowsIsARefusalAndTheNextOneBegins) {
   const TestSupport::TemporaryFolder folder;
   EventLoop loop;
   bool isShort = true;
   Reloader reloader{loop, folder.write("policy.yaml", "policies: []\n"), 0ms, 1000ms,
                     [&](const Postcard::Policy::PolicyFile&, const std::string&, ReloadOptions) {
                        if (isShort) {
                           throw std::bad_alloc{};
                        }
                        ReloadResult result;
                        result.accepted = true;
                        return result;
                     }};
   std::vector<ReloadResult> results;
   const auto keep = [&](const ReloadResult& result) { results.push_back(result); };

   reloader.begin({}, keep);
   ASSERT_EQ(results.size(), 1U);
   EXPECT_FALSE(results[0].accepted);
   EXPECT_EQ(results[0].text(), "the reload failed: std::bad_alloc\n");
   ASSERT_TRUE(reloader.refused());

   isShort = false;
   reloader.begin({}, keep);
   ASSERT_EQ(results.size(), 2U);
   EXPECT_TRUE(results[1].accepted);
   EXPECT_FALSE(reloader.refused());
}

} // namespace
