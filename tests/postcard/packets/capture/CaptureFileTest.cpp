// Capture files: that every frame of the right ones is shown, and what is said of the wrong ones.
#include "postcard/packets/capture/CaptureFile.h"

#include "support/CaptureBytes.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <pcap/pcap.h>
#include <rapidcheck/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

using Postcard::Packets::CaptureError;
using Postcard::Packets::Packet;
using Postcard::Packets::readCapture;
using Postcard::Packets::Undecodable;
using TestSupport::Bytes;
using TestSupport::Capture;
using TestSupport::little;

class CaptureFile : public testing::Test {
 protected:
   std::string path() const { return folder_.path("capture.pcap"); }

   void write(const Bytes& bytes) const {
      folder_.write("capture.pcap", TestSupport::textOf(bytes));
   }

   void write(int linkType, const std::vector<std::vector<U8>>& frames) const {
      pcap_t* const dead = ::pcap_open_dead(linkType, 65535);
      pcap_dumper_t* const dumper = ::pcap_dump_open(dead, path().c_str());
      ASSERT_NE(dumper, nullptr) << ::pcap_geterr(dead);
      for (const auto& frame : frames) {
         pcap_pkthdr header{};
         header.caplen = header.len = static_cast<bpf_u_int32>(frame.size());
         ::pcap_dump(reinterpret_cast<u_char*>(dumper), &header, frame.data());
      }
      ::pcap_dump_close(dumper);
      ::pcap_close(dead);
   }

   std::vector<std::string> read() {
      std::vector<std::string> texts;
      damage_ = readCapture(path(), [&](const std::variant<Packet, Undecodable>& decoded) {
         const auto* packet = std::get_if<Packet>(&decoded);
         texts.push_back(packet != nullptr
                               ? printPacket(*packet)
                               : std::string{undecodableText(std::get<Undecodable>(decoded))});
      });
      return texts;
   }
   const TestSupport::TemporaryFolder& folder() const { return folder_; }
   const std::string& damage() const { return damage_; }

   // Why the file cannot be read.
   std::string failure() {
      try {
         read();
         return "";
      } catch (const CaptureError& error) {
         return error.what();
      }
   }

 private:
   TestSupport::TemporaryFolder folder_;
   std::string damage_;
};

const std::vector<U8> rawPacket = {0x45, 0, 0,  28, 0, 0, 0, 0,  64, 17, 0, 0, 10, 0,
                                   0,    1, 10, 0,  0, 2, 0, 53, 0,  53, 0, 8, 0,  0};
const std::string rawText = "udp 10.0.0.1:53 > 10.0.0.2:53";
const std::string cutText = "udp 10.0.0.1:53 > 10.0.0.2:53 cut";

TEST_F(CaptureFile, everyFrameIsShownInOrder) {
   write(DLT_RAW, {rawPacket, {0x45}, rawPacket, {}});
   EXPECT_EQ(read(), (std::vector<std::string>{rawText, "IP header truncated", rawText,
                                               "IP header truncated"}));
   EXPECT_EQ(damage(), "");
}

TEST_F(CaptureFile, everyLinkTypeIsKnownByItsNumber) {
   const auto behind = [](std::size_t size, std::size_t at) {
      std::vector<U8> frame(size, 0);
      frame[at] = 8;
      frame.insert(frame.end(), rawPacket.begin(), rawPacket.end());
      return frame;
   };
   const std::vector<std::pair<int, std::vector<U8>>> table = {{DLT_EN10MB, behind(14, 12)},
                                                               {DLT_LINUX_SLL, behind(16, 14)},
                                                               {DLT_LINUX_SLL2, behind(20, 0)},
                                                               {DLT_RAW, rawPacket},
                                                               {DLT_IPV4, rawPacket}};
   for (const auto& [linkType, frame] : table) {
      write(linkType, {frame});
      EXPECT_EQ(read(), std::vector<std::string>{rawText}) << linkType;
   }
}

// The frame with this number, or why there is none.
std::string frame(const std::string& path, std::size_t number) {
   try {
      const auto decoded = Postcard::Packets::readFrame(path, number);
      const auto* packet = std::get_if<Packet>(&decoded);
      return packet != nullptr ? printPacket(*packet)
                               : std::string{undecodableText(std::get<Undecodable>(decoded))};
   } catch (const CaptureError& error) {
      return error.what();
   }
}

TEST_F(CaptureFile, aFrameIsFoundByItsNumber) {
   const Bytes other = [] {
      Bytes bytes = rawPacket;
      bytes[15] = 7;
      return bytes;
   }();
   write(DLT_RAW, {rawPacket, {0x45}, other});
   EXPECT_EQ(frame(path(), 1), rawText);
   EXPECT_EQ(frame(path(), 2), "IP header truncated");
   EXPECT_EQ(frame(path(), 3), "udp 10.0.0.7:53 > 10.0.0.2:53");
   EXPECT_EQ(frame(path(), 4), path() + ": there is no frame 4, only 3 can be read");
   EXPECT_EQ(frame(path() + "x", 1), path() + "x: No such file or directory");
   std::filesystem::resize_file(path(), std::filesystem::file_size(path()) - 5);
   EXPECT_EQ(frame(path(), 2), "IP header truncated") << "what is behind it is not read";
   EXPECT_TRUE(frame(path(), 3).starts_with(
         path() + ": there is no frame 3, only 2 can be read: truncated dump file"))
         << frame(path(), 3);
}

