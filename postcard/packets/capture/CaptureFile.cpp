#include "postcard/packets/capture/CaptureFile.h"

#include <pcap/pcap.h>

#include <cstdio>
#include <memory>
#include <optional>

namespace Postcard::Packets {

namespace {

struct CaptureCloser {
   void operator()(pcap_t* capture) const { ::pcap_close(capture); }
};
using Capture = std::unique_ptr<pcap_t, CaptureCloser>;

Capture openCapture(const std::string& path) {
   char reason[PCAP_ERRBUF_SIZE] = "";
   Capture capture{::pcap_open_offline(path.c_str(), reason)};
   if (capture == nullptr) {
      const std::string text{reason};
      // libpcap names the file in some of its messages only.
      throw CaptureError{text.starts_with(path) ? text : path + ": " + text};
   }
   return capture;
}

// Frames of the types DLT_IPV4 and DLT_IPV6 are raw IP as well; `decodeFrame` reads the version
// from the IP header.
LinkType linkTypeOf(pcap_t* capture, const std::string& path) {
   const int type = ::pcap_datalink(capture);
   switch (type) {
   case DLT_EN10MB:
      return LinkType::ethernet;
   case DLT_RAW:
   case DLT_IPV4:
   case DLT_IPV6:
      return LinkType::rawIp;
   case DLT_LINUX_SLL:
      return LinkType::linuxCooked;
   case DLT_LINUX_SLL2:
      return LinkType::linuxCooked2;
   default:
      break;
   }
   const char* name = ::pcap_datalink_val_to_name(type);
   throw CaptureError{path + ": frames of link type " + (name != nullptr ? name : "?") + " (" +
                      std::to_string(type) +
                      ") cannot be decoded; Ethernet, raw IP and Linux cooked can"};
}

// The frames of a capture file, one after the other.
class Frames {
 public:
   explicit Frames(const std::string& path)
      : capture_{openCapture(path)}, linkType_{linkTypeOf(capture_.get(), path)} {}

   // The next frame; absent at the end of the file, and when no further frame can be read: then
   // `damage` says why.
   std::optional<std::variant<Packet, Undecodable>> next() {
      pcap_pkthdr* header = nullptr;
      const u_char* bytes = nullptr;
      const int result = ::pcap_next_ex(capture_.get(), &header, &bytes);
      if (result == 1) {
         // `caplen` is the number of bytes in the file; `len`, that on the wire, may be greater.
         return decodeFrame(linkType_, std::span{bytes, header->caplen});
      }
      // PCAP_ERROR_BREAK is how libpcap reports the end of a file.
      if (result != PCAP_ERROR_BREAK) {
         damage_ = ::pcap_geterr(capture_.get());
      }
      return std::nullopt;
   }
   const std::string& damage() const { return damage_; }

 private:
   Capture capture_;
   LinkType linkType_;
   std::string damage_;
};

} // namespace

std::string
readCapture(const std::string& path,
            const std::function<void(const std::variant<Packet, Undecodable>&)>& visit) {
   Frames frames{path};
   while (const auto frame = frames.next()) {
      visit(*frame);
   }
   return frames.damage();
}

std::variant<Packet, Undecodable> readFrame(const std::string& path, std::size_t number) {
   Frames frames{path};
   std::size_t count = 0;
   while (const auto frame = frames.next()) {
      if (++count == number) {
         return *frame;
      }
   }
   const std::string have = path + ": there is no frame " + std::to_string(number) + ", only " +
                            std::to_string(count) + " can be read";
   throw CaptureError{frames.damage().empty() ? have : have + ": " + frames.damage()};
}

} // namespace Postcard::Packets
