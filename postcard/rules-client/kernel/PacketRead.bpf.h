// `readPacket`: the fields of a packet that rules ask for, read from a frame inside the kernel.
// Reads what `Packets::decodeFrame` reads, field by field, and takes no packet where it takes none.
// Relies on the helpers of the kernel.
//
// Headers are read in place while they lie in the first part of the frame's memory. A frame of
// several parts is read through a helper, which knows where each part is.
#pragma once

#include <bpf/bpf_endian.h>
#include <bpf/bpf_helpers.h>

#include <linux/bpf.h>

typedef __u8 U8;
typedef __u16 U16;
typedef __u32 U32;
typedef __u64 U64;

// Bits of `Packet::present`: the words, in the order of PostcardField, then the flags.
enum { sourcePort, destinationPort, checksum, identification, tcpFlags };

struct Packet {
   U64 sourceHigh; // an IPv4 address is the first half of the upper number
   U64 sourceLow;
   U64 destinationHigh;
   U64 destinationLow;
   U32 size;      // of the frame
   U32 at;        // of the header that is read next
   U32 end;       // of the IP packet
   U32 ipAt;      // where the IP header begins in the frame
   U16 word[4];   // 0 for an absent one
   U16 etherType; // 0: the frame ends before it
   U8 present;
   U8 protocol;
   U8 flags;
   U8 isLater; // a later fragment
   U8 isBad;   // the packet ends inside an extension header
};

// What a step of a loop gets. Places that change from step to step are in the packet, not here: the
// kernel's check of a program follows numbers on the stack exactly, and would take each step for a
// new one; what it reads through the pointer to a packet is any number to it.
struct Walk {
   struct xdp_md* context;
   struct Packet* packet;
};

// Keeps the compiler from deriving the value anew behind a comparison: the kernel's check of the
// program must see that what was compared is what is used.
#define KEEP(value) asm volatile("" : "+r"(value))

// The largest place that is read in place; the kernel limits what is added to a packet's address.
#define MOST_IN_PLACE 0x7fff

// Reads `count` numbers of a type at `at` of the frame, in network order. 0 when the frame ends
// before they do.
#define DEFINE_READ(name, Number)                                                                  \
   static __always_inline int name(struct xdp_md* context, U32 at, Number* to, U32 count) {        \
      KEEP(at);                                                                                    \
      if (at <= MOST_IN_PLACE) {                                                                   \
         const U8* data = (const U8*)(long)context->data;                                          \
         const Number* from = (const Number*)(data + at);                                          \
         if ((const U8*)(from + count) <= (const U8*)(long)context->data_end) {                    \
            for (U32 i = 0; i < count; ++i) {                                                      \
               to[i] = from[i];                                                                    \
            }                                                                                      \
            return 1;                                                                              \
         }                                                                                         \
      }                                                                                            \
      return bpf_xdp_load_bytes(context, at, to, count * sizeof(Number)) == 0;                     \
   }
DEFINE_READ(readBytes, U8)
DEFINE_READ(readHalves, U16)
DEFINE_READ(readWords, U32)
DEFINE_READ(readDoubles, U64)

// ---- Link ----

static __always_inline int isVlanTag(U16 etherType) {
   return etherType == 0x8100 || etherType == 0x88a8 || etherType == 0x9100 || etherType == 0x9200;
}

static __always_inline void readTypeAt(struct xdp_md* context, struct Packet* packet, U32 at) {
   U16 type = 0;
   packet->etherType = readHalves(context, at, &type, 1) ? bpf_ntohs(type) : 0;
   packet->at = at + 2;
}

static long tagStep(U32 step, struct Walk* walk) {
   readTypeAt(walk->context, walk->packet, walk->packet->at + 2);
   return !isVlanTag(walk->packet->etherType);
}

// Reads the EtherType behind all VLAN tags.
static __always_inline void readLink(struct xdp_md* context, struct Packet* packet) {
   readTypeAt(context, packet, 12);
   if (isVlanTag(packet->etherType)) {
      struct Walk walk = {context, packet};
      bpf_loop(1 << 14, tagStep, &walk, 0);
   }
}

// ---- Transport ----

static __always_inline void haveWord(struct Packet* packet, U32 which, U16 value) {
   packet->word[which] = value;
   packet->present |= 1U << which;
}

static __always_inline void haveFlags(struct Packet* packet, U8 flags) {
   packet->flags = flags;
   packet->present |= 1U << tcpFlags;
}

// A header that ends before its checksum: what is there as a whole.
static __always_inline void readCutTransport(struct xdp_md* context, struct Packet* packet, U32 at,
                                             U32 size) {
   U16 half = 0;
   U8 flags = 0;
   if (size >= 2 && readHalves(context, at, &half, 1)) {
      haveWord(packet, sourcePort, bpf_ntohs(half));
   }
   if (size >= 4 && readHalves(context, at + 2, &half, 1)) {
      haveWord(packet, destinationPort, bpf_ntohs(half));
   }
   if (packet->protocol == 6 && size >= 14 && readBytes(context, at + 13, &flags, 1)) {
      haveFlags(packet, flags);
   }
}