TEST_F(CaptureFile, withoutFrames) {
   write(DLT_EN10MB, {});
   EXPECT_EQ(read(), std::vector<std::string>{});
   EXPECT_EQ(damage(), "");
}

TEST_F(CaptureFile, thatWasCutOffShowsWhatIsThere) {
   write(DLT_RAW, {rawPacket, rawPacket});
   std::filesystem::resize_file(path(), std::filesystem::file_size(path()) - 5);
   EXPECT_EQ(read(), std::vector<std::string>{rawText});
   EXPECT_NE(damage().find("truncated dump file"), std::string::npos) << damage();
}

TEST_F(CaptureFile, ofAnotherLinkTypeIsRefused) {
   write(DLT_IEEE802_11, {{1, 2, 3}});
   EXPECT_EQ(failure(), path() + ": frames of link type IEEE802_11 (105) cannot be decoded; "
                                 "Ethernet, raw IP and Linux cooked can");
}

TEST_F(CaptureFile, thatIsNoneIsRefused) {
   EXPECT_EQ(failure(), path() + ": No such file or directory");
   folder().write("capture.pcap", "policies: []\n");
   EXPECT_EQ(failure(), path() + ": unknown file format");
   write(Bytes{});
   EXPECT_TRUE(failure().starts_with(path() + ": truncated dump file")) << failure();
}

// ---- What is wrong inside ----

Bytes operator+(Bytes left, const Bytes& right) {
   left.insert(left.end(), right.begin(), right.end());
   return left;
}

Bytes first(Bytes bytes, std::size_t size) {
   bytes.resize(size);
   return bytes;
}

// A block of a pcapng file. `size` is what it claims in front; 0: the truth.
Bytes block(U32 type, const Bytes& body, U32 size = 0) {
   const auto truth = static_cast<U32>(12 + (body.size() + 3) / 4 * 4);
   Bytes bytes;
   little(bytes, type);
   little(bytes, size == 0 ? truth : size);
   bytes = bytes + body;
   bytes.resize(truth - 4);
   little(bytes, truth);
   return bytes;
}

Bytes section(U32 magic = 0x1a2b3c4d, U32 version = 1) {
   Bytes body;
   little(body, magic);
   little(body, version);
   little(body, 0xffffffff);
   little(body, 0xffffffff);
   return block(0x0a0d0d0a, body);
}

Bytes interface(U32 linkType = 101, U32 snapLength = 65535) {
   Bytes body;
   little(body, linkType);
   little(body, snapLength);
   return block(1, body);
}

Bytes packetBlock(const Bytes& frame, U32 captured, U32 intf = 0) {
   Bytes body;
   little(body, intf);
   little(body, 0);
   little(body, 0);
   little(body, captured);
   little(body, captured);
   return block(6, body + frame);
}

const Bytes ng = section() + interface();
const Bytes ngPacket = packetBlock(rawPacket, 28);
const Bytes oneFrame = Capture{}.add(rawPacket).bytes;

struct Damaged {
   const char* name;
   Bytes bytes;
   std::size_t frames;    // that are shown before it
   const char* complaint; // part of what is said; empty: nothing
};

void PrintTo(const Damaged& damaged, std::ostream* out) {
   *out << damaged.name;
}

class DamagedCapture : public CaptureFile, public testing::WithParamInterface<Damaged> {};

// What stands before the damage is shown, then the damage is named; frames are never made up.
TEST_P(DamagedCapture, isShownUpToTheDamage) {
   write(GetParam().bytes);
   const auto frames = read();
   EXPECT_EQ(frames, std::vector<std::string>(GetParam().frames, rawText));
   EXPECT_EQ(damage().empty(), std::string{GetParam().complaint}.empty());
   EXPECT_NE(damage().find(GetParam().complaint), std::string::npos) << damage();
}

INSTANTIATE_TEST_SUITE_P(
      Pcap, DamagedCapture,
      testing::Values(
            Damaged{"whole", oneFrame, 1, ""}, Damaged{"only the header", Capture{}.bytes, 0, ""},
            Damaged{"record header cut", first(Capture{}.add(rawPacket).add(rawPacket).bytes, 77),
                    1, "truncated"},
            Damaged{"first record header cut", first(oneFrame, 25), 0, "truncated"},
            Damaged{"frame cut", first(oneFrame, oneFrame.size() - 1), 0, "truncated"},
            Damaged{"captured more than fits",
                    Capture{}.add(rawPacket).add(rawPacket, 262145, 262145).bytes, 1, "length"},
            Damaged{"captured 4 GB",
                    Capture{}.add(rawPacket).add(rawPacket, 0xffffffff, 0xffffffff).bytes, 1,
                    "length"},
            Damaged{"captured more than there was",
                    Capture{}.add(rawPacket, 28, 5).add(rawPacket).bytes, 2, ""},
            Damaged{"snap length of 0", Capture{101, 0}.add(rawPacket).bytes, 1, ""},
            Damaged{"snap length of 4 GB", Capture{101, 0xffffffff}.add(rawPacket).bytes, 1, ""}));

