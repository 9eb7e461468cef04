// `readCapture`: walks through the frames of a capture file (pcap or pcapng). Relies on libpcap to
// read the file and on `decodeFrame` to decode the frames. A library of its own, so that who only
// works with packets does not load libpcap.
#pragma once

#include "postcard/packets/PacketFrame.h"

#include <functional>
#include <stdexcept>
#include <string>

namespace Postcard::Packets {

// The file cannot be read as a capture; the text says which file and why.
class CaptureError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// Decodes the frames of the file `path` in order and shows each to `visit`. Returns the empty text,
// or what is wrong with the file behind the frames that were shown: a capture that was cut off ends
// in the middle of a frame. Throws CaptureError for a file that is no capture, or of a link type
// that cannot be decoded.
std::string readCapture(const std::string& path,
                        const std::function<void(const std::variant<Packet, Undecodable>&)>& visit);

} // namespace Postcard::Packets
