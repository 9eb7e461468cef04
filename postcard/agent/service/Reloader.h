// `Reloader`: reads the policy file again, and remembers the latest refusal until a file is
// accepted. Relies on the event loop for waiting, and on the policy file's loader.
//
// Part of a policy file is often a valid policy file. Therefore the file is read only when its
// size, its times and its inode have stood still for a moment, and once more when they have changed
// by the end of reading. Writing aside and renaming avoids the wait: the new file is old by then.
#pragma once

#include "postcard/agent/PolicyReport.h"
#include "postcard/agent/service/EventLoop.h"
#include "postcard/policy/Policy.h"

#include <chrono>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <sys/stat.h>

namespace Postcard::Agent::Service {

// What a reload may do beyond taking over a whole file that has policies.
struct ReloadOptions {
   bool allowEmpty = false; // a file without policies may remove every policy
   bool partial = false;    // policies that the plug-in refuses may be left out
};

// Hears how a reload ended.
using ReloadDone = std::function<void(const ReloadResult&)>;

// Reads the policy file again and hands it to the agent. Calls the function once: at once, or from
// the event loop when the file has stood still.
using Reload = std::function<void(ReloadOptions, ReloadDone)>;

// The latest reload that was refused, with nothing accepted since.
struct RefusedReload {
   double when; // seconds since 1970-01-01 00:00 UTC
   std::vector<ReloadFinding> findings;
};

class Reloader {
 public:
   // Hands a file that could be read, and the text that stood in it, to the agent.
   using Apply = std::function<ReloadResult(const Policy::PolicyFile&, const std::string& text,
                                            ReloadOptions)>;

   // `stillTime` is how long the file must have stood still; 0 reads it at once. `patience` is how
   // long the reloader waits for that. `loop` must outlive the object.
   Reloader(EventLoop& loop, std::string file, std::chrono::milliseconds stillTime,
            std::chrono::milliseconds patience, Apply apply);

   // As `Reload` says. Reloads end in the order of the calls.
   void begin(ReloadOptions options, ReloadDone done);

   // Absent: the agent has the file as it was read last.
   const std::optional<RefusedReload>& refused() const { return refused_; }
   // Notes an outcome that did not come from `begin`.
   void note(const ReloadResult& result);

 private:
   using Clock = std::chrono::steady_clock;

   // What a change of the file changes.
   struct Look {
      dev_t device = 0;
      ino_t inode = 0;
      off_t size = 0;
      timespec modified{};
      timespec changed{};

      bool operator==(const Look& other) const;
   };
   struct Task {
      ReloadOptions options;
      ReloadDone done;
      Clock::time_point deadline;
   };

   std::optional<Look> look() const;
   bool isOld(const Look& look) const;
   void next();
   void wait();
   std::optional<ReloadResult> read(const Task& task, const std::optional<Look>& before) const;
   void end(const ReloadResult& result);

   std::string file_;
   std::chrono::milliseconds stillTime_;
   std::chrono::milliseconds patience_;
   Apply apply_;
   EventTimer timer_;         // until the next look
   std::deque<Task> tasks_;   // oldest first
   std::optional<Look> last_; // the latest look at a file that may be changing
   std::optional<RefusedReload> refused_;
};

} // namespace Postcard::Agent::Service
