// ACLs in the kernel: the time to load a version, and the time that a program takes for a packet
// beside a program that does nothing. The kernel measures the latter (BPF_PROG_TEST_RUN) and
// compiles programs as it does for interfaces. Needs CAP_BPF and CAP_NET_ADMIN.
#include "../classifier/Workload.h"
#include "postcard/classifier/AclTable.h"
#include "postcard/rules-client/kernel/AclProgram.h"
#include "postcard/rules-client/kernel/Dispatcher.h"

#include <bpf/bpf.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <linux/bpf.h>

namespace {

using Bench::Workload;
using Orlix::AddressFamily;
using Postcard::Classifier::AclTable;
using Postcard::Packets::Packet;
using Postcard::RulesClient::AclProgram;
using Postcard::RulesClient::Dispatcher;
using Bytes = std::vector<U8>;
using Clock = std::chrono::steady_clock;

void put16(Bytes& bytes, std::size_t at, unsigned value) {
   bytes[at] = static_cast<U8>(value >> 8);
   bytes[at + 1] = static_cast<U8>(value);
}

// An Ethernet frame of 80 bytes or so that holds the packet.
Bytes frameOf(const Packet& packet) {
   const bool ipv4 = packet.family == AddressFamily::ipv4;
   const std::size_t payload = 14 + (ipv4 ? 20 : 40);
   Bytes frame(payload + 26);
   put16(frame, 12, ipv4 ? 0x0800 : 0x86dd);
   frame[14] = ipv4 ? 0x45 : 0x60;
   put16(frame, ipv4 ? 16 : 18, static_cast<unsigned>(frame.size() - (ipv4 ? 14 : 54)));
   if (ipv4) {
      put16(frame, 18, packet.identification.value_or(0));
   }
   frame[ipv4 ? 23 : 20] = packet.protocol;
   std::ranges::copy(packet.sourceAddress(), frame.begin() + (ipv4 ? 26 : 22));
   std::ranges::copy(packet.destinationAddress(), frame.begin() + (ipv4 ? 30 : 38));
   put16(frame, payload, packet.sourcePort.value_or(0));
   put16(frame, payload + 2, packet.destinationPort.value_or(0));
   put16(frame, payload + (packet.protocol == 6 ? 16 : 6), packet.checksum.value_or(0));
   if (packet.protocol == 6) {
      frame[payload + 13] = packet.tcpFlags.value_or(0);
   }
   return frame;
}

double nanosecondsOf(int program, const Bytes& frame) {
   U32 least = ~U32{0};
   for (int turn = 0; turn < 4; ++turn) {
      // Less than a slice of time, so that some turn is not interrupted.
      LIBBPF_OPTS(bpf_test_run_opts, options, .data_in = frame.data(),
                  .data_size_in = static_cast<U32>(frame.size()), .repeat = 2000);
      if (bpf_prog_test_run_opts(program, &options) != 0) {
         throw std::runtime_error{"BPF_PROG_TEST_RUN failed"};
      }
      least = std::min(least, options.duration);
   }
   return least;
}

// Nanoseconds that the program takes for each of `frames`, on average. Of each, the least of four
// turns counts, because the machine may be busy.
double nanoseconds(int program, const std::vector<Bytes>& frames) {
   double sum = 0;
   for (const Bytes& frame : frames) {
      sum += nanosecondsOf(program, frame);
   }
   return sum / static_cast<double>(frames.size());
}

// A program that lets every packet pass.
int emptyProgram() {
   const bpf_insn code[] = {{BPF_ALU64 | BPF_MOV | BPF_K, BPF_REG_0, 0, 0, XDP_PASS},
                            {BPF_JMP | BPF_EXIT, 0, 0, 0, 0}};
   return bpf_prog_load(BPF_PROG_TYPE_XDP, "postcardEmpty", "Apache-2.0", code, 2, nullptr);
}

void measure(const char* name, const Workload& workload, const Dispatcher& dispatcher) {
   // Sampling writes into a ring that nobody empties here; the look-up is what is measured.
   const auto acl = Bench::aclOf(workload);
   for (const auto& rule : acl->ruleByIndex()) {
      const auto action = rule.value()->ruleAction();
      action->actionDelAll();
      action->actionIs(OruPostcardTelemetry::RuleAction::setDscpAction);
   }
   const AclTable table{*acl};
   const auto begin = Clock::now();
   const AclProgram program{table, dispatcher.maps(), {}};
   const std::chrono::duration<double, std::milli> load = Clock::now() - begin;
   std::vector<Bytes> frames;
   for (std::size_t i = 0; i < 16; ++i) {
      frames.push_back(frameOf(workload.packets[i]));
   }
   fmt::print("| {} | {} | {} | {:.1f} | {:.0f} |\n", name,
              workload.family == AddressFamily::ipv4 ? "IPv4" : "IPv6", table.entries().size(),
              load.count(), nanoseconds(program.descriptor(), frames));
   std::fflush(stdout);
}

} // namespace

int main() {
   try {
      const Dispatcher dispatcher;
      const std::vector<Bytes> frame{Bytes(80)};
      fmt::print("empty program: {:.0f} ns per packet\n\n", nanoseconds(emptyProgram(), frame));
      fmt::print(
            "| rules | family | number | ms to load | ns per packet |\n|---|---|--:|--:|--:|\n");
      for (const AddressFamily family : {AddressFamily::ipv4, AddressFamily::ipv6}) {
         for (const std::size_t rules : {10U, 1'000U, 10'000U, 100'000U}) {
            measure("policy", Bench::policy(family, rules), dispatcher);
            measure("scattered", Bench::scattered(family, rules), dispatcher);
         }
      }
   } catch (const std::exception& error) {
      fmt::print(stderr, "bench-Kernel: {}\n", error.what());
      return 3;
   }
}
