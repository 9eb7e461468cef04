// The helper's messages, read. That the helper writes them so is tested where an agent drives it.
#include "postcard/host/HelperMessage.h"

#include <gtest/gtest.h>

namespace {

using Postcard::Host::HelperMessageKind;
using Postcard::Host::kindOf;

static_assert(kindOf("") == HelperMessageKind::success);
static_assert(kindOf("Unsupported matches : ttl in configuration") ==
              HelperMessageKind::unsupported);
static_assert(kindOf("unsupported") == HelperMessageKind::refusal);
static_assert(kindOf("Rules Data not found for Policy") == HelperMessageKind::refusal);

TEST(HelperMessage, onlyTheBeginningSaysThatSomethingIsUnsupported) {
   EXPECT_EQ(kindOf("the class is Unsupported"), HelperMessageKind::refusal);
   EXPECT_EQ(kindOf("Unsupported"), HelperMessageKind::unsupported);
}

} // namespace
