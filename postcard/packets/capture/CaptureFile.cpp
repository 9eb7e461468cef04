#include "postcard/packets/capture/CaptureFile.h"

#include <pcap/pcap.h>

#include <cstdio>
#include <memory>
#include <span>

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

   // Calls `visit` with each frame until it returns false, or no further frame can be read; unless
   // that is the end of the file, `damage` then says why.
   template <class Visit>
   void forEach(const Visit& visit) {
      pcap_pkthdr* header = nullptr;
      const u_char* bytes = nullptr;
      int result = 0;
      while ((result = ::pcap_next_ex(capture_.get(), &header, &bytes)) == 1) {
         // `caplen` is the number of bytes in the file; `len`, that on the wire, may be greater.
         if (!visit(decodeFrame(linkType_, std::span{bytes, header->caplen}))) {
            return;
         }
      }
      // PCAP_ERROR_BREAK is how libpcap reports the end of a file.
      if (result != PCAP_ERROR_BREAK) {
         damage_ = ::pcap_geterr(capture_.get());
      }
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
   frames.forEach([&](const std::variant<Packet, Undecodable>& frame) {
      visit(frame);
      return true;
   });
   return frames.damage();
}

std::variant<Packet, Undecodable> readFrame(const std::string& path, std::size_t number) {
   Frames frames{path};
   std::variant<Packet, Undecodable> latest;
   std::size_t count = 0;
   frames.forEach([&](const std::variant<Packet, Undecodable>& frame) {
      latest = frame;
      return ++count < number;
   });
   if (count > 0 && count == number) {
      return latest;
   }
   const std::string have = path + ": there is no frame " + std::to_string(number) + ", only " +
                            std::to_string(count) + " can be read";
   throw CaptureError{frames.damage().empty() ? have : have + ": " + frames.damage()};
}

} // namespace Postcard::Packets
