// What the declarations of attributes give an entity: setters, publication, children, counting.
#include "Kiv/Entity.h"

#include "House.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using House::Bulb;
using House::ChangeLog;
using House::Color;
using House::Lamp;
using House::Lantern;
using House::Shelf;
using House::Socket;

using Lines = std::vector<std::string>;

template <class T>
concept SetsName = requires(T& object) { object.nameIs(Pello::String{}); };
static_assert(!SetsName<Lamp> && !SetsName<Bulb>, "a constant has no setter");
static_assert(std::is_same_v<Lamp::Ptr, Pello::Ptr<Lamp>>);
static_assert(std::is_same_v<Lamp::PtrConst, Pello::Ptr<const Lamp>>);
static_assert(Lamp::kivPublished && Lantern::kivPublished && !Bulb::kivPublished);

class EntityTest : public House::NothingLeft {
 protected:
   Lamp::Ptr lamp = new Lamp{"desk"};
   ChangeLog log{*lamp};
};

TEST_F(EntityTest, startsWithItsDefaults) {
   EXPECT_EQ(lamp->name(), "desk");
   EXPECT_EQ(lamp->color(), (Color{7, House::on}));
   EXPECT_EQ(lamp->kicks(), 0U);
   EXPECT_EQ(lamp->spare(), nullptr);
   EXPECT_EQ(lamp->socket(), nullptr);
   EXPECT_EQ(lamp->main(), nullptr);
   EXPECT_EQ(lamp->bulbs() + lamp->byIndexs() + lamp->notes() + lamp->modes() + lamp->tags() +
                   lamp->slots() + lamp->marks(),
             0U);
   EXPECT_EQ(Bulb("b", 3).age(), 3U);
}

TEST_F(EntityTest, publishesEachEffectiveChangeOnce) {
   lamp->kicksIs(5);
   EXPECT_EQ(log.take(), Lines{"132 old=0"});
   EXPECT_EQ(lamp->kicks(), 5U);
   lamp->kicksIs(5);
   EXPECT_EQ(log.take(), Lines{});
   lamp->colorIs(Color{7, House::on});
   EXPECT_EQ(log.take(), Lines{});
   lamp->colorIs(Color{7, House::dim});
   EXPECT_EQ(log.take(), Lines{"131 old=House::Color(red=7, mode='on')"});
}

TEST_F(EntityTest, comparesReferencesByIdentity) {
   const Bulb::Ptr a = new Bulb{"same"};
   lamp->spareIs(a);
   lamp->spareIs(a);
   EXPECT_EQ(log.take(), Lines{"133 old=null"});
   lamp->spareIs(Bulb::PtrConst{new Bulb{"same"}});
   EXPECT_EQ(log.take(), Lines{"133 old=same"});
   lamp->spareIs(nullptr);
   EXPECT_EQ(log.take(), Lines{"133 old=same"});
   lamp->spareIs(nullptr);
   EXPECT_EQ(log.take(), Lines{});
}

TEST_F(EntityTest, theNewValueIsStoredBeforeItIsPublished) {
   U32 seen = 0;
   const auto subscription =
         lamp->publisher()->subscribe([&](const Pello::Change&) { seen = lamp->kicks(); });
   lamp->kicksIs(9);
   EXPECT_EQ(seen, 9U);
}

TEST_F(EntityTest, theOldObjectLivesUntilItIsPublished) {
   lamp->spareIs(Bulb::PtrConst{new Bulb{"old"}});
   const U64 before = Bulb::memAllocationTracker_.live();
   U64 during = 0;
   const auto subscription = lamp->publisher()->subscribe(
         [&](const Pello::Change&) { during = Bulb::memAllocationTracker_.live(); });
   lamp->spareIs(nullptr);
   EXPECT_EQ(during, before);
   EXPECT_EQ(Bulb::memAllocationTracker_.live(), before - 1);
}

TEST_F(EntityTest, aSubscriberMaySetTheAttributeAgain) {
   const auto subscription = lamp->publisher()->subscribe([&](const Pello::Change&) {
      if (lamp->kicks() < 3) {
         lamp->kicksIs(lamp->kicks() + 1);
      }
   });
   lamp->kicksIs(1);
   EXPECT_EQ(lamp->kicks(), 3U);
   EXPECT_EQ(log.take(), (Lines{"132 old=0", "132 old=1", "132 old=2"}));
}

