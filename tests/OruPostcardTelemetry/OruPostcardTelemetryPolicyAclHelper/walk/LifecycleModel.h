// `Model`: the life of policies as simply as it can be told, with the standard library alone, to
// compare the helper with. It knows what a policy's rules are called, not what they say. Relies on
// nothing of the system; a caller must only make calls that are legal.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace LifecycleModel {

// What a policy contains in one family.
enum class Content { nothing, one, two, oneThenBad, bad };

struct Policy {
   std::string name;
   std::string scope;
   Content content[2] = {Content::one, Content::one}; // by family: 0 IPv4, 1 IPv6
   std::set<std::string> interfaces[2] = {{"Ethernet1"}, {"Ethernet1"}};
};

struct Config {
   std::string key;
   int family = 0;
   std::vector<std::string> rules; // names, in the order in which they match
   std::set<std::string> interfaces;
   bool programmed = false;
   bool updated = false;
   std::map<uint32_t, std::string> texts;
   uint32_t next = 0;

   // Everything, on one line.
   std::string text() const;
};

// How the rules client behaves: it keeps the request for later, or answers at once.
enum class Client { later, succeedsAtOnce, failsAtOnce };

class Model {
 public:
   static std::string key(const Policy& policy, int family);
   bool has(const Policy& policy, int family) const {
      return configs.contains(key(policy, family));
   }

   // The operations, with the text that they return.
   std::string create(const Policy& policy, int family);
   std::string recreate(const Policy& policy, int family);
   std::string commit(const Policy& policy, int family);
   std::string remove(const Policy& policy, int family);
   std::string changeInterface(const Policy& policy, int family, const std::string& interface,
                               bool removal);
   std::string answer(bool success, const std::string& text);

   // Whether an answer has a configuration to go to.
   bool mayAnswer() const { return about != nullptr && configs.contains(about->key); }
   // Configurations that exist, here or in the request alone.
   std::size_t living() const { return configs.size() + (about != nullptr && !current() ? 1 : 0); }
   // Whether the configuration of the request is the one under its key.
   bool current() const;

   std::map<std::string, std::shared_ptr<Config>> configs;
   // The request.
   int event = 0;
   std::shared_ptr<Config> about;
   std::string interface;
   uint32_t count = 0;
   // The latest asynchronous result.
   std::string result;

   Client client = Client::later;
   uint32_t unanswered = 0;
   std::vector<std::string> published;      // as the log of the records writes it
   std::vector<std::string> returned;       // by answers that came at once
   std::map<std::string, uint64_t> reached; // how often each path was taken

 private:
   std::shared_ptr<Config> add(const std::string& key, int family);
   void drop(const std::string& key);
   static std::string build(Config& config, const Policy& policy, int family);
   std::string finish(const std::string& message);
   std::string report(const std::string& text);
   void post(int newEvent, const std::shared_ptr<Config>& config, const std::string& intf);
   std::string reach(const std::string& path, std::string text = {});
};

} // namespace LifecycleModel
