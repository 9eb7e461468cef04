// The bytes of frames and the text of packets. Any frame gives a packet or a reason why not, any
// text gives a packet or a ParseError; the text of a packet reads back to an equal one. The first
// byte is the link type, or says that a text follows.
#include "../Require.h"
#include "Kiv/Exception.h"
#include "postcard/packets/PacketFrame.h"

namespace {

using Fuzz::require;

constexpr unsigned linkTypes = 4;

void requireReadsBack(const Postcard::Packets::Packet& packet) {
   const std::string own = printPacket(packet);
   require(Postcard::Packets::parsePacket(own) == packet, "a packet's text reads back", own);
}

// Names of interfaces are kept for ever; an hour of new ones would be taken for a leak.
bool enoughNames(const Postcard::Packets::Packet& packet) {
   constexpr std::size_t enough = 500'000;
   return packet.intf.number() > enough;
}

void readText(std::string_view text) {
   static bool full = false;
   if (full) {
      return;
   }
   Postcard::Packets::Packet packet;
   try {
      packet = Postcard::Packets::parsePacket(text);
   } catch (const Kiv::ParseError& error) {
      require(error.position() <= text.size(), "a place of a mistake lies in the text",
              error.what());
      return;
   }
   full = enoughNames(packet);
   requireReadsBack(packet);
}

void readFrame(Postcard::Packets::LinkType linkType, std::span<const U8> frame) {
   const auto decoded = decodeFrame(linkType, frame);
   if (const auto* reason = std::get_if<Postcard::Packets::Undecodable>(&decoded)) {
      require(undecodableText(*reason) != "?", "every reason has a text");
      return;
   }
   requireReadsBack(std::get<Postcard::Packets::Packet>(decoded));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
   if (size == 0) {
      return 0;
   }
   if (data[0] % (linkTypes + 1) == linkTypes) {
      readText({reinterpret_cast<const char*>(data) + 1, size - 1});
   } else {
      readFrame(static_cast<Postcard::Packets::LinkType>(data[0] % (linkTypes + 1)),
                {data + 1, size - 1});
   }
   return 0;
}