TEST_F(EntityTest, aSubscriberMayLetGoOfTheLastReference) {
   Lamp::Ptr brief = new Lamp{"brief"};
   int calls = 0;
   const auto subscription = brief->publisher()->subscribe([&](const Pello::Change& change) {
      ++calls;
      brief = nullptr;
      EXPECT_EQ(*change.oldValue.as<U32>(), 0U);
   });
   brief->kicksIs(1);
   EXPECT_EQ(calls, 1);
   EXPECT_EQ(brief, nullptr);
}

TEST_F(EntityTest, whatIsNotPublishedHasNoPublisher) {
   const Bulb::Ptr bulb = new Bulb{"quiet"};
   EXPECT_EQ(bulb->publisher(), nullptr);
   bulb->ageIs(3);
   EXPECT_EQ(bulb->age(), 3U);
   EXPECT_NE(lamp->publisher(), nullptr);
}

TEST_F(EntityTest, aDerivedTypePublishesThroughTheSamePublisher) {
   const Lantern::Ptr lantern = new Lantern{"storm"};
   std::vector<U16> seen;
   const auto subscription = lantern->publisher()->subscribe(
         [&](const Pello::Change& change) { seen.push_back(change.attribute); });
   lantern->handlesIs(2);
   lantern->kicksIs(1);
   lantern->bulbIs("a");
   EXPECT_EQ(seen, (std::vector<U16>{258, 132, 136}));
}

TEST_F(EntityTest, aChildIsMadeOnce) {
   const Socket::Ptr socket = lamp->socketIs();
   EXPECT_EQ(socket->most(), House::Watt{60});
   EXPECT_EQ(log.take(), Lines{"134 old=null"});
   EXPECT_EQ(lamp->socketIs(), socket);
   EXPECT_EQ(lamp->socket(), socket);
   EXPECT_EQ(log.take(), Lines{});
}

TEST_F(EntityTest, aRemovedChildIsHandedOver) {
   const Socket::Ptr socket = lamp->socketIs();
   log.take();
   EXPECT_EQ(lamp->socketDel(), socket);
   EXPECT_EQ(lamp->socket(), nullptr);
   EXPECT_EQ(socket->references(), 1U);
   EXPECT_EQ(log.take(), Lines{"134 old=socket"});
   EXPECT_EQ(lamp->socketDel(), nullptr);
   EXPECT_EQ(log.take(), Lines{});
   EXPECT_NE(lamp->socketIs(), socket);
}

TEST_F(EntityTest, aNewChildThatASubscriberUnlinksIsStillHandedOver) {
   const auto subscription = lamp->publisher()->subscribe([&](const Pello::Change&) {
      lamp->socketDel();
      lamp->mainDel();
   });
   EXPECT_NE(lamp->socketIs(), nullptr);
   EXPECT_EQ(lamp->mainIs("a")->name(), "a");
   EXPECT_EQ(lamp->socket(), nullptr);
   EXPECT_EQ(lamp->main(), nullptr);
}

TEST_F(EntityTest, aNewChildOutlivesAnOwnerThatASubscriberLetsGo) {
   Lamp::Ptr brief = new Lamp{"brief"};
   const auto subscription =
         brief->publisher()->subscribe([&](const Pello::Change&) { brief = nullptr; });
   const Socket::Ptr socket = brief->socketIs();
   ASSERT_NE(socket, nullptr);
   EXPECT_EQ(socket->references(), 1U);
   EXPECT_EQ(brief, nullptr);
}

TEST_F(EntityTest, aNamedChildIsReplacedByOneOfAnotherKey) {
   const Bulb::Ptr x = lamp->mainIs("x");
   x->ageIs(5);
   EXPECT_EQ(lamp->mainIs("x"), x);
   EXPECT_EQ(log.take(), Lines{"135 old=null"});
   const Bulb::Ptr y = lamp->mainIs("y");
   EXPECT_NE(y, x);
   EXPECT_EQ(y->name(), "y");
   EXPECT_EQ(y->age(), 0U);
   EXPECT_EQ(x->references(), 1U);
   EXPECT_EQ(log.take(), Lines{"135 old=x"});
   EXPECT_EQ(lamp->mainDel(), y);
   EXPECT_EQ(lamp->main(), nullptr);
}

