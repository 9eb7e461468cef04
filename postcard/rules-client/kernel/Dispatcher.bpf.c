// The program that an interface has: hands a packet to the first ACL of its family and interface.
// It never drops one. Relies on `PacketRead.bpf.h` to tell the family. It stays attached while ACLs
// come, go and are replaced.
#include "KernelLayout.h"
#include "PacketRead.bpf.h"

char licence[] SEC("license") = "Apache-2.0";

// By slot, the program of an ACL.
struct {
   __uint(type, BPF_MAP_TYPE_PROG_ARRAY);
   __uint(max_entries, postcardMostAcls);
   __uint(key_size, sizeof(U32));
   __uint(value_size, sizeof(U32));
} acls SEC(".maps");

// By PostcardHop, the slot of the next ACL.
struct {
   __uint(type, BPF_MAP_TYPE_HASH);
   __uint(max_entries, postcardMostAttachments);
   __uint(map_flags, BPF_F_NO_PREALLOC);
   __uint(key_size, sizeof(struct PostcardHop));
   __uint(value_size, sizeof(U32));
} hops SEC(".maps");

// Sampled packets of all ACLs. This process sets the size.
struct {
   __uint(type, BPF_MAP_TYPE_RINGBUF);
   __uint(max_entries, 1 << 20);
} samples SEC(".maps");

// Not inlined and not `static`: the kernel checks it by itself, and follows no number of the
// packet.
__attribute__((noinline)) int etherTypeOf(struct xdp_md* context, struct Packet* packet) {
   if (!packet) {
      return 0;
   }
   readLink(context, packet);
   return packet->etherType;
}

SEC("xdp.frags")
int postcardDispatcher(struct xdp_md* context) {
   struct Packet packet = {};
   const int etherType = etherTypeOf(context, &packet);
   if (etherType != 0x0800 && etherType != 0x86dd) {
      return XDP_PASS;
   }
   const struct PostcardHop hop = {context->ingress_ifindex,
                                   etherType == 0x0800 ? postcardStartIpv4 : postcardStartIpv6};
   const U32* first = bpf_map_lookup_elem(&hops, &hop);
   if (first) {
      bpf_tail_call(context, &acls, *first);
   }
   return XDP_PASS;
}
