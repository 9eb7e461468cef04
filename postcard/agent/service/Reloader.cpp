#include "postcard/agent/service/Reloader.h"

#include "Kiv/System.h"
#include "postcard/policy/file/PolicyFile.h"

#include <algorithm>
#include <ctime>
#include <exception>
#include <string>
#include <utility>

namespace Postcard::Agent::Service {

namespace {

bool same(const timespec& a, const timespec& b) {
   return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

double seconds(const timespec& time) {
   return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// The findings of the loader, as a reload reports them.
ReloadResult refusalOf(const Policy::File::LoadResult& loaded) {
   ReloadResult result;
   result.unusableFile = true;
   for (const Policy::Finding& finding : loaded.findings) {
      result.findings.push_back({loaded.fileName,
                                 finding.location,
                                 {},
                                 std::nullopt,
                                 std::string{codeName(finding.code)},
                                 finding.message});
   }
   result.omittedFindings = loaded.omittedFindings;
   return result;
}

} // namespace

bool Reloader::Look::operator==(const Look& other) const {
   return device == other.device && inode == other.inode && size == other.size &&
          same(modified, other.modified) && same(changed, other.changed);
}

Reloader::Reloader(EventLoop& loop, std::string file, std::chrono::milliseconds stillTime,
                   std::chrono::milliseconds patience, Apply apply)
   : file_{std::move(file)},
     stillTime_{stillTime},
     patience_{patience},
     apply_{std::move(apply)},
     timer_{loop, [this] { next(); }} {}

void Reloader::begin(ReloadOptions options, ReloadDone done) {
   tasks_.push_back({options, std::move(done), Clock::now() + patience_});
   if (tasks_.size() == 1) {
      next();
   }
}

// The file as it is now; absent when there is none, or when it is nothing that can be half-written,
// such as a pipe.
std::optional<Reloader::Look> Reloader::look() const {
   struct stat status {};
   if (::stat(file_.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
      return std::nullopt;
   }
   return Look{status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim};
}

// Whether nothing has happened to the file for `stillTime_`. The time of the change of the inode
// counts as well: whoever copies a file with its times has written it just now.
bool Reloader::isOld(const Look& look) const {
   const double latest = std::max(seconds(look.modified), seconds(look.changed));
   const double still = static_cast<double>(stillTime_.count()) / 1e3;
   return Kiv::System::currentTime() - latest >= still;
}

// Carries out the oldest task, or waits until its file has stood still.
void Reloader::next() {
   while (!tasks_.empty()) {
      const std::optional<Look> now = look();
      // Two equal looks serve as well as an old file, because clocks of file servers differ.
      const bool isStill = !now || stillTime_.count() == 0 || isOld(*now) || now == last_;
      last_ = now;
      std::optional<ReloadResult> result;
      if (isStill) {
         try {
            result = read(tasks_.front(), now);
         } catch (const std::exception& error) { // otherwise no later task would ever begin
            result = refusedReload("failed", std::string{"the reload failed: "} + error.what());
         }
      } else if (Clock::now() >= tasks_.front().deadline) {
         result = refusedReload(
               "changing", "the file is still being written; write it aside and rename it", file_);
      }
      if (!result) {
         return wait();
      }
      end(*result);
   }
}

void Reloader::wait() {
   timer_.start(std::max(stillTime_, std::chrono::milliseconds{1}));
}

// Absent when the file has changed while it was read.
std::optional<ReloadResult> Reloader::read(const Task& task,
                                           const std::optional<Look>& before) const {
   const Policy::File::LoadResult loaded = Policy::File::loadPolicyFile(file_);
   if (stillTime_.count() != 0 && before && look() != before && Clock::now() < task.deadline) {
      return std::nullopt;
   }
   if (!loaded.policyFile) {
      return refusalOf(loaded);
   }
   return apply_(*loaded.policyFile, loaded.text, task.options);
}

// Ends the oldest task.
void Reloader::end(const ReloadResult& result) {
   const Task task = std::move(tasks_.front());
   tasks_.pop_front();
   last_.reset();
   note(result);
   task.done(result);
}

void Reloader::note(const ReloadResult& result) {
   if (result.accepted) {
      refused_.reset();
   } else {
      refused_ = RefusedReload{Kiv::System::currentTime(), result.findings};
   }
}

} // namespace Postcard::Agent::Service
