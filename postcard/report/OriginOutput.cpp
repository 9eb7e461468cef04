#include "postcard/report/OriginOutput.h"

#include "postcard/packets/Packet.h"

#include <fmt/format.h>

#include <string_view>

namespace Postcard::Report {

namespace {

void writeNumber(std::string_view name, U64 number, Kiv::ValueVisitor& writer) {
   writer.member(name);
   writer.number(number);
}

void writePorts(std::string_view name, const Policy::NumberRange* range,
                Kiv::ValueVisitor& writer) {
   writer.member(name);
   if (range == nullptr) {
      writer.null();
   } else {
      writer.text(fmt::format("{}-{}", range->low, range->high));
   }
}

void writeFlags(const Policy::TcpFlagMatch* flags, Kiv::ValueVisitor& writer) {
   writer.member("tcpFlags");
   if (flags == nullptr) {
      return writer.null();
   }
   writer.beginObject();
   writeNumber("flags", flags->flags, writer);
   writeNumber("mask", flags->mask, writer);
   writer.endObject();
}

} // namespace

void writeOrigin(const Host::RuleOrigin& origin, Kiv::ValueVisitor& writer) {
   writer.beginObject();
   writeNumber("line", origin.location().line, writer);
   writeNumber("column", origin.location().column, writer);
   writer.member("protocol");
   writer.text(Packets::protocolName(origin.protocol));
   writer.member("portEntry");
   if (origin.entry == nullptr) {
      writer.null();
   } else {
      writer.number(origin.entryNumber);
   }
   writePorts("sourcePorts", origin.source, writer);
   writePorts("destinationPorts", origin.destination, writer);
   writeFlags(origin.flags, writer);
   writer.endObject();
}

} // namespace Postcard::Report
