#include "Words.h"

namespace Bench {

namespace {

using Postcard::Classifier::Bits;
using Postcard::Classifier::FieldMatch;
using Postcard::Classifier::Prefix;

// Where the fields begin in their words.
constexpr unsigned sourcePortAt = 0;
constexpr unsigned destinationPortAt = 16;
constexpr unsigned flagsAt = 32;
constexpr unsigned protocolAt = 40;
constexpr U64 hasSourcePort = U64{1} << 48;
constexpr U64 hasDestinationPort = U64{1} << 49;
constexpr U64 hasFlags = U64{1} << 50;
constexpr unsigned checksumAt = 0;
constexpr unsigned identificationAt = 16;
constexpr U64 hasChecksum = U64{1} << 32;
constexpr U64 hasIdentification = U64{1} << 33;

void layOut(Words& words, Bits source, Bits destination, bool ipv4) {
   if (ipv4) {
      words[0] = source.high | destination.high >> 32;
      return;
   }
   words[0] = source.high;
   words[1] = source.low;
   words[2] = destination.high;
   words[3] = destination.low;
}

template <class Number>
void set(U64& word, const std::optional<Number>& field, unsigned at, U64 has) {
   if (field) {
      word |= U64{*field} << at | has;
   }
}

template <class Number>
void ask(TernaryWords& words, std::size_t word, const FieldMatch<Number>& match, unsigned at,
         U64 has) {
   if (match.asked) {
      words.mask[word] |= U64{match.mask} << at | has;
      words.value[word] |= (U64{match.data} & U64{match.mask}) << at | has;
   }
}

Bits maskOf(const Prefix& prefix) {
   using Postcard::Classifier::firstOf64;
   const unsigned length = prefix.length;
   return {firstOf64(std::min(length, 64U)), firstOf64(length > 64 ? length - 64 : 0)};
}

} // namespace

Words wordsOf(const Postcard::Packets::Packet& packet) {
   using Postcard::Classifier::addressBits;
   const bool ipv4 = packet.family == Orlix::AddressFamily::ipv4;
   Words words{};
   layOut(words, addressBits(packet.source.data(), ipv4),
          addressBits(packet.destination.data(), ipv4), ipv4);
   U64& ports = words[wordCount(packet.family) - 2];
   ports |= U64{packet.protocol} << protocolAt;
   set(ports, packet.sourcePort, sourcePortAt, hasSourcePort);
   set(ports, packet.destinationPort, destinationPortAt, hasDestinationPort);
   set(ports, packet.tcpFlags, flagsAt, hasFlags);
   U64& sample = words[wordCount(packet.family) - 1];
   set(sample, packet.checksum, checksumAt, hasChecksum);
   set(sample, packet.identification, identificationAt, hasIdentification);
   return words;
}

TernaryWords wordsOf(const Postcard::Classifier::RuleMatch& rule, Orlix::AddressFamily family) {
   const bool ipv4 = family == Orlix::AddressFamily::ipv4;
   const std::size_t ports = wordCount(family) - 2;
   const std::size_t sample = wordCount(family) - 1;
   TernaryWords words;
   layOut(words.value, rule.source.value, rule.destination.value, ipv4);
   layOut(words.mask, maskOf(rule.source), maskOf(rule.destination), ipv4);
   words.value[ports] |= U64{rule.protocol} << protocolAt;
   words.mask[ports] |= U64{0xff} << protocolAt;
   ask(words, ports, rule.sourcePort, sourcePortAt, hasSourcePort);
   ask(words, ports, rule.destinationPort, destinationPortAt, hasDestinationPort);
   ask(words, ports, rule.tcpFlags, flagsAt, hasFlags);
   ask(words, sample, rule.checksum, checksumAt, hasChecksum);
   ask(words, sample, rule.identification, identificationAt, hasIdentification);
   return words;
}

} // namespace Bench
