// `PostcardShape` and the structs beside it: what this process and the programs in the kernel both
// read and write. Compiled as C++ here and as C for the kernel. Relies on the kernel's integers.
//
// The types are in no namespace, because the generated header of a program names them so.
#pragma once

#include <linux/types.h>

// The fields that a packet is looked up by. Each field of 16 bits is indexed twice: from its
// highest bit (even number) and from its lowest (odd number).
enum PostcardField {
   postcardSource,
   postcardDestination,
   postcardProtocol,
   postcardTcpFlags,
   postcardWords, // source port, destination port, checksum, identification: two numbers each
   postcardFields = postcardWords + 8,
};

enum PostcardLimit {
   postcardMostAcls = 256,           // in force at once
   postcardMostAclsOfInterface = 32, // of one family; the kernel allows 33 tail calls
   postcardMostAttachments = 16384,  // interfaces of all ACLs together
   postcardRulesPerLeaf = 512,       // the bitmaps are cut as in `Classifier::RuleSets`
   postcardRulesPerChunk = 8192,
   postcardListEntries = 4, // of a list of prefixes, with the last one, which takes all
   postcardMostSteps = 130, // of a prefix tree: a node for each of 128 bits, a list and a label
};

// A label, or a node, or a list of prefixes: the two highest bits of a tree's entry.
enum PostcardEntryKind { postcardLabel, postcardNode, postcardList };

// What is constant in a loaded program. Fields that no rule asks for are left out of the program
// when the kernel checks it, because it knows these numbers.
struct PostcardShape {
   __u32 imageSize; // bytes
   // Where the parts of the image begin, in bytes.
   __u32 leavesAt;   // 8 words of 64 rules each
   __u32 chunksAt;   // PostcardChunk
   __u32 headsAt;    // __u32, `headSize` for each set
   __u32 startsAt;   // PostcardFieldStart, `postcardFields` of them
   __u32 nodesAt;    // PostcardTreeNode
   __u32 slotsAt;    // __u32
   __u32 listsAt;    // PostcardPrefix
   __u32 protocolAt; // __u32[256]: the set of each protocol
   __u32 flagsAt;    // the same for TCP flags; 0 when no rule asks for them
   __u32 actionsAt;  // PostcardAction, one for each rule
   __u32 exactAt;    // PostcardExact, one for each rule; 0 when sets say exactly what rules ask
   __u32 treeDepth;  // most entries that are followed from a root, 1 or more
   __u32 headSize;   // numbers in a head: `tops`, then the chunks
   __u32 tops;       // numbers of a bit per chunk
   __u32 fields;     // bit n: some rule asks for field n of PostcardField
   __u32 rules;
   __u32 counterStride; // counters from one processor to the next; at least `rules`
   __u32 sampleBytes;   // of a sampled packet that are kept, 1 or more
   __u32 ipv6;          // 1; 0 for IPv4
   __u32 slot;          // of the ACL
   __u32 version;       // of the ACL in that slot
};

// What a field's class begins with: an entry of the field's tree, or the set of packets without the
// field, which is a label. A field without a tree has the latter only.
struct PostcardFieldStart {
   __u32 absent;
   __u32 root;
};

// 8,192 rules of a set: `Classifier::RuleSets::Chunk`.
struct PostcardChunk {
   __u64 summary[2];
   __u32 leaf[16];
};

// `Classifier::PrefixTree::Node`, with masks instead of lengths.
struct PostcardTreeNode {
   __u64 pathHigh; // values that differ from the path under the mask have `otherwise`
   __u64 pathLow;
   __u64 maskHigh;
   __u64 maskLow;
   __u32 otherwise;
   __u32 slots;
   __u8 inLow;      // 1: the bits that choose a slot are in the lower half of the value
   __u8 leftShift;  // of that half, then
   __u8 rightShift; // this gives the number of the slot
};

// An entry of a list of prefixes.
struct PostcardPrefix {
   __u64 high;
   __u64 low;
   __u64 maskHigh;
   __u64 maskLow;
   __u32 label;
};

// What a rule does with a packet.
struct PostcardAction {
   __u8 sampled;
   __u8 dscpData;
   __u8 dscpMask; // 0: the packet keeps its DSCP
};

// What a rule asks of the fields of 16 bits, four of them side by side, source port lowest. A field
// that the rule does not ask for has the mask 0.
struct PostcardExact {
   __u64 data;
   __u64 mask;
};

// Of one rule and one processor.
struct PostcardCounter {
   __u64 packets;
   __u64 bytes; // of whole frames
};

// Of one ACL and one processor; a line of the cache.
struct PostcardTotals {
   __u64 samples;     // handed over
   __u64 lostSamples; // for which there was no room
   __u64 unused[6];
};

// Key of a hop: where a packet goes on after a program. The value is the slot of an ACL.
struct PostcardHop {
   __u32 interface;
   __u32 from; // a slot, or one of the following
};
enum PostcardStart {
   postcardStartIpv4 = 0x40000000,
   postcardStartIpv6 = 0x60000000,
};

// A sampled packet, as it was before the rule changed its DSCP.
struct PostcardSample {
   __u64 time;      // CLOCK_MONOTONIC, nanoseconds
   __u32 interface; // index of the interface
   __u32 slot;      // of the ACL
   __u32 version;   // of the ACL in that slot
   __u32 rule;      // place in the ACL
   __u32 length;    // of the frame
   __u32 captured;  // how many of the bytes that follow are the frame's
   // Here follow `sampleBytes` bytes.
};
