// `BackgroundProgram`: a program that runs beside the test and ends with it at the latest. Relies
// on RunProgram.h for what it writes.
#pragma once

#include "support/RunProgram.h"

#include <chrono>
#include <csignal>
#include <functional>
#include <thread>

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
                              std::vector<std::string> environment = {}) {
      std::vector<char*> argv;
      for (std::string& argument : arguments) {
         argv.push_back(argument.data());
      }
      argv.push_back(nullptr);
      std::vector<char*> variables;
      for (std::string& variable : environment) {
         variables.push_back(variable.data());
      }
      for (char** variable = environ; *variable != nullptr; ++variable) {
         variables.push_back(*variable);
      }
      variables.push_back(nullptr);
      posix_spawn_file_actions_t actions;
      ::posix_spawn_file_actions_init(&actions);
      ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
      ::posix_spawn_file_actions_adddup2(&actions, out_.fd(), STDOUT_FILENO);
      ::posix_spawn_file_actions_adddup2(&actions, err_.fd(), STDERR_FILENO);
      const int error =
            ::posix_spawn(&child_, argv[0], &actions, nullptr, argv.data(), variables.data());
      ::posix_spawn_file_actions_destroy(&actions);
      if (error != 0) {
         throw std::runtime_error{"cannot run " + arguments.front()};
      }
   }
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
   ProgramResult wait() {
      int status = 0;
      ::waitpid(child_, &status, 0);
      child_ = 0;
      return {WIFEXITED(status) ? WEXITSTATUS(status) : -1,
              WIFSIGNALED(status) ? WTERMSIG(status) : 0, out(), err()};
   }

 private:
   CapturedStream out_;
   CapturedStream err_;
   pid_t child_ = 0;
};

} // namespace TestSupport
