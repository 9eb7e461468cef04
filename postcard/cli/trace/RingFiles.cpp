#include "postcard/cli/trace/RingFiles.h"

#include <fmt/format.h>

#include <algorithm>
#include <iostream>
#include <system_error>
#include <utility>

namespace Postcard::Cli::Trace {

namespace {

using Ringlog::FileReader;

void say(const FileReader& reader, const std::string& what) {
   std::cerr << reader.path() << ": " << what << '\n';
}

// Adds what is new in one file. Throws what `FileReader::look` throws.
void addNew(FileReader& reader, std::vector<Event>& events) {
   FileReader::Look look = reader.look();
   const U32 process = reader.facts().processId;
   if (look.replaced) {
      say(reader, fmt::format("process {} traces into it from here on", process));
   }
   if (look.missed > 0) {
      say(reader,
          fmt::format("{} traces made room for newer ones before they could be read", look.missed));
   }
   for (Ringlog::Record& record : look.records) {
      events.push_back({process, std::move(record)});
   }
}

// Returns false, and says why, when the file cannot be used.
bool tryAddNew(FileReader& reader, std::vector<Event>& events) {
   try {
      addNew(reader, events);
      return true;
   } catch (const Ringlog::DamagedRing& error) {
      say(reader, error.what());
   } catch (const std::system_error& error) {
      std::cerr << error.what() << '\n'; // begins with the path
   }
   return false;
}

// Says nothing about a file that lacks nothing.
void reportLossesOf(const FileReader& reader) {
   const Ringlog::RingFacts& facts = reader.facts();
   if (facts.lostDescriptors > 0) {
      say(reader,
          fmt::format("{} call sites found no room for their description", facts.lostDescriptors));
   }
   if (reader.undescribed() > 0) {
      say(reader, fmt::format("{} traces of call sites without a description are left out",
                              reader.undescribed()));
   }
   if (facts.lostBlocks > 0) {
      say(reader, fmt::format("{} times a thread found all of the ring in use by others and lost "
                              "its next {} KiB of traces",
                              facts.lostBlocks, Ringlog::blockSize / 1024));
   }
   if (reader.damagedBlocks() > 0) {
      say(reader,
          fmt::format("{} of {} blocks are damaged; what lies behind the damage is left out",
                      reader.damagedBlocks(), facts.blocks));
   }
}

} // namespace

RingFiles::RingFiles(const std::vector<std::string>& paths) {
   for (const std::string& path : paths) {
      readers_.emplace_back(path);
   }
}

std::optional<std::vector<Event>> RingFiles::look() {
   std::vector<Event> events;
   bool usable = true;
   // All files are read, even after one that cannot be used, so that every such file is reported.
   for (FileReader& reader : readers_) {
      usable = tryAddNew(reader, events) && usable;
   }
   // Stable: traces of one moment keep the order in which their file has them.
   std::ranges::stable_sort(events, {}, [](const Event& event) { return event.record.time; });
   return usable ? std::optional{std::move(events)} : std::nullopt;
}

void RingFiles::reportLosses() const {
   std::ranges::for_each(readers_, &reportLossesOf);
}

} // namespace Postcard::Cli::Trace
