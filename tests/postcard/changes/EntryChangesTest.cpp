// Entries that come, go and move: a table of versions, and a naive count for random ones.
#include "postcard/changes/EntryChanges.h"

#include "support/AclRecords.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <random>

namespace {

using Postcard::Changes::EntryChanges;
using Postcard::Changes::entryChanges;
using RulesClientTest::AclRecords;

// An ACL with a rule for each number, which is the protocol that the rule matches.
AclRecords aclOf(const std::vector<U8>& protocols) {
   AclRecords acl{"p-ipv4"};
   for (const U8 protocol : protocols) {
      acl.rule(protocol);
   }
   return acl;
}

struct Row {
   std::vector<U8> before;
   std::vector<U8> after;
   std::string text;
};

const std::vector<Row> rows = {
      {{}, {}, ""},
      {{6, 17}, {6, 17}, ""},
      {{6},
       {6, 17},
       "   entries: 1 added, 0 removed, 0 moved, 1 kept\n"
       "      + udp any > any  sample\n"},
      {{6, 17, 2},
       {6},
       "   entries: 0 added, 2 removed, 0 moved, 1 kept\n"
       "      - udp any > any  sample\n"
       "      - protocol 2 any > any  sample\n"},
      {{6, 17}, {17, 6}, "   entries: 0 added, 0 removed, 1 moved, 1 kept\n"},
      {{1, 6, 17, 3}, {3, 1, 6, 17}, "   entries: 0 added, 0 removed, 1 moved, 3 kept\n"},
      {{6, 6},
       {6},
       "   entries: 0 added, 1 removed, 0 moved, 1 kept\n"
       "      - tcp any > any  sample\n"},
      {{2},
       {30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41},
       "   entries: 12 added, 1 removed, 0 moved, 0 kept\n"
       "      - protocol 2 any > any  sample\n"
       "      + protocol 30 any > any  sample\n      + protocol 31 any > any  sample\n"
       "      + protocol 32 any > any  sample\n      + protocol 33 any > any  sample\n"
       "      + protocol 34 any > any  sample\n      + protocol 35 any > any  sample\n"
       "      + protocol 36 any > any  sample\n      + protocol 37 any > any  sample\n"
       "      + protocol 38 any > any  sample\n      + protocol 39 any > any  sample\n"
       "      and 2 more added\n"},
};

TEST(EntryChanges, tableOfVersions) {
   for (const Row& row : rows) {
      const AclRecords before = aclOf(row.before);
      const AclRecords after = aclOf(row.after);
      EXPECT_EQ(text(entryChanges(before.data().get(), after.data().get())), row.text);
   }
}

TEST(EntryChanges, noAclHasNoEntries) {
   const AclRecords acl = aclOf({6, 17});
   EXPECT_EQ(json(entryChanges(nullptr, acl.data().get())).dump(),
             R"({"kept":0,"moved":0,"added":["tcp any > any  sample","udp any > any  sample"],)"
             R"("removed":[]})");
   EXPECT_EQ(entryChanges(acl.data().get(), nullptr).removed.size(), 2U);
   EXPECT_TRUE(entryChanges(nullptr, nullptr).none());
}

// The greatest number of entries that both have in one order, by trying out every subset.
std::size_t longestCommon(const std::vector<U8>& a, const std::vector<U8>& b) {
   std::size_t longest = 0;
   for (unsigned subset = 0; subset < 1U << a.size(); ++subset) {
      std::vector<U8> chosen;
      for (std::size_t i = 0; i < a.size(); ++i) {
         if ((subset >> i & 1U) != 0) {
            chosen.push_back(a[i]);
         }
      }
      auto at = b.begin();
      const bool inOrder = std::all_of(chosen.begin(), chosen.end(), [&](U8 each) {
         at = std::find(at, b.end(), each);
         return at != b.end() && (++at, true);
      });
      longest = inOrder ? std::max(longest, chosen.size()) : longest;
   }
   return longest;
}

TEST(EntryChanges, asManyAsPossibleAreKept) {
   std::mt19937 random{5};
   for (int round = 0; round < 500; ++round) {
      std::vector<U8> before(random() % 8);
      std::vector<U8> after(random() % 8);
      std::array<std::size_t, 5> old{};
      std::array<std::size_t, 5> now{};
      for (U8& each : before) {
         each = static_cast<U8>(1 + random() % 5);
         ++old.at(each - 1U);
      }
      for (U8& each : after) {
         each = static_cast<U8>(1 + random() % 5);
         ++now.at(each - 1U);
      }
      std::size_t common = 0;
      for (std::size_t i = 0; i < old.size(); ++i) {
         common += std::min(old.at(i), now.at(i));
      }
      const AclRecords first = aclOf(before);
      const AclRecords second = aclOf(after);
      const EntryChanges changes = entryChanges(first.data().get(), second.data().get());
      EXPECT_EQ(changes.kept, longestCommon(before, after)) << round;
      EXPECT_EQ(changes.kept + changes.moved, common) << round;
      EXPECT_EQ(changes.added.size(), after.size() - common) << round;
      EXPECT_EQ(changes.removed.size(), before.size() - common) << round;
   }
}

} // namespace