// The payload of the IP packet is from `packet->at` to `packet->end`.
static __always_inline void readTransport(struct xdp_md* context, struct Packet* packet) {
   const U32 at = packet->at;
   const U32 size = packet->end > at ? packet->end - at : 0;
   U32 header[4];
   U16 sum = 0;
   if (packet->protocol == 6 && size >= 18 && readWords(context, at, header, 4) &&
       readHalves(context, at + 16, &sum, 1)) {
      haveFlags(packet, bpf_ntohl(header[3]) >> 16);
      haveWord(packet, checksum, bpf_ntohs(sum));
   } else if (packet->protocol == 17 && size >= 8 && readWords(context, at, header, 2)) {
      haveWord(packet, checksum, bpf_ntohl(header[1]));
   } else {
      readCutTransport(context, packet, at, size);
      return;
   }
   haveWord(packet, sourcePort, bpf_ntohl(header[0]) >> 16);
   haveWord(packet, destinationPort, bpf_ntohl(header[0]));
}

static __always_inline int hasPorts(const struct Packet* packet) {
   return packet->protocol == 6 || packet->protocol == 17;
}

// ---- IPv4 ----

static __always_inline int readIpv4(struct xdp_md* context, struct Packet* packet) {
   const U32 at = packet->ipAt;
   U32 header[5];
   if (!readWords(context, at, header, 5)) {
      return 0;
   }
   const U32 first = bpf_ntohl(header[0]);
   const U32 second = bpf_ntohl(header[1]);
   const U32 headerSize = (first >> 24 & 15) * 4;
   const U32 total = first & 0xffff;
   if (first >> 28 != 4 || headerSize < 20 || (total != 0 && total < headerSize) ||
       packet->size < at + headerSize) {
      return 0;
   }
   packet->protocol = bpf_ntohl(header[2]) >> 16;
   packet->sourceHigh = (U64)bpf_ntohl(header[3]) << 32;
   packet->destinationHigh = (U64)bpf_ntohl(header[4]) << 32;
   packet->isLater = (second & 0x1fff) != 0;
   packet->at = at + headerSize;
   // Network cards with segmentation offload leave the length at 0.
   packet->end = total != 0 && at + total < packet->size ? at + total : packet->size;
   haveWord(packet, identification, second >> 16);
   return 1;
}

// ---- IPv6 ----

enum { fragmentHeader = 44, authenticationHeader = 51 };

static __always_inline int isExtension(U8 header) {
   return header == 0 || header == 43 || header == fragmentHeader ||
          header == authenticationHeader || header == 60 || header == 135 || header == 139 ||
          header == 140;
}

static long extensionStep(U32 step, struct Walk* walk) {
   struct Packet* packet = walk->packet;
   const U32 at = packet->at;
   U32 header[2];
   packet->isBad = 1;
   if (at + 8 > packet->end || !readWords(walk->context, at, header, 2)) {
      return 1;
   }
   const U32 first = bpf_ntohl(header[0]);
   const U32 length = first >> 16 & 0xff;
   U32 size = (length + 1) * 8;
   if (packet->protocol == fragmentHeader) {
      size = 8;
      packet->isLater = (first & 0xfff8) != 0;
   } else if (packet->protocol == authenticationHeader) {
      size = (length + 2) * 4;
   }
   if (at + size > packet->end) {
      return 1;
   }
   packet->isBad = 0;
   packet->protocol = first >> 24;
   packet->at = at + size;
   return packet->isLater || !isExtension(packet->protocol);
}

static __always_inline int readIpv6(struct xdp_md* context, struct Packet* packet) {
   U64 header[5];
   if (!readDoubles(context, packet->ipAt, header, 5)) {
      return 0;
   }
   const U64 first = bpf_be64_to_cpu(header[0]);
   if (first >> 60 != 6) {
      return 0;
   }
   packet->sourceHigh = bpf_be64_to_cpu(header[1]);
   packet->sourceLow = bpf_be64_to_cpu(header[2]);
   packet->destinationHigh = bpf_be64_to_cpu(header[3]);
   packet->destinationLow = bpf_be64_to_cpu(header[4]);
   const U32 at = packet->ipAt + 40;
   // 0 in a jumbogram, and before a network card has filled it in.
   const U32 payload = first >> 16 & 0xffff;
   packet->at = at;
   packet->end = payload != 0 && at + payload < packet->size ? at + payload : packet->size;
   packet->protocol = first >> 8;
   if (isExtension(packet->protocol)) {
      struct Walk walk = {context, packet};
      bpf_loop(1 << 13, extensionStep, &walk, 0);
   }
   return !packet->isBad;
}

// Reads a packet of one family. 0 when the frame holds no packet of it, or a malformed one.
// `packet` must be all zeros, and come from the caller of a function that the kernel checks by
// itself.
static __always_inline int readPacket(struct xdp_md* context, int ipv6, struct Packet* packet) {
   packet->size = bpf_xdp_get_buff_len(context);
   readLink(context, packet);
   packet->ipAt = packet->at;
   if (packet->etherType != (ipv6 ? 0x86dd : 0x0800) ||
       !(ipv6 ? readIpv6(context, packet) : readIpv4(context, packet))) {
      return 0;
   }
   if (!packet->isLater && hasPorts(packet)) {
      readTransport(context, packet);
   }
   return 1;
}
