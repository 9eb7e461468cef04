// The files that the commands are measured with, in a folder of their own. Relies on nothing.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

namespace Bench {

class Files {
 public:
   // Makes an empty folder under /tmp, which goes with this object.
   Files();
   Files(const Files&) = delete;
   Files& operator=(const Files&) = delete;
   ~Files();

   // A policy of classes with all ports on either side, TCP and UDP: 1,800 rules for each class.
   // The classes from `other` on sample by another bit.
   std::string policy(const std::string& name, std::size_t classes, std::size_t other) const;
   // A capture of TCP and UDP packets over Ethernet between the addresses 10.0.0.0 to 10.0.63.255,
   // with ports of services and clients.
   std::string capture(const std::string& name, std::size_t packets) const;
   // A path for what a command prints.
   std::string path(const std::string& name) const { return folder_ / name; }

 private:
   std::filesystem::path folder_;
};

} // namespace Bench
