// `runProgram`: runs a program to its end and returns what it wrote and how it ended. Relies on
// POSIX only.
#pragma once

#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

extern char** environ;

namespace TestSupport {

// The command, and the folder of the example policies, with a slash at its end.
inline const std::string program = std::string{POSTCARD_BIN_DIR} + "/postcard";
inline const std::string examples = std::string{POSTCARD_SOURCE_DIR} + "/examples/";

struct ProgramResult {
   int exitCode; // -1 when a signal ended it
   int signal;   // 0 unless a signal ended it
   std::string out;
   std::string err;
   double seconds;     // of processor time
   long peakKibibytes; // of memory; no less than this process had when it started the program
};

// A nameless file that a program writes into.
class CapturedStream {
 public:
   CapturedStream() {
      char path[] = "/tmp/postcard-test-XXXXXX";
      fd_ = ::mkstemp(path);
      if (fd_ < 0) {
         throw std::runtime_error{"no temporary file"};
      }
      ::unlink(path);
   }
   CapturedStream(const CapturedStream&) = delete;
   CapturedStream& operator=(const CapturedStream&) = delete;
   ~CapturedStream() { ::close(fd_); }

   int fd() const { return fd_; }
   std::string text() const {
      std::string text;
      char buffer[65536];
      ssize_t size = 0;
      off_t at = 0;
      while ((size = ::pread(fd_, buffer, sizeof buffer, at)) > 0) {
         text.append(buffer, static_cast<std::size_t>(size));
         at += size;
      }
      return text;
   }

 private:
   int fd_;
};

// Starts a program whose output goes to the streams. `arguments` begins with its path;
// `environment` is added to this process's own.
inline pid_t spawnProgram(std::vector<std::string> arguments, std::vector<std::string> environment,
                          const CapturedStream& out, const CapturedStream& err) {
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
   ::posix_spawn_file_actions_adddup2(&actions, out.fd(), STDOUT_FILENO);
   ::posix_spawn_file_actions_adddup2(&actions, err.fd(), STDERR_FILENO);
   pid_t child = 0;
   const int error =
         ::posix_spawn(&child, argv[0], &actions, nullptr, argv.data(), variables.data());
   ::posix_spawn_file_actions_destroy(&actions);
   if (error != 0) {
      throw std::runtime_error{"cannot run " + arguments.front()};
   }
   return child;
}

// Waits for the program's end.
inline ProgramResult awaitProgram(pid_t child, const CapturedStream& out,
                                  const CapturedStream& err) {
   int status = 0;
   rusage usage{};
   ::wait4(child, &status, 0, &usage);
   const auto seconds = [](const timeval& time) {
      return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
   };
   return {WIFEXITED(status) ? WEXITSTATUS(status) : -1,
           WIFSIGNALED(status) ? WTERMSIG(status) : 0,
           out.text(),
           err.text(),
           seconds(usage.ru_utime) + seconds(usage.ru_stime),
           usage.ru_maxrss};
}

// Runs a program from its start, as above, to its end.
inline ProgramResult runProgram(std::vector<std::string> arguments,
                                std::vector<std::string> environment = {}) {
   const CapturedStream out;
   const CapturedStream err;
   return awaitProgram(spawnProgram(std::move(arguments), std::move(environment), out, err), out,
                       err);
}

} // namespace TestSupport
