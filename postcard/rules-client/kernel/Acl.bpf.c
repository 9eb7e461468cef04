// The program of one ACL: finds the first rule that a packet matches, counts it, samples it and
// rewrites its DSCP, and hands the packet to the next ACL of the interface. It never drops one.
// Relies on `PacketRead.bpf.h` for the packet and on an image that `AclImage` has written.
//
// The look-up is that of `Classifier::RuleIndex`, on the same sets and trees. Every place that is
// read from the image is compared with the image's size before it is used, which is what the
// kernel asks of a program; none is ever outside.
#include "KernelLayout.h"
#include "PacketRead.bpf.h"

char licence[] SEC("license") = "Apache-2.0";

const volatile struct PostcardShape shape = {};

// One element, as large as the image; this process sets the size and writes the image.
struct {
   __uint(type, BPF_MAP_TYPE_ARRAY);
   __uint(max_entries, 1);
   __uint(map_flags, BPF_F_MMAPABLE);
   __uint(key_size, sizeof(U32));
   __uint(value_size, 8);
} image SEC(".maps");

// `shape.counterStride` for each processor. Not a map per processor: this one is read by mapping.
struct {
   __uint(type, BPF_MAP_TYPE_ARRAY);
   __uint(max_entries, 1);
   __uint(map_flags, BPF_F_MMAPABLE);
   __uint(key_size, sizeof(U32));
   __uint(value_size, sizeof(struct PostcardCounter));
} counters SEC(".maps");

struct {
   __uint(type, BPF_MAP_TYPE_ARRAY);
   __uint(max_entries, 1);
   __uint(map_flags, BPF_F_MMAPABLE);
   __uint(key_size, sizeof(U32));
   __uint(value_size, sizeof(struct PostcardTotals));
} totals SEC(".maps");

// In place of the following, the loader puts the maps of the dispatcher (`bpf_map__reuse_fd`), so
// Dispatcher.bpf.c must declare them alike.
struct {
   __uint(type, BPF_MAP_TYPE_PROG_ARRAY);
   __uint(max_entries, postcardMostAcls);
   __uint(key_size, sizeof(U32));
   __uint(value_size, sizeof(U32));
} acls SEC(".maps");

struct {
   __uint(type, BPF_MAP_TYPE_HASH);
   __uint(max_entries, postcardMostAttachments);
   __uint(map_flags, BPF_F_NO_PREALLOC);
   __uint(key_size, sizeof(struct PostcardHop));
   __uint(value_size, sizeof(U32));
} hops SEC(".maps");

struct {
   __uint(type, BPF_MAP_TYPE_RINGBUF);
   __uint(max_entries, 1 << 20);
} samples SEC(".maps");

// ---- The image ----

static const __always_inline U8* imageBegin(void) {
   const U32 only = 0;
   return bpf_map_lookup_elem(&image, &only);
}

// The `size` bytes at `at`, or null when they are not inside the image.
static __always_inline const void* imageAt(const U8* begin, U64 at, U32 size) {
   KEEP(at);
   return at > shape.imageSize - size ? 0 : begin + at;
}

static const __always_inline U32* numberAt(const U8* begin, U64 at) {
   return imageAt(begin, at, sizeof(U32));
}

// ---- Classes of values ----

static __always_inline U32 findInList(const U8* begin, U32 place, U64 high, U64 low) {
   U64 at = shape.listsAt + (U64)place * sizeof(struct PostcardPrefix);
   for (int i = 0; i < postcardListEntries; ++i, at += sizeof(struct PostcardPrefix)) {
      const struct PostcardPrefix* each = imageAt(begin, at, sizeof *each);
      if (!each) {
         break;
      }
      if ((((high ^ each->high) & each->maskHigh) | ((low ^ each->low) & each->maskLow)) == 0) {
         return each->label;
      }
   }
   return 0;
}

// The set of the longest prefix in the tree under `entry` that the value begins with. Not inlined,
// so that the kernel checks it once and not for each field; a function without `static` is one
// that it checks by itself.
__attribute__((noinline)) U32 findSet(U32 entry, U64 high, U64 low) {
   const U8* begin = imageBegin();
   if (!begin) {
      return 0;
   }
   for (U32 step = 0; step < postcardMostSteps && step < shape.treeDepth; ++step) {
      const U32 kind = entry >> 30;
      const U32 place = entry & 0x3fffffff;
      if (kind == postcardLabel) {
         return entry;
      }
      if (kind == postcardList) {
         return findInList(begin, place, high, low);
      }
      const struct PostcardTreeNode* node =
            imageAt(begin, shape.nodesAt + (U64)place * sizeof *node, sizeof *node);
      if (!node) {
         return 0;
      }
      if ((((high ^ node->pathHigh) & node->maskHigh) | ((low ^ node->pathLow) & node->maskLow)) !=
          0) {
         return node->otherwise;
      }
      const U64 slot = (node->inLow ? low : high) << node->leftShift >> node->rightShift;
      const U32* next = numberAt(begin, shape.slotsAt + (node->slots + slot) * sizeof(U32));
      if (!next) {
         return 0;
      }
      entry = *next;
   }
   return 0;
}

