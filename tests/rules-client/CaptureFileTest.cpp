// Capture files: that every frame of the right ones is shown, and what is said of the wrong ones.
#include "rules-client/CaptureFile.h"

#include <gtest/gtest.h>
#include <pcap/pcap.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using RulesClient::CaptureError;
using RulesClient::Packet;
using RulesClient::readCapture;
using RulesClient::Undecodable;

class CaptureFile : public testing::Test {
 protected:
   CaptureFile() {
      char name[] = "/tmp/postcard-capture-XXXXXX";
      folder_ = ::mkdtemp(name);
   }
   ~CaptureFile() override { std::filesystem::remove_all(folder_); }

   std::string path() const { return folder_ + "/capture.pcap"; }

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
   std::string folder_;
   std::string damage_;
};

const std::vector<U8> rawPacket = {0x45, 0, 0,  28, 0, 0, 0, 0,  64, 17, 0, 0, 10, 0,
                                   0,    1, 10, 0,  0, 2, 0, 53, 0,  53, 0, 8, 0,  0};
const std::string rawText = "udp 10.0.0.1:53 > 10.0.0.2:53";

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
   std::ofstream{path()} << "policies: []\n";
   EXPECT_EQ(failure(), path() + ": unknown file format");
   std::ofstream{path()};
   EXPECT_TRUE(failure().starts_with(path() + ": truncated dump file")) << failure();
}

} // namespace
