// Bytes and files before they are YAML.

#include "postcard/policy/file/Text.h"

#include "postcard/policy/file/PolicyFileFrames.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace Postcard::Policy::File {
namespace {

// A folder that goes away with the test.
class PolicyFileReading : public testing::Test {
 protected:
   PolicyFileReading() {
      std::string name = testing::TempDir() + "policy-file-XXXXXX";
      folder_ = ::mkdtemp(name.data());
   }
   ~PolicyFileReading() override { std::filesystem::remove_all(folder_); }

   std::string path(const std::string& name) const { return folder_ + "/" + name; }

   std::string write(const std::string& name, const std::string& text) const {
      std::ofstream(path(name), std::ios::binary) << text;
      return path(name);
   }

   // What loading says, without the path.
   std::string refusal(const std::string& file, const LoadOptions& options = {}) const {
      const LoadResult result = loadPolicyFile(file, options);
      EXPECT_FALSE(result.policyFile);
      EXPECT_EQ(result.fileName, file);
      return formatFindings(result).substr(file.size());
   }

 private:
   std::string folder_;
};

TEST_F(PolicyFileReading, goodFile) {
   const LoadResult result = loadPolicyFile(write("good", framed(Frame::klass, "    ipv4: {}\n")));
   ASSERT_TRUE(result.policyFile);
   EXPECT_EQ(result.policyFile->policies[0].classes[0].name.text, "c");
   EXPECT_EQ(formatFindings(result), "");
}

TEST_F(PolicyFileReading, whatIsNoRegularFile) {
   ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
   EXPECT_EQ(refusal(path("missing")), ": cannot open: No such file or directory\n");
   EXPECT_EQ(refusal(write("file", "") + "/x"), ": cannot open: Not a directory\n");
   EXPECT_EQ(refusal(path("")), ": expected a regular file, found a directory\n");
   EXPECT_EQ(refusal(path("pipe")), ": expected a regular file, found a pipe\n");
   EXPECT_EQ(refusal("/dev/null"), ": expected a regular file, found a device\n");
   EXPECT_EQ(refusal(""), ": cannot open: No such file or directory\n");
}

TEST_F(PolicyFileReading, socketIsRefused) {
   const int descriptor = ::socket(AF_UNIX, SOCK_STREAM, 0);
   sockaddr_un address = {};
   address.sun_family = AF_UNIX;
   ASSERT_LT(path("socket").copy(address.sun_path, sizeof(address.sun_path) - 1),
             sizeof(address.sun_path) - 1);
   ASSERT_EQ(::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
   EXPECT_EQ(refusal(path("socket")), ": cannot open: No such device or address\n");
   ::close(descriptor);
}

TEST_F(PolicyFileReading, fileThatMayNotBeRead) {
   const std::string file = write("secret", "policies: []\n");
   ASSERT_EQ(::chmod(file.c_str(), 0), 0);
   if (::access(file.c_str(), R_OK) == 0) {
      GTEST_SKIP() << "this user may read everything";
   }
   EXPECT_EQ(refusal(file), ": cannot open: Permission denied\n");
}

// A descriptor in the place of standard input, as long as the object lives.
class StandardInput {
 public:
   explicit StandardInput(int descriptor) : before_{::dup(STDIN_FILENO)} {
      ::dup2(descriptor, STDIN_FILENO);
   }
   ~StandardInput() {
      ::dup2(before_, STDIN_FILENO);
      ::close(before_);
   }

 private:
   int before_;
};

// A pipe whose writer sends `text` piece by piece, each after a pause, and then closes it.
class SlowWriter {
 public:
   explicit SlowWriter(std::string text) {
      EXPECT_EQ(::pipe2(ends_, O_CLOEXEC), 0);
      thread_ = std::thread{[text = std::move(text), out = ends_[1]] {
         for (std::size_t done = 0; done < text.size(); done += 7) {
            std::this_thread::sleep_for(std::chrono::milliseconds{2});
            const std::string piece = text.substr(done, 7);
            if (::write(out, piece.data(), piece.size()) < 0) {
               break;
            }
         }
         ::close(out);
      }};
   }
   ~SlowWriter() {
      thread_.join();
      ::close(ends_[0]);
   }
   int end() const { return ends_[0]; }

 private:
   int ends_[2] = {-1, -1};
   std::thread thread_;
};

TEST_F(PolicyFileReading, standardInput) {
   const std::string text = framed(Frame::klass, "    ipv4: {}\n");
   for (const std::string path : {"-", "/dev/stdin", "/dev/fd/0", "/proc/self/fd/0"}) {
      const SlowWriter writer{text};
      const StandardInput input{writer.end()};
      const LoadResult result = loadPolicyFile(path);
      ASSERT_TRUE(result.policyFile) << formatFindings(result);
      EXPECT_EQ(result.policyFile->policies[0].classes[0].name.text, "c");
      EXPECT_EQ(result.fileName, path == "-" ? "<stdin>" : path);
   }
}

TEST_F(PolicyFileReading, standardInputThatDoesNotWait) {
   const SlowWriter writer{"policies: []\n"};
   ASSERT_EQ(::fcntl(writer.end(), F_SETFL, O_NONBLOCK), 0);
   const StandardInput input{writer.end()};
   EXPECT_TRUE(loadPolicyFile("-").policyFile);
}

TEST_F(PolicyFileReading, anotherDescriptor) {
   const SlowWriter writer{"policies: 1\n"};
   const std::string path = "/dev/fd/" + std::to_string(writer.end());
   EXPECT_EQ(refusal(path), ":1:11: expected a list for policies, found '1'\n");
   EXPECT_EQ(refusal("/dev/fd/9999"), ": cannot read: Bad file descriptor\n");
   EXPECT_EQ(refusal("/dev/fd/"), ": expected a regular file, found a directory\n");
   EXPECT_EQ(refusal("/dev/fd/1x"), ": cannot open: No such file or directory\n");
}

TEST_F(PolicyFileReading, findingsInStandardInput) {
   const StandardInput input{::open(write("bad", "policies: 1\n").c_str(), O_RDONLY | O_CLOEXEC)};
   EXPECT_EQ(formatFindings(loadPolicyFile("-")),
             "<stdin>:1:11: expected a list for policies, found '1'\n");
   EXPECT_EQ(formatFindings(loadPolicyFile("-")),
             "<stdin>:1:1: the file holds nothing (expected a mapping)\n");
}

TEST_F(PolicyFileReading, standardInputHasTheSameLimit) {
   LoadOptions options;
   options.maxBytes = 13;
   {
      const SlowWriter writer{"policies: []\n"};
      const StandardInput input{writer.end()};
      EXPECT_TRUE(loadPolicyFile("-", options).policyFile);
   }
   const StandardInput input{::open("/dev/zero", O_RDONLY | O_CLOEXEC)}; // never ends
   const LoadResult result = loadPolicyFile("-", options);
   EXPECT_EQ(formatFindings(result), "<stdin>: the file is longer than 13 bytes\n");
   EXPECT_EQ(result.findings[0].code, FindingCode::tooLarge);
}

TEST_F(PolicyFileReading, codesOfFiles) {
   EXPECT_EQ(loadPolicyFile(path("missing")).findings[0].code, FindingCode::unreadable);
   EXPECT_EQ(loadPolicyFile(path("")).findings[0].code, FindingCode::unreadable);
}

TEST_F(PolicyFileReading, sizeLimitIsInclusive) {
   LoadOptions options;
   options.maxBytes = 13;
   EXPECT_TRUE(loadPolicyFile(write("13", "policies: []\n"), options).policyFile);
   EXPECT_EQ(refusal(write("14", "policies: []\n\n"), options),
             ": the file is longer than 13 bytes\n");
   EXPECT_EQ(findingsOf(parsePolicyText("policies: []\n\n", "F", options)),
             " the text is longer than 13 bytes\n");
}

// Files of /proc say that they are empty, and are not: the limit holds while reading too.
TEST_F(PolicyFileReading, fileThatIsLongerThanItSays) {
   LoadOptions options;
   options.maxBytes = 10;
   EXPECT_EQ(refusal("/proc/self/status", options), ": the file is longer than 10 bytes\n");
}

TEST_F(PolicyFileReading, fileThatCannotBeReadAfterOpening) {
   EXPECT_EQ(refusal("/proc/self/mem"), ": cannot read: Input/output error\n");
}

} // namespace
} // namespace Postcard::Policy::File
