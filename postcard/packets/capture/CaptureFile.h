// `readCapture`: decodes the frames of a capture file (pcap or pcapng) one by one; `readFrame`: one
// of them. Relies on libpcap to read the file and on `decodeFrame` to decode the frames. This
// folder is a library of its own, so that programs that only work with packets do not load libpcap.
#pragma once

#include "postcard/packets/PacketFrame.h"

#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>

namespace Postcard::Packets {

// The file cannot be read as a capture. The text names the file and says why.
class CaptureError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// Decodes the frames of the file `path` in their order and calls `visit` with each result. Returns
// the empty text at the end of the file, or the error after which no further frame can be read: a
// capture that was cut off ends in the middle of a frame, and the frames before it are good. Throws
// CaptureError, before the first call of `visit`, when the file cannot be opened, is no capture or
// has a link type that `LinkType` does not list. Exceptions of `visit` end the reading and reach
// the caller. Memory does not grow with the file.
std::string readCapture(const std::string& path,
                        const std::function<void(const std::variant<Packet, Undecodable>&)>& visit);

// Decodes the frame of the file `path` that has this number; the first has 1. Throws CaptureError
// when `readCapture` would, and when the file has fewer frames or cannot be read so far. What
// stands behind the frame is not read.
std::variant<Packet, Undecodable> readFrame(const std::string& path, std::size_t number);

} // namespace Postcard::Packets