static __always_inline U16 reversed(U16 value) {
   U32 bits = value;
   bits = (bits & 0x5555) << 1 | (bits >> 1 & 0x5555);
   bits = (bits & 0x3333) << 2 | (bits >> 2 & 0x3333);
   bits = (bits & 0x0f0f) << 4 | (bits >> 4 & 0x0f0f);
   return bits << 8 | bits >> 8;
}

// ---- The first rule that all sets have ----

enum { noRule = 0xffffffff };

struct Search {
   U64 words[2]; // of the present chunk: those that all sets may have a rule in, and are not read
   U64 rules;    // of the present word: those that all sets have, and are not compared
   U64 values;   // the packet's words, side by side as in PostcardExact
   U32 set[postcardFields];
   U32 chunk[postcardFields]; // where in the image each set's present chunk is
   U32 live;                  // chunks under the present number of `tops` that are not read
   U32 top;                   // the next number of `tops`
   U32 chunkNumber;           // of the present chunk
   U32 firstRule;             // of the present word
   U32 found;
};

// The place of the lowest bit that is set. `bits` is not 0. The multiplication brings a sequence to
// the top that is different for each place (de Bruijn).
static __always_inline U32 lowestBit(U64 bits) {
   static const U8 place[64] = {0,  1,  48, 2,  57, 49, 28, 3,  61, 58, 50, 42, 38, 29, 17, 4,
                                62, 55, 59, 36, 53, 51, 43, 22, 45, 39, 33, 30, 24, 18, 12, 5,
                                63, 47, 56, 27, 60, 41, 37, 16, 54, 35, 52, 21, 44, 32, 23, 11,
                                46, 26, 40, 15, 34, 20, 31, 10, 25, 14, 19, 9,  13, 8,  7,  6};
   return place[((bits & -bits) * 0x03f79d71b4cb0a89ULL) >> 58];
}

// What a step comes to.
enum { goOn = 0, stop = 1 };

// Makes the next chunk that all sets have a rule in the present one. `words` stay 0 when there is
// none under the present number.
static __always_inline int nextChunk(const U8* begin, struct Search* search) {
   const U32 fields = shape.fields;
   if (search->live == 0) {
      if (search->top >= shape.tops) {
         return stop;
      }
      search->live = ~0U;
      for (int field = 0; field < postcardFields; ++field) {
         if (fields & 1U << field) {
            const U64 head = (U64)search->set[field] * shape.headSize;
            const U32* live = numberAt(begin, shape.headsAt + (head + search->top) * sizeof(U32));
            if (!live) {
               return stop;
            }
            search->live &= *live;
         }
      }
      search->top += 1;
      if (search->live == 0) {
         return goOn;
      }
   }
   search->chunkNumber = (search->top - 1) * 32 + lowestBit(search->live);
   search->live &= search->live - 1;
   U64 low = ~0ULL;
   U64 high = ~0ULL;
   for (int field = 0; field < postcardFields; ++field) {
      if (fields & 1U << field) {
         const U64 head = (U64)search->set[field] * shape.headSize + shape.tops;
         const U32* place =
               numberAt(begin, shape.headsAt + (head + search->chunkNumber) * sizeof(U32));
         if (!place) {
            return stop;
         }
         const U64 at = shape.chunksAt + (U64)*place * sizeof(struct PostcardChunk);
         const struct PostcardChunk* chunk = imageAt(begin, at, sizeof *chunk);
         if (!chunk) {
            return stop;
         }
         search->chunk[field] = at;
         low &= chunk->summary[0];
         high &= chunk->summary[1];
      }
   }
   search->words[0] = low;
   search->words[1] = high;
   return goOn;
}

