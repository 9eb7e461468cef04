// `TraceFolder`: a folder for ring files, and `postcard trace` over them. Relies on the program's
// place and on rings put together by hand.
#pragma once

#include "platform/Ringlog/RingBytes.h"
#include "support/RunProgram.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace TestSupport {

class TraceFolder : public testing::Test {
 protected:
   TraceFolder() {
      char path[] = "/tmp/postcard-trace-XXXXXX";
      folder_ = ::mkdtemp(path);
   }
   ~TraceFolder() override { std::filesystem::remove_all(folder_); }

   std::string path(const std::string& name) const { return folder_ + "/" + name; }
   // A file of these bytes.
   std::string file(const std::string& name, const std::vector<std::byte>& bytes) const {
      std::ofstream{path(name), std::ios::binary}.write(reinterpret_cast<const char*>(bytes.data()),
                                                        static_cast<std::streamsize>(bytes.size()));
      return path(name);
   }
   std::string file(const std::string& name, RingBytes& ring) const {
      return file(name, ring.bytes());
   }
   static ProgramResult trace(std::vector<std::string> arguments,
                              std::vector<std::string> environment = {}) {
      arguments.insert(arguments.begin(), {program, "trace"});
      return runProgram(std::move(arguments), std::move(environment));
   }

 private:
   std::string folder_;
};

inline std::vector<std::string> linesOf(const std::string& text) {
   std::vector<std::string> lines;
   std::istringstream in{text};
   for (std::string line; std::getline(in, line);) {
      lines.push_back(line);
   }
   return lines;
}

} // namespace TestSupport
