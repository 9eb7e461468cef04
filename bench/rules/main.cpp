// `bench-Rules [--quick]`: measures our rules against the two yardsticks, F and R, prints the
// tables of the README, and ends with 1 when a requirement is missed.
//
// The machine may be busy and noisy. Contenders therefore take turns, each turn in a new process; a
// ratio is taken inside a turn, and of everything the median over all turns counts.
#include "Measure.h"
#include "Pello/TextTrace.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string_view>
#include <vector>

namespace Bench {

namespace {

// How much is measured.
struct Extent {
   std::size_t turns;      // of a workload up to `large` rules
   std::size_t largeTurns; // of a larger one
   double budgetMs;        // repeated creation per process
   std::size_t classes;    // in W2
   std::size_t ranges;     // on either side in W3
   std::size_t growthEnd;  // rules in the last step of the growth
};
constexpr std::size_t large = 100'000;
constexpr Extent full{11, 5, 100, 1000, 82, 1'000'000};
constexpr Extent quick{5, 3, 30, 100, 22, 100'000};

enum ContenderIndex : std::size_t { flat, ours, plain };
constexpr std::array<ContenderFactory, 3> factories{makeFlat, makeOurs, makePlain};

using Turn = std::array<Sample, factories.size()>;

double median(std::vector<double> values) {
   const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
   std::nth_element(values.begin(), middle, values.end());
   return *middle;
}

// One workload, measured.
class Result {
 public:
   Result(std::size_t rules, std::vector<Turn> turns) : rules_{rules}, turns_{std::move(turns)} {}

   std::size_t rules() const { return rules_; }
   double median(ContenderIndex contender, double Sample::*what) const {
      return medianOf([&](const Turn& turn) { return turn[contender].*what; });
   }
   // Ours for one of R.
   double ratio(double Sample::*what) const {
      return medianOf([&](const Turn& turn) { return turn[ours].*what / (turn[plain].*what); });
   }

 private:
   double medianOf(const std::function<double(const Turn&)>& value) const {
      std::vector<double> values;
      for (const Turn& turn : turns_) {
         values.push_back(value(turn));
      }
      return Bench::median(values);
   }

   std::size_t rules_;
   std::vector<Turn> turns_;
};

// Who begins changes from turn to turn.
Result run(const Workload& workload, const Extent& extent) {
   requireSameRules(workload);
   const std::size_t rules = ruleCount(workload);
   std::vector<Turn> turns(rules > large ? extent.largeTurns : extent.turns);
   for (std::size_t turn = 0; turn < turns.size(); ++turn) {
      for (std::size_t step = 0; step < factories.size(); ++step) {
         const std::size_t contender = (turn + step) % factories.size();
         turns[turn][contender] = measure(factories[contender], workload, extent.budgetMs);
      }
   }
   return {rules, std::move(turns)};
}

bool allMet = true;

void require(bool met, const std::string& requirement) {
   fmt::print("{} {}\n", met ? "PASS" : "FAIL", requirement);
   allMet = allMet && met;
}

void printRow(std::string_view label, std::string_view what, const Result& result,
              double Sample::*member) {
   fmt::print("| {} | {} | {} | {:.0f} | {:.0f} | {:.0f} | {:.2f} |\n", label, result.rules(), what,
              result.median(flat, member), result.median(ours, member),
              result.median(plain, member), result.ratio(member));
   std::fflush(stdout);
}

std::vector<Result> runWorkloads(const std::vector<Workload>& workloads, const Extent& extent) {
   fmt::print("| Workload | Rules | Per rule | F | ours | R | ours / R |\n"
              "|---|--:|---|--:|--:|--:|--:|\n");
   std::vector<Result> results;
   for (const Workload& workload : workloads) {
      const Result& result = results.emplace_back(run(workload, extent));
      printRow(workload.label, "ns, first creation", result, &Sample::firstNs);
      printRow(workload.label, "ns, again", result, &Sample::againNs);
      printRow(workload.label, "bytes resident", result, &Sample::residentBytes);
   }
   return results;
}

// The results for 100 rules, ten times as many, and so on.
std::vector<Result> runGrowth(const Extent& extent) {
   fmt::print("\n| Rules | ours, ns per rule | R, ns per rule | ours / R |\n|--:|--:|--:|--:|\n");
   std::vector<Result> results;
   for (std::size_t rules = 100; rules <= extent.growthEnd; rules *= 10) {
      const Result& result = results.emplace_back(run(ofSize(rules), extent));
      fmt::print("| {} | {:.0f} | {:.0f} | {:.2f} |\n", rules,
                 result.median(ours, &Sample::againNs), result.median(plain, &Sample::againNs),
                 result.ratio(&Sample::againNs));
      std::fflush(stdout);
   }
   return results;
}

void judgeWorkload(const Workload& workload, const Result& result) {
   const double first = result.ratio(&Sample::firstNs);
   const double again = result.ratio(&Sample::againNs);
   const double bytes = result.ratio(&Sample::residentBytes);
   require(first <= 1,
           fmt::format("{}, first creation: not slower than R (took {:.2f} of its time)",
                       workload.label, first));
   require(again <= 1, fmt::format("{}, again: not slower than R (took {:.2f} of its time)",
                                   workload.label, again));
   require(bytes <= 1.2, fmt::format("{}: at most 1.2 times the memory of R (took {:.2f})",
                                     workload.label, bytes));
}

// Growth is the cost per rule at the end for one at the beginning.
void judgeGrowth(const std::vector<Result>& results) {
   const auto growth = [&](ContenderIndex contender) {
      return results.back().median(contender, &Sample::againNs) /
             results.front().median(contender, &Sample::againNs);
   };
   require(growth(ours) <= growth(plain),
           fmt::format("cost per rule from 100 to {} rules grows no faster than R's ({:.2f} times, "
                       "R's {:.2f} times)",
                       results.back().rules(), growth(ours), growth(plain)));
}

int benchmark(const Extent& extent) {
   const std::vector<Workload> workloads{fullRanges(), manyClasses(extent.classes),
                                         wideClass(extent.ranges)};
   const std::vector<Result> results = runWorkloads(workloads, extent);
   const std::vector<Result> growth = runGrowth(extent);
   fmt::print("\n");
   for (std::size_t index = 0; index < workloads.size(); ++index) {
      judgeWorkload(workloads[index], results[index]);
   }
   judgeGrowth(growth);
   return allMet ? 0 : 1;
}

} // namespace

} // namespace Bench

int main(int argumentCount, char** arguments) {
   const std::vector<std::string_view> options{arguments + 1, arguments + argumentCount};
   if (options.size() > 1 || (options.size() == 1 && options[0] != "--quick")) {
      std::fprintf(stderr, "usage: bench-Rules [--quick]\n");
      return 2;
   }
   // The ring as it is by default, and no text trace, whatever the environment says.
   ::unsetenv("RINGLOG_FILE");
   ::unsetenv("RINGLOG_SIZE");
   Pello::traceLevelsIs("");
   try {
      return Bench::benchmark(options.empty() ? Bench::full : Bench::quick);
   } catch (const std::exception& error) {
      std::fprintf(stderr, "bench: %s\n", error.what());
      return 1;
   }
}
