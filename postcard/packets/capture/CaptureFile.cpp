#include "postcard/packets/capture/CaptureFile.h"

#include <pcap/pcap.h>

#include <cstdio>
#include <memory>

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

} // namespace

std::string
readCapture(const std::string& path,
            const std::function<void(const std::variant<Packet, Undecodable>&)>& visit) {
   const Capture capture = openCapture(path);
   const LinkType linkType = linkTypeOf(capture.get(), path);
   while (true) {
      pcap_pkthdr* header = nullptr;
      const u_char* bytes = nullptr;
      const int result = ::pcap_next_ex(capture.get(), &header, &bytes);
      if (result == PCAP_ERROR_BREAK) { // how libpcap reports the end of a file
         return {};
      }
      if (result != 1) {
         return ::pcap_geterr(capture.get());
      }
      // `caplen` is the number of bytes in the file; `len`, that on the wire, may be greater.
      visit(decodeFrame(linkType, std::span{bytes, header->caplen}));
   }
}

} // namespace Postcard::Packets