// Makes the next word of the present chunk the present one.
static __always_inline int nextWord(const U8* begin, struct Search* search) {
   const U32 fields = shape.fields;
   U32 word;
   if (search->words[0] != 0) {
      word = lowestBit(search->words[0]);
      search->words[0] &= search->words[0] - 1;
   } else {
      word = 64 + lowestBit(search->words[1]);
      search->words[1] &= search->words[1] - 1;
   }
   U64 rules = ~0ULL;
   for (int field = 0; field < postcardFields; ++field) {
      if (fields & 1U << field) {
         const U32* leaf = numberAt(begin, (U64)search->chunk[field] + 16 + word / 8 * sizeof(U32));
         if (!leaf) {
            return stop;
         }
         const U64* bits =
               imageAt(begin, shape.leavesAt + (U64)*leaf * 64 + word % 8 * 8, sizeof(U64));
         if (!bits) {
            return stop;
         }
         rules &= *bits;
      }
   }
   search->rules = rules;
   search->firstRule = search->chunkNumber * postcardRulesPerChunk + word * 64;
   return goOn;
}

// What a step gets. The search itself is not on the stack of the function that loops; see `Walk`.
struct SearchWalk {
   struct Search* search;
};

// One word, or one rule that must be compared because its mask was rounded. Most look-ups take one
// step. Called by the kernel until it returns `stop`.
static long searchStep(U32 step, struct SearchWalk* walk) {
   struct Search* search = walk->search;
   const U8* begin = imageBegin();
   if (!begin) {
      return stop;
   }
   if (search->rules == 0) {
      if ((search->words[0] | search->words[1]) == 0) {
         if (nextChunk(begin, search) == stop) {
            return stop;
         }
         if ((search->words[0] | search->words[1]) == 0) {
            return goOn;
         }
      }
      if (nextWord(begin, search) == stop) {
         return stop;
      }
      if (search->rules == 0) {
         return goOn;
      }
   }
   const U32 rule = search->firstRule + lowestBit(search->rules);
   search->rules &= search->rules - 1;
   if (shape.exactAt != 0) {
      const struct PostcardExact* exact =
            imageAt(begin, shape.exactAt + (U64)rule * sizeof *exact, sizeof *exact);
      if (!exact) {
         return stop;
      }
      if (((search->values ^ exact->data) & exact->mask) != 0) {
         return goOn;
      }
   }
   search->found = rule;
   return stop;
}

// Searches until a rule is found or no set has more. Checked by itself, as `findSet` is.
__attribute__((noinline)) U32 searched(struct Search* search) {
   if (!search) {
      return noRule;
   }
   struct SearchWalk walk = {search};
   bpf_loop(1 << 22, searchStep, &walk, 0);
   return search->found;
}

// ---- The look-up ----

// The numbers are read from the image and not from the constants of the program. If the kernel's
// check knew them, it would follow the program once for each combination of fields that a packet
// may have.
static __always_inline U32 startOf(const U8* begin, U32 field, int isPresent) {
   const U32* start = numberAt(begin, shape.startsAt + field * sizeof(struct PostcardFieldStart) +
                                            isPresent * sizeof(U32));
   return start ? *start : 0;
}

static __always_inline U32 setOfByte(const U8* begin, U32 table, U8 value) {
   const U32* set = numberAt(begin, (U64)table + (U64)value * sizeof(U32));
   return set ? *set : 0;
}

static __always_inline void setsOfWord(const U8* begin, const struct Packet* packet,
                                       struct Search* search, U32 which) {
   const U32 fields = shape.fields;
   const U32 highest = postcardWords + which * 2;
   const U32 lowest = highest + 1;
   const int isPresent = packet->present >> which & 1;
   const U16 word = packet->word[which];
   if (fields & 1U << highest) {
      search->set[highest] = findSet(startOf(begin, highest, isPresent), (U64)word << 48, 0);
   }
   if (fields & 1U << lowest) {
      search->set[lowest] =
            findSet(startOf(begin, lowest, isPresent), (U64)reversed(word) << 48, 0);
   }
   search->values |= (U64)word << which * 16;
}

// The place of the first rule that matches, or `noRule`. Checked by itself, as `findSet` is.
__attribute__((noinline)) U32 firstRule(const struct Packet* packet) {
   const U8* begin = imageBegin();
   const U32 fields = shape.fields;
   if (!begin || !packet || fields == 0) {
      return noRule;
   }
   struct Search search = {.found = noRule};
   if (fields & 1U << postcardSource) {
      search.set[postcardSource] =
            findSet(startOf(begin, postcardSource, 1), packet->sourceHigh, packet->sourceLow);
   }
   if (fields & 1U << postcardDestination) {
      search.set[postcardDestination] = findSet(startOf(begin, postcardDestination, 1),
                                                packet->destinationHigh, packet->destinationLow);
   }
   search.set[postcardProtocol] = setOfByte(begin, shape.protocolAt, packet->protocol);
   if (fields & 1U << postcardTcpFlags) {
      search.set[postcardTcpFlags] = packet->present >> tcpFlags & 1
                                           ? setOfByte(begin, shape.flagsAt, packet->flags)
                                           : startOf(begin, postcardTcpFlags, 0);
   }
   for (U32 which = 0; which < 4; ++which) {
      setsOfWord(begin, packet, &search, which);
   }
   return searched(&search);
}

