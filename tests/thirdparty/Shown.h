#pragma once

// What the show command writes, as a text and line by line.

#include "Guesses.h"

#include <array>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace thirdparty {

// A file without a name takes the text, as the command writes to a descriptor.
inline std::string shownBy(const Oru::OruPostcardPolicyAclHelper& helper) {
   std::FILE* const file{std::tmpfile()};
   if (file == nullptr) {
      return "no temporary file";
   }
   helper.showPostcardAcl(static_cast<unsigned>(fileno(file)));
   std::rewind(file);
   std::string whole{};
   std::array<char, 4096> part{};
   for (auto got = std::fread(part.data(), 1, part.size(), file); got > 0;
        got = std::fread(part.data(), 1, part.size(), file)) {
      whole.append(part.data(), got);
   }
   std::fclose(file);
   return whole;
}

inline std::vector<std::string> linesOf(const std::string& whole) {
   std::vector<std::string> lines{};
   std::istringstream in{whole};
   for (std::string line{}; std::getline(in, line);) {
      lines.push_back(line);
   }
   return lines;
}

inline unsigned occurrences(const std::string& whole, const std::string& part) {
   unsigned found{0};
   for (auto at = whole.find(part); at != std::string::npos; at = whole.find(part, at + 1)) {
      ++found;
   }
   return found;
}

} // namespace thirdparty
