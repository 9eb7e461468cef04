// `examplePolicies`: the policy files that the project ships as examples. Relies on the folder of
// the sources, which the build tells.
#pragma once

#include <algorithm>
#include <filesystem>
#include <vector>

namespace TestSupport {

// The paths of all examples/*.yaml, sorted. The examples for programmers stand in folders below.
inline std::vector<std::filesystem::path> examplePolicies() {
   std::vector<std::filesystem::path> paths;
   for (const auto& entry : std::filesystem::directory_iterator{POSTCARD_SOURCE_DIR "/examples"}) {
      if (entry.is_regular_file() && entry.path().extension() == ".yaml") {
         paths.push_back(entry.path());
      }
   }
   std::ranges::sort(paths);
   return paths;
}

} // namespace TestSupport
