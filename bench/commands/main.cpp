// `bench-Commands [--quick] POSTCARD EXAMPLES`: measures whole commands, each beside a yardstick in
// the same run. Prints the table of the README, and ends with 1 when a requirement is missed.
//
// Command and yardstick take turns; the least processor time of the turns counts, and the largest
// peak of memory.
#include "Files.h"
#include "Process.h"

#include <fmt/core.h>
#include <nlohmann/json.hpp>
#include <pcap/pcap.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Bench {

namespace {

using Command = std::vector<std::string>;
using Measured = std::function<Cost()>;

// One row of the table.
struct Row {
   std::string name;
   Measured ours;
   std::string yardstick;
   Measured theirs; // null: the row has no yardstick
   double goal = 0; // in ms of processor time on the machine that the README names; 0: none
};

Cost best(const Cost& a, const Cost& b) {
   return {std::min(a.ms, b.ms), std::max(a.peakMiB, b.peakMiB), b.bytes};
}

// A loop over the packets of a capture that looks at nothing.
void walkCapture(const std::string& path) {
   char reason[PCAP_ERRBUF_SIZE];
   pcap_t* capture = ::pcap_open_offline(path.c_str(), reason);
   if (capture == nullptr) {
      throw std::runtime_error{reason};
   }
   pcap_pkthdr* header = nullptr;
   const unsigned char* bytes = nullptr;
   while (::pcap_next_ex(capture, &header, &bytes) == 1) {
   }
   ::pcap_close(capture);
}

// A document of as many objects of the same members as the rules of the ACL, made in memory by the
// JSON library and printed by it.
void dumpRules(std::size_t rules, const std::string& path) {
   nlohmann::ordered_json document = nlohmann::ordered_json::array();
   for (std::size_t i = 0; i < rules; ++i) {
      document.push_back({{"policy", "big"},
                          {"family", "ipv4"},
                          {"class", "class1"},
                          {"origin",
                           {{"line", 5},
                            {"column", 90},
                            {"protocol", "tcp"},
                            {"portEntry", 1},
                            {"sourcePorts", "1-65534"},
                            {"destinationPorts", "1-65534"},
                            {"tcpFlags", nullptr}}},
                          {"name", "class1-ipv4-tcp-SportData-" + std::to_string(i)},
                          {"ruleFilter",
                           {{"source", "10.0.1.0/24"},
                            {"destination", "0.0.0.0/0"},
                            {"sportDataMask", {{"l4PortData", i}, {"l4PortMask", 65'534}}},
                            {"dportDataMask", {{"l4PortData", i}, {"l4PortMask", 65'534}}},
                            {"sampleDataAndMask", {{"data", 1}, {"mask", 3}}},
                            {"proto", 6}}},
                          {"ruleAction", {{"action", {0}}}}});
   }
   std::ofstream{path} << document.dump(2);
}

class Bench {
 public:
   Bench(std::string postcard, const std::string& examples, bool quick)
      : postcard_{std::move(postcard)},
        classes_{quick ? 10U : 100U},
        turns_{quick ? 3U : 7U},
        large_{examples + "/large-datacenter.yaml"},
        small_{examples + "/web-tier.yaml"},
        big_{files_.policy("big.yaml", classes_, classes_)},
        changed_{files_.policy("changed.yaml", classes_, classes_ / 2)},
        capture_{files_.capture("capture.pcap", quick ? 87'840 : 878'400)} {}

   // Returns whether every requirement is met.
   bool run() {
      fmt::print("{} rules in the large policy\n\n", classes_ * 1800);
      fmt::print("| Command | ms | peak, MiB | yardstick | ms | goal, ms |\n");
      fmt::print("|---|--:|--:|---|--:|--:|\n");
      for (const Row& row : rows()) {
         print(row);
      }
      // Beside what `check` takes, JSON takes the buffers of a stream, whatever the policy's size.
      const double room = jsonPeak_ - checkPeak_;
      fmt::print("\nJSON takes {:.1f} MiB more than check (required: at most 16)\n", room);
      return room <= 16;
   }

 private:
   Measured ours(Command arguments, int exitCode = 0) const {
      arguments.insert(arguments.begin(), postcard_);
      return [arguments, exitCode] { return ::Bench::run(arguments, exitCode); };
   }

   // What the command prints, to be copied by `cat`.
   Measured copyOf(Command arguments, const std::string& name) const {
      arguments.insert(arguments.begin(), postcard_);
      std::string line;
      for (const std::string& argument : arguments) {
         line += "'" + argument + "' ";
      }
      const std::string path = files_.path(name);
      ::Bench::run({"/bin/sh", "-c", line + "> " + path});
      return [path] { return ::Bench::run({"/bin/cat", path}); };
   }

   std::vector<Row> rows() {
      const std::string packet = "tcp 10.0.1.2:1025 > 10.0.2.3:443 flags=syn";
      const std::string dumped = files_.path("dumped.json");
      const Measured start = [] { return ::Bench::run({"/bin/true", ""}); };
      return {
            {"compile, a small policy", ours({"compile", small_}), "true", start, 10},
            {"compile as text", ours({"compile", big_}), "cat of the same",
             copyOf({"compile", big_}, "text"), 900},
            {"compile as list", ours({"compile", "--format", "list", big_}), "cat of the same",
             copyOf({"compile", "--format", "list", big_}, "list")},
            {"compile as JSON", ours({"compile", "--format", "json", big_}),
             "the JSON library's dump",
             [this, dumped] { return inChild([&] { dumpRules(classes_ * 1800, dumped); }); }, 900},
            {"check", ours({"check", big_}), "true", start, 100},
            {"check --prove", ours({"check", "--prove", big_}), "check", ours({"check", big_})},
            {"diff, half of the classes", ours({"diff", big_, changed_}, 1), "check of one",
             ours({"check", big_})},
            {"explain a packet", ours({"explain", "--packet", packet, big_}), "check",
             ours({"check", big_})},
            {"explain a packet, large-datacenter", ours({"explain", "--packet", packet, large_}),
             "true", start},
            {"check, large-datacenter", ours({"check", large_}), "true", start},
            {"explain a capture, large-datacenter", ours({"explain", "--pcap", capture_, large_}),
             "a loop of the capture library",
             [this] { return inChild([this] { walkCapture(capture_); }); }, 1000},
      };
   }

   void print(const Row& row) {
      Cost ours = row.ours();
      Cost theirs = row.theirs();
      for (unsigned turn = 1; turn < turns_; ++turn) {
         ours = best(ours, row.ours());
         theirs = best(theirs, row.theirs());
      }
      if (row.name == "check") {
         checkPeak_ = ours.peakMiB;
      } else if (row.name == "compile as JSON") {
         jsonPeak_ = ours.peakMiB;
      }
      fmt::print("| {} | {:.1f} | {:.1f} | {} | {:.1f} | {} |\n", row.name, ours.ms, ours.peakMiB,
                 row.yardstick, theirs.ms, row.goal == 0 ? "" : fmt::format("{}", row.goal));
      std::fflush(stdout);
   }

   const Files files_;
   const std::string postcard_;
   const std::size_t classes_;
   const unsigned turns_;
   const std::string large_;
   const std::string small_;
   const std::string big_;
   const std::string changed_;
   const std::string capture_;
   double checkPeak_ = 0;
   double jsonPeak_ = 0;
};

} // namespace

} // namespace Bench

int main(int argc, char** argv) {
   std::vector<std::string> arguments{argv + 1, argv + argc};
   const bool quick = !arguments.empty() && arguments.front() == "--quick";
   if (quick) {
      arguments.erase(arguments.begin());
   }
   if (arguments.size() != 2) {
      fmt::print(stderr, "usage: bench-Commands [--quick] POSTCARD EXAMPLES\n");
      return 2;
   }
   try {
      return Bench::Bench{arguments[0], arguments[1], quick}.run() ? 0 : 1;
   } catch (const std::exception& error) {
      fmt::print(stderr, "bench-Commands: {}\n", error.what());
      return 2;
   }
}
