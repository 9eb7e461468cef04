// `openClientModule`: a rules client from a library of its own, loaded at run time, so that only
// who uses it needs what it needs. Relies on the run-time loader.
//
// Such a library defines two symbols with C linkage:
//
//    extern "C" const U32 postcardClientPlatformVersion;   Kiv::platformVersion
//    extern "C" ModuleClient* postcardClientFactory(const ClientOptions& options);
//
// The factory returns an object that the caller owns. It throws std::runtime_error, in words for
// people, when the client cannot work here.
#pragma once

#include "postcard/rules-client/Counters.h"
#include "postcard/rules-client/RulesClient.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace Postcard::RulesClient {

// What a client may be told. A client ignores what it has no use for.
struct ClientOptions {
   U32 sampleBytes = 128; // of each sampled packet that are kept
   // Takes one line for people, about something that happened outside of any request. Must not be
   // empty.
   std::function<void(const std::string&)> say = [](const std::string&) {};
};

class ModuleClient : public RulesClient {
 public:
   // A file descriptor that the process watches for the client. `readable` is called on the thread
   // of the event loop whenever there is something to read. Valid as long as the client.
   struct Watched {
      int descriptor;
      std::function<void()> readable;
   };

   // The descriptors; the same ones from the beginning to the end.
   virtual std::vector<Watched> watched() = 0;

   // What has been counted since each ACL was programmed, in the order of the keys. May be called
   // in a forked process.
   virtual std::vector<AclCounters> counters() const = 0;
};

// There is no such library, or it is no rules client. The text says which and why.
class ClientModuleError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// Loads the library `file` and makes its client, never null. The library is never unloaded. Throws
// ClientModuleError, and what the factory throws.
std::shared_ptr<ModuleClient> openClientModule(const std::filesystem::path& file,
                                               const ClientOptions& options);

// The path of a library of this project, such as "PostcardKernel", in the folder of modules. It
// may be missing there.
std::filesystem::path clientModule(const std::string& library);

} // namespace Postcard::RulesClient
