// Any bytes as a capture file, read and counted as `postcard explain --pcap` does: a file that is
// refused with a reason, or frames that all are accounted for, however the file ends.
//
// The first byte says whether a whole file follows or frames that are put into a sound one: its
// link type, and each frame with the sizes that its record claims.
#include "postcard/packets/capture/CaptureFile.h"

#include "../Input.h"
#include "../Require.h"
#include "Pello/FileDescriptor.h"
#include "postcard/host/PolicyCompiler.h"
#include "postcard/policy/file/PolicyFile.h"
#include "postcard/report/explain/CaptureTotals.h"
#include "support/CaptureBytes.h"

#include <nlohmann/json.hpp>

#include <numeric>
#include <sys/mman.h>

namespace {

using Fuzz::Input;
using Fuzz::require;

// Classes that ask for each field that a packet has.
constexpr const char* policyText = R"(
hardware: { tcp-flags: true }
policies:
  - name: all
    interfaces: { ipv4: [E], ipv6: [E] }
    classes:
      - name: opening
        actions: [sample-all]
        ipv4: &opening
          protocols: [{ protocol: tcp, ports: [{ destination: [80, 443] }], tcp-flags: [{ flags: [syn], mask: [syn, ack] }] }]
        ipv6: *opening
      - name: low
        actions: [sample]
        ipv4: &low { sample: { data: 0, mask: 0x0f }, protocols: [{ protocol: udp, ports: [{ source: [0-1023] }] }] }
        ipv6: *low
      - name: net
        actions: [sample-all]
        ipv4: { source: [10.0.0.0/8] }
        ipv6: { source: ["2001:db8::/32"] }
)";

// The policy's ACLs, compiled once. A look-up counts hits, so each input has tables of its own.
class Compiled {
 public:
   static const Compiled& only() {
      static const auto* const compiled = new Compiled;
      return *compiled;
   }
   std::vector<Postcard::Report::ExplainedAcl> tables() const {
      std::vector<Postcard::Report::ExplainedAcl> tables;
      for (const auto& [family, result] : results_) {
         tables.emplace_back(file_.policies.front(), family, file_.hardware, *result.acl);
      }
      return tables;
   }
   Postcard::Report::Scope scope() const { return {{&file_.policies.front()}, std::nullopt}; }

 private:
   using Family = Postcard::Policy::Family;

   Compiled() {
      const Postcard::Host::PolicyCompiler compiler{file_};
      for (const Family family : {Family::ipv4, Family::ipv6}) {
         results_.emplace_back(family, compiler.compile(file_.policies.front(), family));
         require(results_.back().second.acl != nullptr, "the policy compiles");
      }
   }

   Postcard::Policy::PolicyFile file_ =
         *Postcard::Policy::File::parsePolicyText(policyText, "file").policyFile;
   std::vector<std::pair<Family, Postcard::Host::PolicyCompiler::Result>> results_;
};

// A file without a name, at a path for others.
class NamelessFile {
 public:
   explicit NamelessFile(std::span<const U8> bytes)
      : file_{::memfd_create("capture", MFD_CLOEXEC)} {
      require(::write(file_.get(), bytes.data(), bytes.size()) ==
                    static_cast<ssize_t>(bytes.size()),
              "the file can be written");
   }
   std::string path() const { return "/proc/self/fd/" + std::to_string(file_.get()); }

 private:
   Pello::FileDescriptor file_;
};

// ---- What must hold ----

using Postcard::Report::AclTotals;
using Postcard::Report::CaptureTotals;

void checkAcl(const AclTotals& acl) {
   require(acl.matched <= acl.packets && acl.sampled <= acl.matched,
           "parts are no more than wholes");
   U64 byRule = 0;
   for (const auto& rule : acl.rules) {
      byRule += rule.packets;
   }
   U64 byClass = 0;
   for (const auto& one : acl.classes) {
      byClass += one.matched;
      require(one.matched <= one.candidates, "what a class has it was a candidate of");
   }
   require(byRule == acl.matched && byClass == acl.matched, "rules and classes count the same");
}

void checkTotals(const CaptureTotals& totals, U64 visited) {
   const U64 undecodable =
         std::accumulate(totals.undecodable.begin(), totals.undecodable.end(), U64{0});
   require(totals.frames == visited, "every frame is counted");
   require(totals.packets + undecodable == totals.frames, "a frame is a packet or has a reason");
   U64 looked = totals.withoutAcl;
   for (const AclTotals& acl : totals.acls) {
      checkAcl(acl);
      looked += acl.packets;
   }
   require(looked == totals.packets, "a packet is looked up in the ACL of its family");
   require(!text(totals).empty() && !json(totals).dump().empty(), "totals have both forms");
}

void count(const std::string& path) {
   auto tables = Compiled::only().tables();
   Postcard::Report::CaptureCounter counter{tables, Compiled::only().scope()};
   U64 visited = 0;
   try {
      const std::string damage = Postcard::Packets::readCapture(path, [&](const auto& frame) {
         ++visited;
         counter.count(frame);
      });
      require(damage.find('\n') == std::string::npos, "a damage is one line", damage);
   } catch (const Postcard::Packets::CaptureError& error) {
      require(visited == 0, "a file is refused before its first frame");
      require(std::string_view{error.what()}.starts_with(path), "a refusal names the file",
              error.what());
      return;
   }
   checkTotals(counter.totals(), visited);
}

// ---- Files ----

TestSupport::Bytes framesOf(Input& input) {
   static constexpr std::array<std::uint32_t, 6> links{1, 101, 113, 276, 228, 147};
   TestSupport::Capture capture{links.at(input.number<U8>() % links.size())};
   while (!input.empty()) {
      const auto captured = input.number<U8>();
      const auto more = input.number<U8>(); // bytes on the wire that were not captured
      const auto bytes = input.take(captured);
      // The record claims what there should be. Only the last one can lack bytes.
      capture.add({bytes.begin(), bytes.end()}, captured, captured + more);
   }
   return capture.bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
   Input input{{data, size}};
   if (input.number<U8>() % 2 == 0) {
      count(NamelessFile{input.take(size)}.path());
   } else {
      count(NamelessFile{framesOf(input)}.path());
   }
   return 0;
}
