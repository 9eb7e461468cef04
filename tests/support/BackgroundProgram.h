// `BackgroundProgram`: a program that runs beside the test and ends with it at the latest. Relies
// on RunProgram.h for what it writes.
#pragma once

#include "support/RunProgram.h"

#include <chrono>
#include <csignal>
#include <functional>
#include <thread>
#include <utility>

namespace TestSupport {

// Whether `holds` within half a minute.
inline bool eventually(const std::function<bool()>& holds) {
   const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds{30};
   while (!holds()) {
      if (std::chrono::steady_clock::now() > deadline) {
         return false;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds{2});
   }
   return true;
}

class BackgroundProgram {
 public:
   // As with `runProgram`.
   explicit BackgroundProgram(std::vector<std::string> arguments,
                              std::vector<std::string> environment = {})
      : child_{spawnProgram(std::move(arguments), std::move(environment), out_, err_)} {}
   BackgroundProgram(const BackgroundProgram&) = delete;
   BackgroundProgram& operator=(const BackgroundProgram&) = delete;
   ~BackgroundProgram() {
      if (child_ > 0) {
         signal(SIGKILL);
         wait();
      }
   }

   pid_t process() const { return child_; }
   std::string out() const { return out_.text(); }
   std::string err() const { return err_.text(); }
   void signal(int number) const { ::kill(child_, number); }

   // Waits for its end.
   ProgramResult wait() { return awaitProgram(std::exchange(child_, 0), out_, err_); }

 private:
   CapturedStream out_;
   CapturedStream err_;
   pid_t child_;
};

} // namespace TestSupport
