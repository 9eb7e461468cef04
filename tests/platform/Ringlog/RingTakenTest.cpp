// Which files a process takes for its ring, and that everything else stays as it was: other
// content, links, devices, an old ring when there is no room for the new one.
#include "LastRecord.h"
#include "RingBytes.h"
#include "Ringlog/Trace.h"
#include "support/Sanitized.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Ringlog {
namespace {

const Pello::TraceSource traceSource{"RingTakenTest"};
using Texts = std::vector<std::string>;
using TestSupport::RingBytes;
using TestSupport::RingFile;

void trace(std::string_view text) {
   RINGLOG_TRACE(5, "traced {}", text);
}

// Ends the process with 0 when its trace is in memory, where it must be whatever the file.
[[noreturn]] void traceInto(const std::string& path) {
   ::setenv("RINGLOG_FILE", path.c_str(), 1);
   trace("kept");
   std::_Exit(TestSupport::lastRecord().text == "traced kept" ? 0 : 1);
}

std::string ignored(const std::string& path, const std::string& reason) {
   return "^RINGLOG_FILE=" + path + " ignored: " + reason + "\\. Traces stay in memory\n$";
}

void write(const std::string& path, const std::string& bytes) {
   std::ofstream{path, std::ios::binary} << bytes;
}

std::string read(const std::string& path) {
   std::ifstream in{path, std::ios::binary};
   return {std::istreambuf_iterator<char>{in}, {}};
}

// A ring of two blocks with a record in each, and zeros behind it when it is to be larger.
std::string oldRing(std::size_t size = ringSize(RingBytes::blocks), U64 magic = ringMagic) {
   RingBytes ring;
   ring.site(1, "old").record(0, 1, 1000).record(1, 1, 1001).put(0, magic);
   std::string bytes{reinterpret_cast<const char*>(ring.bytes().data()), ring.bytes().size()};
   bytes.resize(size);
   return bytes;
}

mode_t modeOf(const std::string& path) {
   struct stat status {};
   return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

// What is in the ring; the reason when it cannot be read.
Texts textsOf(const RingFile& file) {
   try {
      return file.texts();
   } catch (const DamagedRing& damage) {
      return {damage.what()};
   }
}

TEST(RingTakenTest, anEmptyFileAndAnOldRingAreTaken) {
   const RingFile file;
   const struct {
      const char* what;
      std::string content;
   } rows[] = {
         {"empty", ""},
         {"smaller", oldRing()},
         {"larger", oldRing(ringSize(40))},
         {"of the same size", oldRing(ringSize(defaultBlocks))},
         {"of a later layout", oldRing(ringSize(2), ringMagic + 1)},
         {"in the making", oldRing(ringSize(2), ringInTheMaking)},
         {"truncated behind its mark", oldRing(8)},
         {"truncated in its descriptors", oldRing(10'000)},
         {"truncated in a block's header", oldRing(ringSize(1) + 3)},
   };
   for (const auto& row : rows) {
      write(file.path(), row.content);
      ::chmod(file.path().c_str(), 0666);
      const auto child = [&] {
         file.use();
         trace("new");
         std::raise(SIGKILL);
      };
      EXPECT_EXIT(child(), testing::KilledBySignal(SIGKILL), "^$") << row.what;
      EXPECT_EQ(textsOf(file), Texts{"traced new"}) << row.what;
      EXPECT_EQ(file.bytes().size(), ringSize(defaultBlocks)) << row.what;
      EXPECT_EQ(modeOf(file.path()), 0600U) << row.what;
   }
}

TEST(RingTakenTest, aFileThatHoldsSomethingElseStaysAsItIs) {
   const RingFile file;
   const std::string contents[] = {
         "policies: []\n",        "x",        "RINGLOG",
         std::string(9, '\0'),    oldRing(7), std::string(3'000'000, 'x'),
         "\x02" + oldRing(2'000),
   };
   for (const std::string& content : contents) {
      write(file.path(), content);
      ::chmod(file.path().c_str(), 0644);
      EXPECT_EXIT(traceInto(file.path()), testing::ExitedWithCode(0),
                  ignored(file.path(),
                          "the file holds something else than a trace ring and is left as it is; "
                          "name another one, or a new one"));
      EXPECT_EQ(read(file.path()), content);
      EXPECT_EQ(modeOf(file.path()), 0644U);
   }
}

TEST(RingTakenTest, aNameThatIsNoFileOfOursIsToldOnceAndTracesStayInMemory) {
   const RingFile file;
   const std::string link = file.path() + "-link";
   const std::string pipe = file.path() + "-pipe";
   const std::string second = file.path() + "-second";
   write(file.path(), oldRing());
   ::symlink(file.path().c_str(), link.c_str());
   ::mkfifo(pipe.c_str(), 0600);
   write(second, oldRing());
   ::link(second.c_str(), (second + "-name").c_str());
   const struct {
      std::string path;
      std::string reason;
   } rows[] = {
         {testing::TempDir(), "it is a directory; name a file in it"},
         {"/no/such/folder/ring", "there is no such folder; make it first"},
         {link, "it is a symbolic link, which is not followed; name the file itself"},
         {pipe, "it is no regular file; name one, or a new one"},
         {"/dev/null", "it is no regular file; name one, or a new one"},
         {second, "the file has several names \\(hard links\\); name a file that has one"},
   };
   for (const auto& row : rows) {
      EXPECT_EXIT(traceInto(row.path), testing::ExitedWithCode(0), ignored(row.path, row.reason));
   }
   EXPECT_EQ(read(file.path()), oldRing());
   EXPECT_EQ(read(second), oldRing());
   for (const std::string& path : {link, pipe, second, second + "-name"}) {
      ::unlink(path.c_str());
   }
   EXPECT_EXIT(traceInto(""), testing::ExitedWithCode(0), "^$");
}

TEST(RingTakenTest, aFileOfAnotherUserStaysAsItIs) {
   const RingFile file;
   write(file.path(), oldRing());
   ::chmod(file.path().c_str(), 0666);
   if (::chown(file.path().c_str(), 4711, 4711) != 0) {
      GTEST_SKIP() << "only root can give a file away";
   }
   EXPECT_EXIT(traceInto(file.path()), testing::ExitedWithCode(0),
               ignored(file.path(),
                       "the file belongs to user 4711; name a file of your own, or a new one"));
   EXPECT_EQ(read(file.path()), oldRing());
   EXPECT_EQ(modeOf(file.path()), 0666U);
}

TEST(RingTakenTest, aFileThatAnotherProcessTracesIntoIsLeftAlone) {
   const RingFile file;
   const int held = ::open(file.path().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
   // The child comes by here too, and finds the file locked.
   if (::flock(held, LOCK_EX | LOCK_NB) == 0) {
      write(file.path(), oldRing());
   }
   EXPECT_EXIT(
         traceInto(file.path()), testing::ExitedWithCode(0),
         ignored(file.path(), "another process traces into it; name a file for each process"));
   EXPECT_EQ(read(file.path()), oldRing());
   ::close(held);
}

TEST(RingTakenTest, aLimitOfTheFilesSizeLeavesTheOldRing) {
   const RingFile file;
   const std::size_t whole = ringSize(defaultBlocks);
   // Smaller limits would not let the message out.
   for (const std::size_t limit : {headerSize, ringSize(0), ringSize(2), ringSize(3), whole - 1}) {
      for (const std::string& content : {std::string{}, oldRing()}) {
         write(file.path(), content);
         const auto child = [&] {
            const rlimit most{limit, limit};
            ::setrlimit(RLIMIT_FSIZE, &most);
            traceInto(file.path());
         };
         EXPECT_EXIT(child(), testing::ExitedWithCode(0),
                     ignored(file.path(), "File too large; the ring needs 1540 KiB, and "
                                          "RINGLOG_SIZE sets how many"))
               << limit;
         EXPECT_EQ(read(file.path()), content) << limit;
      }
   }
}

// Whether this process may have mounts of its own. A container's root may not.
bool mayMount() {
   const pid_t child = ::fork();
   if (child == 0) {
      const bool may = ::unshare(CLONE_NEWNS) == 0 &&
                       ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
      std::_Exit(may ? 0 : 1);
   }
   int status = 0;
   return ::waitpid(child, &status, 0) == child && status == 0;
}

// A file system of `kibibytes` at `folder`, for this process only.
void mountSmall(const std::string& folder, std::size_t kibibytes) {
   const std::string size = "size=" + std::to_string(kibibytes) + "k";
   if (::unshare(CLONE_NEWNS) != 0 ||
       ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
       ::mount("none", folder.c_str(), "tmpfs", 0, size.c_str()) != 0) {
      std::perror("mount");
      std::_Exit(2);
   }
}

// The old ring must be there after a start on a full disk, and nothing that was allocated.
TEST(RingTakenTest, aFullDiskLeavesTheOldRing) {
   if (!mayMount()) {
      GTEST_SKIP() << "needs the right to mount a file system";
   }
   const std::string folder = testing::TempDir();
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   for (const std::size_t kibibytes : {652U, 700U, 1000U, 1200U, 1400U, 1536U}) {
      for (const std::string& content : {std::string{}, oldRing()}) {
         const auto child = [&] {
            mountSmall(folder, kibibytes);
            const std::string path = folder + "/ring";
            write(path, content);
            ::setenv("RINGLOG_FILE", path.c_str(), 1);
            trace("kept");
            struct stat status {};
            ::stat(path.c_str(), &status);
            const bool given =
                  static_cast<std::size_t>(status.st_blocks) * 512 <= content.size() + 4096;
            std::_Exit(TestSupport::lastRecord().text == "traced kept" && read(path) == content &&
                                   given
                             ? 0
                             : 1);
         };
         EXPECT_EXIT(child(), testing::ExitedWithCode(0),
                     ignored(".*/ring", "No space left on device; the ring needs 1540 KiB, and "
                                        "RINGLOG_SIZE sets how many"))
               << kibibytes;
      }
   }
}

TEST(RingTakenTest, aProcessWithFewDescriptorsTracesIntoTheFileOrIntoMemory) {
   const RingFile file;
   // The sanitizer looks at memory through a pipe, and reports what it cannot look at.
   const rlim_t fewest = TestSupport::sanitized ? 7 : 3;
   for (rlim_t most = fewest; most <= 20; ++most) {
      write(file.path(), oldRing());
      const auto child = [&] {
         ::close_range(3, ~0U, 0);
         const rlimit limit{most, most};
         ::setrlimit(RLIMIT_NOFILE, &limit);
         traceInto(file.path());
      };
      EXPECT_EXIT(child(), testing::ExitedWithCode(0),
                  most == 3 ? ignored(file.path(), "Too many open files; raise the limit of open "
                                                   "files")
                            : "^$")
            << most;
      EXPECT_EQ(file.texts(), most == 3 ? (Texts{"old", "old"}) : Texts{"traced kept"}) << most;
   }
}

// A process that has closed its standard streams and opens a ring: messages must not go into it.
TEST(RingTakenTest, theRingNeverGetsTheNumberOfAStandardStream) {
   const RingFile file;
   const auto child = [&] {
      file.use();
      ::close(STDERR_FILENO);
      trace("one");
      const bool closed = ::fcntl(STDERR_FILENO, F_GETFD) < 0;
      std::_Exit(closed ? 0 : 1);
   };
   EXPECT_EXIT(child(), testing::ExitedWithCode(0), "^$");
   EXPECT_EQ(file.texts(), Texts{"traced one"});
}

} // namespace
} // namespace Ringlog
