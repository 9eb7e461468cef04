// What `Pello::Ptr` and `Pello::Counted` promise.
#include "Pello/Ptr.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using Pello::Ptr;

// Writes down who goes, and what the reference given to it shows at that moment.
class Node : public Pello::Counted {
 public:
   Node(std::string called, std::vector<std::string>& gone)
      : name{std::move(called)}, gone_{&gone} {}
   ~Node() override {
      gone_->push_back(
            name + (watched == nullptr || *watched == nullptr ? "" : " sees " + (*watched)->name));
   }
   std::string name;
   const Ptr<Node>* watched = nullptr;

 private:
   std::vector<std::string>* gone_;
};

class Leaf : public Node {
 public:
   using Node::Node;
};

class Pooled : public Pello::Counted {
 public:
   void lastUserGone() const override { ++returned; }
   mutable int returned = 0;
};

using Names = std::vector<std::string>;

static_assert(sizeof(Ptr<Node>) == sizeof(void*));
static_assert(std::is_nothrow_move_constructible_v<Ptr<Node>>);
static_assert(std::is_convertible_v<Ptr<Leaf>, Ptr<Node>>);
static_assert(std::is_convertible_v<Ptr<Node>, Ptr<const Node>>);
static_assert(!std::is_convertible_v<Ptr<Node>, Ptr<Leaf>>, "only dynamicCast goes downwards");
static_assert(!std::is_convertible_v<Ptr<const Node>, Ptr<Node>>, "const is never cast away");
static_assert(!std::is_convertible_v<Ptr<Node>, bool>, "a reference is no number");

TEST(Ptr, theObjectGoesWithItsLastReference) {
   Names gone;
   Ptr<Node> first = new Node{"a", gone};
   EXPECT_EQ(first->references(), 1U);
   Ptr<Node> second = first;
   EXPECT_EQ(first->references(), 2U);
   first = nullptr;
   EXPECT_EQ(second->references(), 1U);
   EXPECT_TRUE(gone.empty());
   second = nullptr;
   EXPECT_EQ(gone, Names{"a"});
}

TEST(Ptr, aNewObjectHasNoReference) {
   Names gone;
   Node unheld{"a", gone};
   EXPECT_EQ(unheld.references(), 0U);
}

TEST(Ptr, nullIsEveryWayNull) {
   const Ptr<Node> values[] = {
         {}, nullptr, Ptr<Node>{static_cast<Node*>(nullptr)}, Ptr<Node>{Ptr<Leaf>{}}};
   for (const Ptr<Node>& null : values) {
      EXPECT_TRUE(null == nullptr);
      EXPECT_FALSE(static_cast<bool>(null));
      EXPECT_EQ(null.get(), nullptr);
      EXPECT_EQ(null, Ptr<Node>{});
   }
}

TEST(Ptr, movingDoesNotCount) {
   Names gone;
   Ptr<Leaf> first = new Leaf{"a", gone};
   Ptr<Leaf> second{std::move(first)};
   EXPECT_EQ(first, nullptr); // NOLINT(bugprone-use-after-move)
   const Ptr<const Node> third{std::move(second)};
   EXPECT_EQ(second, nullptr); // NOLINT(bugprone-use-after-move)
   EXPECT_EQ(third->references(), 1U);
   EXPECT_TRUE(gone.empty());
}

TEST(Ptr, selfAssignmentKeepsTheObject) {
   Names gone;
   Ptr<Node> held = new Node{"a", gone};
   Ptr<Node>& alias = held;
   held = alias;
   held = std::move(alias);
   held = held.get();
   ASSERT_NE(held, nullptr);
   EXPECT_EQ(held->references(), 1U);
   EXPECT_TRUE(gone.empty());
}

TEST(Ptr, assignmentReleasesTheOldObjectLast) {
   Names gone;
   Ptr<Node> held = new Node{"old", gone};
   held->watched = &held;
   held = new Node{"new", gone};
   EXPECT_EQ(gone, Names{"old sees new"});
}

TEST(Ptr, assignmentOfNullShowsNullToTheOldObject) {
   Names gone;
   Ptr<Node> held = new Node{"old", gone};
   held->watched = &held;
   held = nullptr;
   EXPECT_EQ(gone, Names{"old"});
}

TEST(Ptr, comparesIdentity) {
   Names gone;
   const Ptr<Node> a = new Node{"same", gone};
   const Ptr<Node> b = new Node{"same", gone};
   const Ptr<const Node> constant = a;
   EXPECT_NE(a, b);
   EXPECT_TRUE(a == constant && constant == a);
   EXPECT_EQ(&*a, a.get());
   EXPECT_EQ(a->references(), 2U);
}

TEST(Ptr, releaseGivesTheCountAway) {
   Names gone;
   Ptr<Node> held = new Node{"a", gone};
   Node* raw = held.release();
   EXPECT_EQ(held, nullptr);
   EXPECT_EQ(raw->references(), 1U);
   { const Ptr<Node> again{raw}; }
   EXPECT_EQ(raw->references(), 1U);
   EXPECT_TRUE(gone.empty());
   delete raw;
}

TEST(Ptr, dynamicCastFindsTheRealTypeOrNull) {
   Names gone;
   const Ptr<Node> leaf = new Leaf{"leaf", gone};
   const Ptr<Node> node = new Node{"node", gone};
   const Ptr<Leaf> found = Pello::dynamicCast<Leaf>(leaf);
   EXPECT_EQ(found.get(), leaf.get());
   EXPECT_EQ(leaf->references(), 2U);
   EXPECT_EQ(Pello::dynamicCast<Leaf>(node), nullptr);
   EXPECT_EQ(Pello::dynamicCast<Leaf>(Ptr<Node>{}), nullptr);
   const Ptr<const Node> constant = leaf;
   EXPECT_EQ(Pello::dynamicCast<const Leaf>(constant), Ptr<const Leaf>{found});
}

TEST(Ptr, anObjectWithAnotherOwnerIsOnlyToldOf) {
   Pooled pooled;
   {
      const Ptr<Pooled> first{&pooled};
      const Ptr<Pooled> second = first;
   }
   EXPECT_EQ(pooled.returned, 1);
   { const Ptr<Pooled> again{&pooled}; }
   EXPECT_EQ(pooled.returned, 2);
}

TEST(Ptr, aCopiedObjectStartsWithoutReferences) {
   Names gone;
   const Ptr<Node> original = new Node{"a", gone};
   const Node copied{*original}; // NOLINT(performance-unnecessary-copy-initialization)
   EXPECT_EQ(copied.references(), 0U);
   *original = Node{"b", gone};
   EXPECT_EQ(original->references(), 1U);
   EXPECT_EQ(original->name, "b");
}

} // namespace
