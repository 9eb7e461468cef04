// A policy as plain values: what a person wrote, checked, before any record of the platform exists.
// Relies on the standard library.
//
// All structures are plain values: copyable, comparable where that makes sense, owning what they
// hold, free of references into the text they were read from.

#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Policy {

// A place in the policy file.
struct Location {
   std::uint32_t line = 0;   // 1-based; 0 means "the file as a whole" (it could not be read)
   std::uint32_t column = 0; // 1-based, in characters, not bytes; 0 when the line is 0

   friend auto operator<=>(const Location&, const Location&) = default;
};

// An address family. The numbers are those of the ACL types.
enum class Family : std::uint8_t { ipv4 = 0, ipv6 = 1 };

// "ipv4" or "ipv6", as the policy file writes it.
std::string_view familyName(Family family);

// A name as the user wrote it: 1 to 255 bytes of UTF-8 without control characters or line
// separators.
struct Name {
   std::string text;
   Location location;
};

// An address prefix, host bits cleared.
struct Prefix {
   Family family = Family::ipv4;
   std::array<std::uint8_t, 16>
         address{};         // network order; an IPv4 address is the first four bytes, the rest 0
   std::uint8_t length = 0; // 0..32 or 0..128
   std::string text;        // canonical: dotted quad or compressed lower-case hex, and "/length"
   Location location;
};

// A closed range of numbers, low <= high.
struct NumberRange {
   std::uint16_t low = 0;
   std::uint16_t high = 0;
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
   std::uint8_t flags = 0; // no bit outside `mask`
   std::uint8_t mask = 0;  // never 0
   Location location;
};

// One ICMP type, 0..255.
struct IcmpType {
   std::uint8_t type = 0;
   Location location;
};

// The match of one protocol or range of protocols.
struct ProtocolMatch {
   std::uint8_t low = 0;         // protocol number, 0..255
   std::uint8_t high = 0;        // not below `low`; equal for a single protocol
   std::vector<PortEntry> ports; // in file order; at most one while the TCP-control toggle is off
   std::vector<TcpFlagMatch>
         tcpFlags; // in file order, no two equal; also kept for protocols other than TCP
   std::vector<IcmpType> icmpTypes; // in file order, no two equal
   Location location;               // of the value of `protocol`
};

// The 16-bit field that a sample match compares.
enum class SampleField : std::uint8_t { checksum, ipId };

// The sample match: the bits of the field under `mask` must read as `data`.
struct SampleMatch {
   std::uint16_t data = 0;                    // no bit outside `mask`
   std::uint16_t mask = 0;                    // never 0
   SampleField field = SampleField::checksum; // never `ipId` in an IPv6 filter
   Location location;
};

// What a class matches in one family. An empty filter matches every packet.
struct Filter {
   std::vector<Prefix> source;            // of the filter's family, no two equal, in file order
   std::vector<Prefix> destination;       // the same
   std::vector<Prefix> sourceExcept;      // the same
   std::vector<Prefix> destinationExcept; // the same
   std::optional<Name> sourcePrefixSet;
   std::optional<Name> destinationPrefixSet;
   std::optional<NumberRange> payloadLength; // 0..65535
   std::optional<NumberRange> ipTtl;         // 0..255
   bool fragments = false;
   bool ipOptions = false;
   bool protocol = false; // the bare protocol flag, not the list `protocols`
   bool protocolNeighbor = false;
   std::optional<SampleMatch> sample;
   std::vector<ProtocolMatch> protocols; // in file order; no two with the same range
   Location location;                    // of the family's key in the class
};

// An action of a class. The first three are those that postcard telemetry performs.
enum class ActionKind : std::uint8_t {
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

// One action; a class has at most one of a kind.
struct Action {
   ActionKind kind = ActionKind::sample;
   std::uint8_t dscp = 0; // 0..63; meaningful for `setDscp` only, else 0
   Location location;
};

// One class of a policy.
struct Class {
   Name name;                   // unique in its policy
   std::uint32_t priority = 0;  // unique in its policy, low matches first; see `positionStep`
   bool priorityGiven = false;  // the file has a `priority` key; else it follows from the position
   std::vector<Action> actions; // in file order; may be empty
   std::optional<Filter> ipv4;  // absent: the class takes no part in the family
   std::optional<Filter> ipv6;  // the same

   // The filter of `family`, or null when the class takes no part in it.
   const Filter* filter(Family family) const;
};

// A class without a `priority` key has the priority `positionStep` times its place in the list,
// counted from 1. The step leaves room for a class that names a priority between two others.
constexpr std::uint32_t positionStep = 10;

// One policy.
struct Policy {
   Name name;                        // unique in the file, whatever the scope
   std::string scope;                // empty when the file names none
   std::vector<Name> ipv4Interfaces; // no two equal; not empty when a class has an `ipv4` filter
   std::vector<Name> ipv6Interfaces; // the same for `ipv6`; the two are never both empty
   std::vector<Class> classes;       // in file order, which need not be the order of priorities

   // The interfaces of `family`.
   const std::vector<Name>& interfaces(Family family) const;
};

// What the forwarding hardware can do.
struct Hardware {
   bool tcpFlags = true; // matches TCP flags; present-day hardware does, so a file need not say it
};

using ToggleMap = std::map<std::string, bool, std::less<>>;

// A whole policy file that has passed every check.
struct PolicyFile {
   Hardware hardware;
   ToggleMap featureToggles; // all there are: as the file sets them, else as declared
   std::vector<Policy> policies;
};

} // namespace Postcard::Policy
