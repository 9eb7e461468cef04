// `bench-Classifier [--quick]`: measures look-ups in `RuleIndex` against two yardsticks, a scan and
// a tuple-space search, and building. Prints the table of the README, and ends with 1 when a
// requirement is missed.
//
// Before anything is measured, all three must find the same rule for every packet. Then they take
// turns; of every figure the median over the turns counts. Times are processor time.
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

constexpr double mostOfScan = 0.05;    // of the time of a scan, at 10,000 rules and more
constexpr double mostBuildNs = 1000;   // per rule, from an ACL to a table
constexpr std::size_t checked = 2'000; // packets, because a scan of 100,000 rules takes its time

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

double median(std::vector<double> values) {
   std::ranges::nth_element(values,
                            values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2));
   return values[values.size() / 2];
}

// Per packet. `sum` keeps the compiler from leaving the look-ups out.
template <class Finder>
double lookupNs(const Finder& finder, const Workload& workload, std::size_t packets,
                std::size_t& sum) {
   const double ns = elapsedNs([&] {
      for (std::size_t i = 0; i < packets; ++i) {
         sum += finder.first(workload.packets[i % workload.packets.size()]);
      }
   });
   return ns / static_cast<double>(packets);
}

// Of a workload, median over the turns.
struct Row {
   double scan;       // ns per packet
   double tupleSpace; // the same
   double ours;       // the same
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

Row measure(const Workload& workload, std::size_t turns) {
   const Scan scan{workload.family, workload.rules};
   const TupleSpace tupleSpace{workload.family, workload.rules};
   const RuleIndex ours{workload.family, workload.rules};
   requireSame(workload, scan, tupleSpace, ours);
   const auto acl = aclOf(workload);
   std::vector<double> times[4];
   std::size_t sum = 0;
   const std::size_t scans = std::max<std::size_t>(200, 20'000'000 / workload.rules.size());
   for (std::size_t turn = 0; turn < turns; ++turn) {
      times[0].push_back(lookupNs(scan, workload, scans, sum));
      times[1].push_back(lookupNs(tupleSpace, workload, 20'000, sum));
      times[2].push_back(lookupNs(ours, workload, 200'000, sum));
      times[3].push_back(elapsedNs([&] { sum += AclTable{*acl}.entries().size(); }));
   }
   if (sum == 0) {
      throw std::runtime_error{"nothing was looked up"};
   }
   const auto rules = static_cast<double>(workload.rules.size());
   return {median(times[0]),
           median(times[1]),
           median(times[2]),
           median(times[3]) / rules,
           static_cast<double>(ours.bytes()) / rules,
           tupleSpace.tuples()};
}

bool print(const Workload& workload, const Row& row) {
   fmt::print("| {} | {} | {:.0f} | {:.0f} ({}) | {:.0f} | {:.4f} | {:.3f} | {:.0f} | {:.0f} |\n",
              workload.label, workload.rules.size(), row.scan, row.tupleSpace, row.tuples, row.ours,
              row.ours / row.scan, row.ours / row.tupleSpace, row.build, row.bytes);
   std::fflush(stdout);
   return row.ours <= mostOfScan * row.scan && row.build <= mostBuildNs;
}

bool run(bool quick) {
   using Orlix::AddressFamily;
   fmt::print("| Workload | Rules | scan, ns | tuple space, ns (tables) | ours, ns | ours / scan | "
              "ours / tuple space | build, ns per rule | bytes per rule |\n"
              "|---|--:|--:|--:|--:|--:|--:|--:|--:|\n");
   bool good = true;
   for (const std::size_t rules : {10'000U, 100'000U}) {
      for (const auto make : {policy, portPairs, scattered}) {
         for (const AddressFamily family : {AddressFamily::ipv4, AddressFamily::ipv6}) {
            const Workload workload = make(family, rules);
            good = print(workload, measure(workload, quick ? 3 : 11)) && good;
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
