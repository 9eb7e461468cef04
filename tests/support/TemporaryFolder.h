// `TemporaryFolder`: a folder that lives as long as the test, with files written into it. Relies on
// POSIX only.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace TestSupport {

class TemporaryFolder {
 public:
   TemporaryFolder() {
      char path[] = "/tmp/postcard-test-XXXXXX";
      if (::mkdtemp(path) == nullptr) {
         throw std::runtime_error{"no temporary folder"};
      }
      path_ = path;
   }
   TemporaryFolder(const TemporaryFolder&) = delete;
   TemporaryFolder& operator=(const TemporaryFolder&) = delete;
   ~TemporaryFolder() { std::filesystem::remove_all(path_); }

   std::string path(std::string_view file) const { return path_ + "/" + std::string{file}; }
   // Writes the file, or writes it anew; returns its path.
   std::string write(std::string_view file, std::string_view content) const {
      std::string name = path(file);
      std::ofstream{name, std::ios::binary} << content;
      return name;
   }

 private:
   std::string path_;
};

} // namespace TestSupport