// ---- What a rule does ----

static __always_inline void count(U32 rule, U32 length) {
   const U32 place = bpf_get_smp_processor_id() * shape.counterStride + rule;
   struct PostcardCounter* counter = bpf_map_lookup_elem(&counters, &place);
   if (counter) {
      counter->packets += 1;
      counter->bytes += length;
   }
}

static __always_inline void countSample(int isLost) {
   const U32 place = bpf_get_smp_processor_id();
   struct PostcardTotals* total = bpf_map_lookup_elem(&totals, &place);
   if (total) {
      total->samples += !isLost;
      total->lostSamples += isLost;
   }
}

static __always_inline void takeSample(struct xdp_md* context, const struct Packet* packet,
                                       U32 rule) {
   struct PostcardSample* sample =
         bpf_ringbuf_reserve(&samples, sizeof *sample + shape.sampleBytes, 0);
   countSample(!sample);
   if (!sample) {
      return;
   }
   sample->time = bpf_ktime_get_ns();
   sample->interface = context->ingress_ifindex;
   sample->slot = shape.slot;
   sample->version = shape.version;
   sample->rule = rule;
   sample->length = packet->size;
   U32 captured = packet->size;
   KEEP(captured);
   if (captured > shape.sampleBytes) {
      captured = shape.sampleBytes;
   }
   sample->captured = 0;
   if (captured != 0 && bpf_xdp_load_bytes(context, 0, sample + 1, captured) == 0) {
      sample->captured = captured;
   }
   bpf_ringbuf_submit(sample, 0);
}

// The DSCP is in the second byte of an IPv4 header, and in the 4 bits after the version of an IPv6
// header and the 2 bits behind them. The checksum of IPv4 follows by the difference (RFC 1624).
static __always_inline void rewriteDscp(struct xdp_md* context, const struct Packet* packet,
                                        U8 data, U8 mask) {
   const U32 shift = shape.ipv6 ? 6 : 2;
   U16 half = 0;
   if (!readHalves(context, packet->ipAt, &half, 1)) {
      return;
   }
   const U16 old = bpf_ntohs(half);
   const U16 changed = (old & ~(mask << shift)) | (data & mask) << shift;
   half = bpf_htons(changed);
   if (changed == old || bpf_xdp_store_bytes(context, packet->ipAt, &half, 2) != 0 || shape.ipv6) {
      return;
   }
   if (readHalves(context, packet->ipAt + 10, &half, 1)) {
      U32 sum = (U16)~bpf_ntohs(half) + (U16)~old + changed;
      sum = (sum & 0xffff) + (sum >> 16);
      sum = (sum & 0xffff) + (sum >> 16);
      half = bpf_htons((U16)~sum);
      bpf_xdp_store_bytes(context, packet->ipAt + 10, &half, 2);
   }
}

static __always_inline void act(struct xdp_md* context, const struct Packet* packet, U32 rule) {
   const U8* begin = imageBegin();
   if (!begin || rule >= shape.rules) {
      return;
   }
   const struct PostcardAction* action =
         imageAt(begin, shape.actionsAt + (U64)rule * sizeof *action, sizeof *action);
   if (!action) {
      return;
   }
   count(rule, packet->size);
   if (action->sampled) {
      takeSample(context, packet, rule);
   }
   if (action->dscpMask) {
      rewriteDscp(context, packet, action->dscpData, action->dscpMask);
   }
}

// Reads a packet of the ACL's family. Checked by itself, as `findSet` is.
__attribute__((noinline)) int packetOf(struct xdp_md* context, struct Packet* packet) {
   return packet && readPacket(context, shape.ipv6, packet);
}

SEC("xdp.frags")
int postcardAcl(struct xdp_md* context) {
   struct Packet packet = {};
   if (packetOf(context, &packet)) {
      const U32 rule = firstRule(&packet);
      if (rule != noRule) {
         act(context, &packet, rule);
      }
   }
   const struct PostcardHop hop = {context->ingress_ifindex, shape.slot};
   const U32* next = bpf_map_lookup_elem(&hops, &hop);
   if (next) {
      bpf_tail_call(context, &acls, *next);
   }
   return XDP_PASS;
}