INSTANTIATE_TEST_SUITE_P(
      Pcapng, DamagedCapture,
      testing::Values(
            Damaged{"whole", ng + ngPacket + ngPacket, 2, ""},
            Damaged{"without packets", ng, 0, ""},
            Damaged{"unknown block", ng + block(0x77, rawPacket) + ngPacket, 1, ""},
            Damaged{"block cut", ng + ngPacket + first(ngPacket, 50), 1, "truncated"},
            Damaged{"block of no size", ng + ngPacket + Bytes{6, 0, 0, 0, 0, 0, 0, 0}, 1, "length"},
            Damaged{"block of 4 GB", ng + ngPacket + block(6, rawPacket, 0xfffffff0), 1, "size"},
            Damaged{"block with two sizes", ng + ngPacket + block(6, rawPacket, 36), 1, "length"},
            Damaged{"captured more than the block", ng + ngPacket + packetBlock(rawPacket, 500), 1,
                    "too short"},
            Damaged{"captured 4 GB", ng + ngPacket + packetBlock(rawPacket, 0xffffffff), 1,
                    "length"},
            Damaged{"unknown interface", ng + ngPacket + packetBlock(rawPacket, 28, 3), 1,
                    "interface 3"},
            Damaged{"second link type",
                    ng + ngPacket + interface(1) + packetBlock(rawPacket, 28, 1), 1, "type 1"},
            Damaged{"snap length below the packet", section() + interface(101, 5) + ngPacket, 0,
                    "snaplen"}));

// A frame that was cut when it was captured is decoded as far as it goes; one without bytes is
// counted.
TEST_F(CaptureFile, framesThatWereCutWhenTheyWereCaptured) {
   write(Capture{}
               .add({}, 0, 100)
               .add(first(rawPacket, 19), 19, 28)
               .add(first(rawPacket, 24), 24, 28)
               .add(first(rawPacket, 28), 28, 1500)
               .bytes);
   const std::vector<std::string> expected = {"IP header truncated", "IP header truncated", cutText,
                                              rawText};
   EXPECT_EQ(read(), expected);
   EXPECT_EQ(damage(), "");
   write(Capture{101, 10}.add(rawPacket).bytes); // the snap length of the file cuts as well
   EXPECT_EQ(read(), std::vector<std::string>{"IP header truncated"});
}

TEST_F(CaptureFile, whoseBeginningIsWrongIsRefused) {
   Bytes oldVersion = oneFrame;
   oldVersion[4] = 9;
   const std::vector<std::pair<Bytes, std::string>> table = {
         {first(oneFrame, 3), "truncated"},
         {first(oneFrame, 10), "truncated"},
         {first(oneFrame, 23), "truncated"},
         {Bytes(24, 0x11), "unknown file format"},
         {oldVersion, "version 9"},
         {Capture{65000}.bytes, "frames of link type ? (65000) cannot be decoded"},
         {Capture{0}.bytes, "frames of link type NULL (0) cannot be decoded"},
         {first(section(), 11), "unknown file format"},
         {section(0x99999999), "unknown file format"},
         {section(0x1a2b3c4d, 7) + interface() + ngPacket, "version 7"},
         {section(), "no Interface Description"},
         {section() + ngPacket, "before any Interface Description"},
         {first(ng, ng.size() - 3), "truncated"},
         {section() + interface(105), "frames of link type IEEE802_11 (105) cannot be decoded"},
   };
   for (const auto& [bytes, complaint] : table) {
      write(bytes);
      const std::string text = failure();
      EXPECT_TRUE(text.starts_with(path() + ": ")) << text;
      EXPECT_NE(text.find(complaint), std::string::npos) << text << " for " << complaint;
   }
}

// Whatever the bytes are: frames, then perhaps a complaint, or a refusal that names the file.
RC_GTEST_FIXTURE_PROP(CaptureFile, anyBytesAreReadOrRefused, ()) {
   Bytes bytes = *rc::gen::element(oneFrame + oneFrame, ng + ngPacket + ngPacket);
   const auto changes = *rc::gen::container<std::vector<std::pair<std::size_t, U8>>>(
         rc::gen::pair(rc::gen::inRange<std::size_t>(0, bytes.size()), rc::gen::arbitrary<U8>()));
   for (const auto& [at, value] : changes) {
      bytes[at] = value;
   }
   bytes.resize(*rc::gen::inRange<std::size_t>(0, bytes.size() + 1));
   write(bytes);
   try {
      RC_ASSERT(read().size() <= bytes.size() / 16); // no frame takes less than its record
   } catch (const CaptureError& error) {
      RC_ASSERT(std::string{error.what()}.starts_with(path() + ": "));
   }
}

} // namespace
