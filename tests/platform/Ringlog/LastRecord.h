// What this process's ring says, read from a snapshot.
#pragma once

#include "Ringlog/Ring.h"
#include "support/RingReader.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <vector>

namespace TestSupport {

inline TestSupport::RingReader readRing() {
   return TestSupport::RingReader{Ringlog::snapshot()};
}

struct LastRecord {
   Ringlog::Descriptor site;
   std::string text;
   double time;
   U32 thread;
};

inline LastRecord lastRecord() {
   const TestSupport::RingReader reader = readRing();
   const Ringlog::Record& last = reader.records().back();
   return {*last.site, last.text, last.time, last.thread};
}

// A ring file of its own per process and test, known to the child that runs the test's statement
// too: a child finds the name in its environment.
class RingFile {
 public:
   RingFile() {
      GTEST_FLAG_SET(death_test_style, "threadsafe"); // children start afresh, without a ring
      const auto* test = testing::UnitTest::GetInstance()->current_test_info();
      const std::string variable = std::string{"POSTCARD_TEST_"} + test->name();
      const std::string made =
            testing::TempDir() + "ring-" + test->name() + "-" + std::to_string(::getpid());
      ::setenv(variable.c_str(), made.c_str(), 0);
      path_ = std::getenv(variable.c_str());
      mine_ = path_ == made;
   }
   ~RingFile() {
      if (mine_) {
         ::unlink(path_.c_str());
      }
   }
   RingFile(const RingFile&) = delete;
   RingFile& operator=(const RingFile&) = delete;

   const std::string& path() const { return path_; }
   // From now on this process's ring is the file, if it has none yet.
   void use() const { ::setenv("RINGLOG_FILE", path_.c_str(), 1); }
   std::vector<std::byte> bytes() const {
      std::ifstream in{path_, std::ios::binary | std::ios::ate};
      std::vector<std::byte> bytes(in ? static_cast<std::size_t>(in.tellg()) : 0);
      in.seekg(0);
      in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
      bytes.resize(in ? bytes.size() : static_cast<std::size_t>(in.gcount())); // may be truncated
      return bytes;
   }
   std::vector<std::string> texts() const {
      std::vector<std::string> texts;
      const TestSupport::RingReader reader{bytes()};
      for (const Ringlog::Record& record : reader.records()) {
         texts.push_back(record.text);
      }
      return texts;
   }

 private:
   std::string path_;
   bool mine_;
};

} // namespace TestSupport
