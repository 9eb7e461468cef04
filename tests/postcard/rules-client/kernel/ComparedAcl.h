// `Compared`: an ACL in the kernel beside the classifier of this process and a reading of the rules
// one by one.
#pragma once

#include "RandomFrames.h"
#include "TestRun.h"
#include "postcard/classifier/RuleOracle.h"
#include "postcard/packets/PacketFrame.h"
#include "postcard/rules-client/kernel/AclProgram.h"
#include "postcard/rules-client/kernel/Dispatcher.h"

#include <fmt/format.h>

#include <linux/bpf.h>

namespace RulesClientTest {

using Postcard::Classifier::AclTable;
using Postcard::Packets::decodeFrame;
using Postcard::Packets::LinkType;
using Postcard::RulesClient::AclProgram;
using Postcard::RulesClient::Dispatcher;

inline std::string hexOf(const Bytes& frame) {
   std::string text;
   for (const U8 byte : frame) {
      text += fmt::format("{:02x}", byte);
   }
   return text;
}

// An ACL in the kernel, and how often each of its rules should have been hit.
class Compared {
 public:
   Compared(const AclRecords& acl, const Dispatcher& dispatcher)
      : acl_{acl},
        table_{*acl},
        program_{table_, dispatcher.maps(), {.slot = 0, .version = 1}},
        expected_(table_.entries().size()) {}

   // Runs the frame; says what is wrong, or nothing. Counts only packets that the oracle confirms.
   std::string tried(const Bytes& frame) {
      const auto decoded = decodeFrame(LinkType::ethernet, frame);
      const Packet* packet = std::get_if<Packet>(&decoded);
      const AclTable::Entry* entry = packet == nullptr ? nullptr : table_.lookup(*packet);
      if (packet != nullptr && packet->family == table_.family()) {
         const auto oracle = firstMatch(*acl_, *packet);
         if (oracle.has_value() != (entry != nullptr) || (entry && entry->index != *oracle)) {
            return "oracle and classifier differ for " + printPacket(*packet);
         }
      }
      const RunResult result = run(program_.descriptor(), frame);
      if (result.verdict != XDP_PASS) {
         return fmt::format("verdict {} for {}", result.verdict, hexOf(frame));
      }
      if (entry == nullptr) {
         return {};
      }
      hits_ += 1;
      const auto place = static_cast<std::size_t>(entry - table_.entries().data());
      expected_[place].packets += 1;
      expected_[place].bytes += frame.size();
      return program_.counter(place) == expected_[place]
                   ? ""
                   : fmt::format("rule {} does not count {}: {}", place, printPacket(*packet),
                                 hexOf(frame));
   }

   bool countersAgree() const { return program_.counters() == expected_; }
   std::size_t hits() const { return hits_; }

 private:
   const AclRecords& acl_;
   AclTable table_;
   AclProgram program_;
   std::vector<AclProgram::Counter> expected_;
   std::size_t hits_ = 0;
};

} // namespace RulesClientTest
