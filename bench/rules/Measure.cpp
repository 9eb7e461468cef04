#include "Measure.h"

#include "Ringlog/Trace.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace Bench {

namespace {

const Pello::TraceSource traceSource{"Bench"};

double processorNs() {
   timespec now{};
   ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
   return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// Counted by the kernel page by page, not estimated.
double residentBytes() {
   std::ifstream account{"/proc/self/smaps_rollup"};
   for (std::string word; account >> word;) {
      double kibibytes = 0;
      if (word == "Rss:" && account >> kibibytes) {
         return kibibytes * 1024;
      }
   }
   throw std::runtime_error{"/proc/self/smaps_rollup has no Rss"};
}

// The ring has a fixed size and is full in every process that runs for a while. Filling it before
// keeps its pages out of the account of the first rules.
void fillRing() {
   const std::string text(1000, '.');
   for (std::size_t bytes = 0; bytes < std::size_t{4} * 1024 * 1024; bytes += text.size()) {
      RINGLOG_TRACE(9, "{}", text);
   }
}

// Loads the code that creation runs through.
void warmUp(ContenderFactory factory) {
   const Workload least = ofSize(2);
   const auto contender = factory(least);
   contender->create();
   contender->remove();
}

double timedCreation(Contender& contender) {
   const double before = processorNs();
   contender.create();
   return processorNs() - before;
}

Sample sampleHere(ContenderFactory factory, const Workload& workload, double budgetMs) {
   const auto expected = static_cast<double>(ruleCount(workload));
   fillRing();
   warmUp(factory);
   const auto contender = factory(workload);
   const double residentBefore = residentBytes();
   const double first = timedCreation(*contender);
   const double resident = residentBytes() - residentBefore;
   double fastest = 0;
   for (double spent = 0; spent == 0 || spent < budgetMs * 1e6;) {
      contender->remove();
      const double again = timedCreation(*contender);
      fastest = spent == 0 ? again : std::min(fastest, again);
      spent += again;
   }
   if (static_cast<double>(contender->rules()) != expected) {
      throw std::runtime_error{"made " + std::to_string(contender->rules()) + " rules instead of " +
                               std::to_string(ruleCount(workload))};
   }
   return {first / expected, fastest / expected, resident / expected};
}

// Runs `work` in a child process and hands over what it returns. The child neither flushes nor
// destroys anything: freeing a million rules would only cost time.
Sample inChild(const std::function<Sample()>& work) {
   std::array<int, 2> ends{};
   if (::pipe(ends.data()) != 0) {
      throw std::runtime_error{"no pipe"};
   }
   std::fflush(nullptr);
   const pid_t child = ::fork();
   if (child == 0) {
      try {
         const Sample sample = work();
         const bool written = ::write(ends[1], &sample, sizeof sample) == sizeof sample;
         ::_exit(written ? 0 : 1);
      } catch (const std::exception& error) {
         std::fprintf(stderr, "bench: %s\n", error.what());
         ::_exit(1);
      }
   }
   ::close(ends[1]);
   Sample sample{};
   const bool read = child > 0 && ::read(ends[0], &sample, sizeof sample) == sizeof sample;
   ::close(ends[0]);
   if (child > 0) {
      ::waitpid(child, nullptr, 0);
   }
   if (!read) {
      throw std::runtime_error{"a measuring process failed"};
   }
   return sample;
}

void requireSame(bool same, const std::string& what) {
   if (!same) {
      throw std::runtime_error{"the contenders differ: " + what};
   }
}

Sample compareHere(const Workload& workload) {
   const auto ours = makeOurs(workload);
   const auto plain = makePlain(workload);
   const auto flat = makeFlat(workload);
   for (Contender* contender : {ours.get(), plain.get(), flat.get()}) {
      contender->create();
      requireSame(contender->rules() == ruleCount(workload), "number of rules");
   }
   requireSame(ours->names() == plain->names(), "number of names");
   for (U32 index = 0; index < flat->rules(); ++index) {
      const ShownRule shown = ours->rule(index);
      const ShownRule plainShown = plain->rule(index);
      const std::string where = " at index " + std::to_string(index);
      requireSame(shown.name == plainShown.name,
                  "name" + where + ": " + shown.name + ", " + plainShown.name);
      requireSame(shown.sameByName == plainShown.sameByName, "table by name" + where);
      requireSame(shown.rule == plainShown.rule, "values, ours and R" + where);
      requireSame(shown.rule == flat->rule(index).rule, "values, ours and F" + where);
   }
   return {};
}

} // namespace

Sample measure(ContenderFactory factory, const Workload& workload, double budgetMs) {
   return inChild([&] { return sampleHere(factory, workload, budgetMs); });
}

void requireSameRules(const Workload& workload) {
   inChild([&] { return compareHere(workload); });
}

} // namespace Bench
