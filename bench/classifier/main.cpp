// `bench-Classifier [--quick]`: measures look-ups in `RuleIndex` against two yardsticks, a scan and
// a tuple-space search, and building. Prints the table of the README, and ends with 1 when a
// requirement is missed.
//
// Before anything is measured, all three must find the same rule for every packet. Then they take
// turns; of every figure the least over the turns counts, because whatever else runs takes its part
// of the caches. Times are processor time.
#include "Workload.h"
#include "Yardsticks.h"
#include "postcard/classifier/AclTable.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace Bench {

namespace {

using Postcard::Classifier::AclTable;
using Postcard::Classifier::RuleIndex;

// Ours as a share of the scan. Scattered rules match early, so a scan of them does not take long.
constexpr double mostOfScan = 0.03;
constexpr double mostOfScanScattered = 0.3;
constexpr double mostBuildNs = 1000;    // per rule, from an ACL to a table
constexpr std::size_t checked = 1'000;  // packets, because a scan of 100,000 rules takes its time
constexpr std::size_t fewFlows = 1'024; // their part of an index stays in the nearer caches

double processorNs() {
   timespec now{};
   ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
   return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

template <class Work>
double elapsedNs(const Work& work) {
   const double before = processorNs();
   work();
   return processorNs() - before;
}

double least(const std::vector<double>& values) {
   return *std::ranges::min_element(values);
}

// Per packet, of the first `flows` packets of the workload over and over, for `budgetNs`. `sum`
// keeps the compiler from leaving the look-ups out.
template <class Finder>
double lookupNs(const Finder& finder, const Workload& workload, std::size_t flows, double budgetNs,
                std::size_t& sum) {
   double spent = 0;
   std::size_t packets = 0;
   while (spent < budgetNs) {
      spent += elapsedNs([&] {
         for (std::size_t i = 0; i < 128; ++i, ++packets) {
            sum += finder.first(workload.packets[packets % flows]);
         }
      });
   }
   return spent / static_cast<double>(packets);
}

// Of a workload, the least over the turns.
struct Row {
   double scan;       // ns per packet of few flows
   double tupleSpace; // the same
   double ours;       // the same
   double oursMany;   // ns per packet of many flows
   double build;      // ns per rule
   double bytes;      // per rule, of the index
   std::size_t tuples;
};

void requireSame(const Workload& workload, const Scan& scan, const TupleSpace& tupleSpace,
                 const RuleIndex& ours) {
   for (std::size_t i = 0; i < checked; ++i) {
      const std::size_t expected = scan.first(workload.packets[i]);
      if (tupleSpace.first(workload.packets[i]) != expected ||
          ours.first(workload.packets[i]) != expected) {
         throw std::runtime_error{
               fmt::format("{}: they disagree about packet {}", workload.label, i)};
      }
   }
}

Row measure(const Workload& workload, bool quick) {
   const Scan scan{workload.family, workload.rules};
   const TupleSpace tupleSpace{workload.family, workload.rules};
   const RuleIndex ours{workload.family, workload.rules};
   requireSame(workload, scan, tupleSpace, ours);
   const auto acl = aclOf(workload);
   const double budgetNs = quick ? 4e6 : 4e7;
   std::vector<double> times[5];
   std::size_t sum = 0;
   for (std::size_t turn = 0; turn < (quick ? 3U : 11U); ++turn) {
      times[0].push_back(lookupNs(scan, workload, fewFlows, budgetNs, sum));
      times[1].push_back(lookupNs(tupleSpace, workload, fewFlows, budgetNs, sum));
      times[2].push_back(lookupNs(ours, workload, fewFlows, budgetNs, sum));
      times[3].push_back(lookupNs(ours, workload, workload.packets.size(), budgetNs, sum));
      times[4].push_back(elapsedNs([&] { sum += AclTable{*acl}.entries().size(); }));
   }
   if (sum == 0) {
      throw std::runtime_error{"nothing was looked up"};
   }
   const auto rules = static_cast<double>(workload.rules.size());
   return {least(times[0]),    least(times[1]),         least(times[2]),
           least(times[3]),    least(times[4]) / rules, static_cast<double>(ours.bytes()) / rules,
           tupleSpace.tuples()};
}

bool print(const Workload& workload, const Row& row) {
   fmt::print("| {} | {} | {:.0f} | {:.0f} ({}) | {:.0f} | {:.0f} | {:.4f} | {:.4f} | {:.0f} | "
              "{:.0f} |\n",
              workload.label, workload.rules.size(), row.scan, row.tupleSpace, row.tuples, row.ours,
              row.oursMany, row.ours / row.scan, row.ours / row.tupleSpace, row.build, row.bytes);
   std::fflush(stdout);
   const bool isScattered = workload.label.starts_with("scattered");
   return row.ours <= (isScattered ? mostOfScanScattered : mostOfScan) * row.scan &&
          row.build <= mostBuildNs;
}

bool run(bool quick) {
   using Orlix::AddressFamily;
   fmt::print("| Workload | Rules | scan | tuple space (tables) | ours | ours, many flows | ours / "
              "scan | "
              "ours / tuple space | build, ns per rule | bytes per rule |\n"
              "|---|--:|--:|--:|--:|--:|--:|--:|--:|--:|\n");
   bool good = true;
   for (const std::size_t rules : {10'000U, 100'000U}) {
      for (const auto make : {policy, portPairs, scattered}) {
         for (const AddressFamily family : {AddressFamily::ipv4, AddressFamily::ipv6}) {
            const Workload workload = make(family, rules);
            good = print(workload, measure(workload, quick)) && good;
         }
      }
   }
   return good;
}

} // namespace

} // namespace Bench

int main(int argc, char** argv) {
   const bool quick = argc == 2 && std::string_view{argv[1]} == "--quick";
   if (argc > 2 || (argc == 2 && !quick)) {
      std::fputs("usage: bench-Classifier [--quick]\n", stderr);
      return 2;
   }
   try {
      if (!Bench::run(quick)) {
         std::puts("\nA requirement was missed.");
         return 1;
      }
   } catch (const std::exception& error) {
      fmt::print(stderr, "bench-Classifier: {}\n", error.what());
      return 1;
   }
   return 0;
}