TEST_F(EntityTest, collectionsPublishKeyAndOldElement) {
   const Bulb::Ptr bulb = lamp->bulbIs("a");
   lamp->byIndexIs(3, bulb);
   lamp->noteIs(1, "text");
   lamp->noteIs(1, "other");
   lamp->modeIs(House::dim);
   lamp->tagIs("t");
   lamp->slotIs(4);
   lamp->markIs(6);
   EXPECT_EQ(log.take(), (Lines{"136[a] new", "137[3] new", "138[1] new", "138[1] old=text",
                                "139[dim] new", "140[t] new", "141[4] new", "142[6] new"}));
   lamp->bulbDel("a");
   lamp->byIndexDel(3);
   lamp->noteDel(1);
   lamp->modeDel(House::dim);
   lamp->tagDel("t");
   lamp->slotDel(4);
   lamp->markDel(6);
   EXPECT_EQ(log.take(),
             (Lines{"136[a] old=a", "137[3] old=a", "138[1] old=other", "139[dim] old=dim",
                    "140[t] old=t", "141[4] old=slot 4", "142[6] old=true"}));
}

TEST_F(EntityTest, collectionsWithoutEffectPublishNothing) {
   lamp->bulbIs("a");
   lamp->byIndexIs(3, lamp->bulb("a"));
   lamp->noteIs(1, "");
   lamp->markIs(6);
   log.take();
   lamp->bulbIs("a");
   lamp->byIndexIs(3, lamp->bulb("a"));
   lamp->byIndexIs(4, nullptr);
   lamp->noteIs(1, "");
   lamp->markIs(6);
   lamp->bulbDel("b");
   lamp->byIndexDel(lamp->byIndex().end());
   lamp->modeDel(House::on);
   lamp->tagDelAll();
   EXPECT_EQ(log.take(), Lines{});
}

TEST_F(EntityTest, roomIsReservedWithoutAChange) {
   lamp->bulbIs("a");
   log.take();
   lamp->bulbReserve(1000);
   lamp->bulbReserve(0);
   EXPECT_EQ(log.take(), Lines{});
   EXPECT_EQ(lamp->bulb("a")->name(), "a");
}

TEST_F(EntityTest, membershipAndCountStandBesideTheLookUp) {
   lamp->bulbIs("a");
   lamp->modeIs(House::on);
   EXPECT_TRUE(lamp->bulbHas("a") && lamp->mode(House::on) && lamp->modeHas(House::on));
   EXPECT_FALSE(lamp->bulbHas("b") || lamp->mode(House::dim) || lamp->modeHas(House::dim));
   EXPECT_EQ(lamp->bulb("b"), nullptr);
   EXPECT_EQ(lamp->bulbs(), 1U);
   EXPECT_EQ(lamp->note(9), "");
}

TEST_F(EntityTest, allocationIsCountedPerType) {
   const auto& lamps = Lamp::memAllocationTracker_;
   const auto& lanterns = Lantern::memAllocationTracker_;
   const U64 lampsBefore = lamps.live();
   const U64 totalBefore = lanterns.total();
   {
      const Lamp::Ptr seenAsLamp = new Lantern{"storm"};
      EXPECT_EQ(lanterns.live(), 1U);
      EXPECT_EQ(lamps.live(), lampsBefore);
   }
   EXPECT_EQ(lanterns.live(), 0U);
   EXPECT_EQ(lanterns.total(), totalBefore + 1);
   EXPECT_EQ(lanterns.typeName(), "House::Lantern");
   EXPECT_EQ(lanterns.objectSize(), sizeof(Lantern));
}

// Of a type without a tracker of its own: counted, and freed, with its base.
class HeavyBulb : public Bulb {
 public:
   using Bulb::Bulb;
   char weight[600] = {};
};

TEST_F(EntityTest, aLargerDerivedObjectIsCountedWithItsBase) {
   const U64 before = Bulb::memAllocationTracker_.live();
   Bulb::Ptr heavy = new HeavyBulb{"heavy"};
   EXPECT_EQ(Bulb::memAllocationTracker_.live(), before + 1);
   heavy = nullptr;
   EXPECT_EQ(Bulb::memAllocationTracker_.live(), before);
}

TEST_F(EntityTest, anObjectWhoseConstructorThrowsIsNotCounted) {
   const U64 before = House::Stillborn::memAllocationTracker_.total();
   EXPECT_THROW(new House::Stillborn, Kiv::RangeError);
   EXPECT_EQ(House::Stillborn::memAllocationTracker_.live(), 0U);
   EXPECT_EQ(House::Stillborn::memAllocationTracker_.total(), before + 1);
}

} // namespace
