// `PolicyFile` and its parts: what a person asks for, as checked plain values, before any record of
// the platform exists. Relies on the platform's value of an address prefix.
//
// All structures are plain values: copyable, owning what they hold, free of references into the
// text they were read from. Their comments state what a reader of policy files guarantees. A
// program that fills the structures itself must guarantee the same, because no later step checks
// them again: the helper ends the process when its contract is broken.
#pragma once

#include "Orlix/IpGenPrefix.h"
#include "Pello/Types.h"
#include "postcard/policy/Location.h"

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Policy {

// An address family. The numbers are those of `Acl::AclType`.
enum class Family : U8 { ipv4 = 0, ipv6 = 1 };

// "ipv4" or "ipv6", as the policy file writes it.
std::string_view familyName(Family family);

// A name as the user wrote it: 1 to 255 bytes of UTF-8, all of whose characters a reader sees
// (`Pello::isVisible`).
struct Name {
   std::string text;
   Location location;
};

// An address prefix.
struct Prefix {
   Orlix::IpGenPrefix value; // of the family of the filter; never unset
   Location location;
};

// A range of numbers, both bounds included, low <= high.
struct NumberRange {
   U16 low = 0;
   U16 high = 0;
   Location location;
};

// One port entry of a protocol. An entry without ranges and sets is legal and matches no packet.
struct PortEntry {
   std::vector<NumberRange> source;      // 0..65535 each, no two equal; they may overlap
   std::vector<NumberRange> destination; // the same
   std::optional<Name> sourceSet;        // name of a port set; absent: none
   std::optional<Name> destinationSet;   // the same
   Location location;
};

// One TCP-flag match: the flags under `mask` must read as `flags`.
struct TcpFlagMatch {
   U8 flags = 0; // no bit outside `mask`
   U8 mask = 0;  // never 0
   Location location;
};

// One ICMP type, 0..255 (RFC 792; for ICMPv6 RFC 4443).
struct IcmpType {
   U8 type = 0;
   Location location;
};

// The match of one protocol or of a range of protocols.
struct ProtocolMatch {
   U8 low = 0;                   // IP protocol number (IANA), 0..255
   U8 high = 0;                  // not below `low`; equal for a single protocol
   std::vector<PortEntry> ports; // in file order; at most one while the TCP-control toggle is off
   // In file order, no two equal. Protocols other than TCP may have some too.
   std::vector<TcpFlagMatch> tcpFlags;
   std::vector<IcmpType> icmpTypes; // in file order, no two equal
   Location location;               // of the value of `protocol`
};

// The 16-bit field that a sample match compares: the TCP or UDP checksum, or the IPv4
// identification (RFC 791).
enum class SampleField : U8 { checksum, ipId };

// The sample match: the bits of the field under `mask` must read as `data`.
struct SampleMatch {
   U16 data = 0;                              // no bit outside `mask`
   U16 mask = 0;                              // never 0
   SampleField field = SampleField::checksum; // never `ipId` in an IPv6 filter
   Location location;
};

// What a class matches in one family. An empty filter means every packet of the family. The helper
// expresses TCP and UDP only, so it makes one rule for each of them.
struct Filter {
   std::vector<Prefix> source;               // of the filter's family, no two equal, in file order
   std::vector<Prefix> destination;          // the same
   std::vector<Prefix> sourceExcept;         // the same
   std::vector<Prefix> destinationExcept;    // the same
   std::optional<Name> sourcePrefixSet;      // name of a prefix set; absent: none
   std::optional<Name> destinationPrefixSet; // the same
   std::optional<NumberRange> payloadLength; // bytes, 0..65535; absent: any
   std::optional<NumberRange> ipTtl;         // hops, 0..255; absent: any
   bool fragments = false;                   // the packet is a fragment
   bool ipOptions = false;                   // the packet has IP options
   bool protocol = false;                    // the bare protocol flag, not the list `protocols`
   bool protocolNeighbor = false;            // the packet is for a protocol neighbour
   std::optional<SampleMatch> sample;        // absent: no sample match
   std::vector<ProtocolMatch> protocols;     // in file order; no two with the same range
   Location location; // of the family's key in the class, or of the key for both families

   // Where the flags of the same names stand. Meaningless for a flag that is false.
   Location fragmentsLocation;
   Location ipOptionsLocation;
   Location protocolLocation;
   Location protocolNeighborLocation;
};

// The kind of an action. Postcard telemetry performs the first three. The others exist in policy
// maps; the helper refuses a class that has one, with a message that names it.
enum class ActionKind : U8 {
   sample,
   sampleAll,
   setDscp,
   permit,
   drop,
   count,
   police,
   redirect,
   mirror,
   setTrafficClass,
   setVlan,
   log,
   nat,
};

// How many kinds there are. Their numbers are 0 to one less.
inline constexpr std::size_t actionKinds = 13;

// The word of an action, as the policy file writes it, such as "set-traffic-class". Valid for the
// life of the process.
std::string_view actionName(ActionKind kind);

// One action; a class has at most one of a kind.
struct Action {
   ActionKind kind = ActionKind::sample;
   U8 dscp = 0; // the DSCP (RFC 2474) that `setDscp` writes, 0..63; 0 for other kinds
   Location location;
};

// One class of a policy.
struct Class {
   Name name;                   // unique in its policy
   U32 priority = 0;            // unique in its policy, low matches first; see `positionStep`
   bool priorityGiven = false;  // the file has a `priority` key; else it follows from the position
   std::vector<Action> actions; // in file order; may be empty
   std::optional<Filter> ipv4;  // absent: the class takes no part in the family
   std::optional<Filter> ipv6;  // the same

   // The filter of `family`, or null when the class takes no part in it. Valid as long as the class
   // is unchanged.
   const Filter* filter(Family family) const;
};

// A class without a `priority` key has the priority `positionStep` times its place in the list,
// counted from 1. The step leaves room for classes whose `priority` key puts them between two
// others.
constexpr U32 positionStep = 10;

// One policy.
struct Policy {
   Name name;                        // unique in the file, whatever the scope
   std::string scope;                // empty when the file names none
   std::vector<Name> ipv4Interfaces; // no two equal; not empty when a class has an `ipv4` filter
   std::vector<Name> ipv6Interfaces; // the same for `ipv6`; the two are never both empty
   std::vector<Class> classes;       // in file order, which may differ from that of the priorities

   // The interfaces of `family`. Valid as long as the policy is unchanged.
   const std::vector<Name>& interfaces(Family family) const;
};

// What the forwarding hardware can do.
struct Hardware {
   bool tcpFlags = true; // whether it matches TCP flags, as present-day hardware does
};

// The port of a collector by default: that of IPFIX over UDP (RFC 7011, section 10.3.4).
inline constexpr U16 collectorPort = 4739;

// Where the telemetry's own reports are sent, over UDP.
struct Collector {
   Orlix::IpGenPrefix address; // of its family's full length
   U16 port = collectorPort;
   Location location; // of the address
};

// Feature toggles by name: whether each is on.
using ToggleMap = std::map<std::string, bool, std::less<>>;

// A whole policy file that has passed every check.
struct PolicyFile {
   Hardware hardware;
   std::optional<Collector> collector; // absent: the file does not say
   ToggleMap featureToggles; // every toggle that exists: as the file sets it, else as declared
   std::vector<Policy> policies;
   Location policiesLocation; // of the value of the key `policies`, which every file has

   // Whether the file says in so many words that there is no policy: `policies: []`. A file without
   // the key, or with nothing behind it, has a finding and never becomes a `PolicyFile`. False for
   // values that no file was read for.
   bool emptyListWritten() const { return policies.empty() && policiesLocation.line != 0; }
};

} // namespace Postcard::Policy
