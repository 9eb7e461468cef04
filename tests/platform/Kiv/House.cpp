// Defines what House.h declares.
#include "House.h"

#include "Kiv/Reflection.h"

namespace House {

KIV_DEFINE_ENUM(Mode, "House::Mode", {0, "off"}, {1, "on"}, {9, "dim"})
KIV_DEFINE_ENUM(Edge, "House::Edge", {0, "first"}, {63, "last"}, {64, "outside"}, {255, "top"})

namespace {

std::vector<U64> liveObjects() {
   return {Bulb::memAllocationTracker_.live(),      Socket::memAllocationTracker_.live(),
           Slot::memAllocationTracker_.live(),      Counter::memAllocationTracker_.live(),
           Lamp::memAllocationTracker_.live(),      Lantern::memAllocationTracker_.live(),
           Shelf::memAllocationTracker_.live(),     Recipe::memAllocationTracker_.live(),
           Chest::memAllocationTracker_.live(),     LongRecipe::memAllocationTracker_.live(),
           Clinging::memAllocationTracker_.live(),  Bare::memAllocationTracker_.live(),
           Stillborn::memAllocationTracker_.live(), Home::memAllocationTracker_.live(),
           Street::memAllocationTracker_.live()};
}

// The text of what `view` shows; `otherwise` when it shows nothing.
std::string textOf(const Pello::ValueView& view, const std::string& otherwise) {
   if (view.empty()) {
      return otherwise;
   }
   if (const auto* number = view.as<U32>()) {
      return Kiv::valueText(*number);
   }
   if (const auto* text = view.as<Pello::String>()) {
      return text->str();
   }
   if (const auto* color = view.as<Color>()) {
      return Kiv::valueText(*color);
   }
   if (const auto* mode = view.as<Mode>()) {
      return stringValue(*mode);
   }
   if (const auto* bulb = view.as<Pello::Ptr<Bulb>>()) {
      return *bulb == nullptr ? "null" : (*bulb)->name().str();
   }
   if (const auto* bulb = view.as<Pello::Ptr<const Bulb>>()) {
      return *bulb == nullptr ? "null" : (*bulb)->name().str();
   }
   if (const auto* slot = view.as<Pello::Ptr<Slot>>()) {
      return "slot " + std::to_string((*slot)->number());
   }
   if (const auto* socket = view.as<Pello::Ptr<Socket>>()) {
      return *socket == nullptr ? "null" : "socket";
   }
   if (const auto* member = view.as<bool>()) {
      return *member ? "true" : "false";
   }
   return "a value of another type";
}

} // namespace

NothingLeft::NothingLeft() : before_{liveObjects()} {}

NothingLeft::~NothingLeft() {
   EXPECT_EQ(liveObjects(), before_);
}

ChangeLog::ChangeLog(const Lamp& lamp)
   : subscription_{lamp.publisher()->subscribe([this](const Pello::Change& change) {
        const std::string old = textOf(change.oldValue, "");
        lines_.push_back(std::to_string(change.attribute) +
                         (change.key.empty() ? "" : "[" + textOf(change.key, "") + "]") +
                         (change.oldValue.empty() ? " new" : " old=" + old));
     })} {}

} // namespace House

KIV_DEFINE_VALUE(House::Color)
KIV_DEFINE_VALUE(House::Watt)
KIV_DEFINE_VALUE(House::Level)
KIV_DEFINE_VALUE(House::Scene)
KIV_DEFINE_VALUE(House::Fragile)
KIV_DEFINE_VALUE(House::Flag)
KIV_DEFINE_VALUE(House::Clash)
KIV_DEFINE_ENTITY(House::Bulb)
KIV_DEFINE_ENTITY(House::Socket)
KIV_DEFINE_ENTITY(House::Slot)
KIV_DEFINE_ENTITY(House::Counter)
KIV_DEFINE_ENTITY(House::Lamp)
KIV_DEFINE_ENTITY(House::Lantern)
KIV_DEFINE_ENTITY(House::Sealed)
KIV_DEFINE_ENTITY(House::Valve)
KIV_DEFINE_ENTITY(House::Hall)
KIV_DEFINE_ENTITY(House::Shelf)
KIV_DEFINE_ENTITY(House::Home)
KIV_DEFINE_ENTITY(House::Street)
KIV_DEFINE_ENTITY(House::Recipe)
KIV_DEFINE_ENTITY(House::LongRecipe)
KIV_DEFINE_ENTITY(House::Chest)
KIV_DEFINE_ENTITY(House::Clinging)
KIV_DEFINE_ENTITY(House::Bare)
KIV_DEFINE_ENTITY(House::Stillborn)
