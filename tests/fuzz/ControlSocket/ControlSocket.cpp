// The control socket: an agent's real server on its event loop, and up to four clients that send
// bytes in pieces, in turns, stop sending and leave. Whatever they send, whoever stays gets one
// whole answer or, when it has asked nothing, none; and nobody keeps the server from going on.
//
// The first byte chooses the server: one with room for all clients, or one with room for two, in
// which a silent client makes way. Steps follow: a byte that says who does what, and its operands.
#include "postcard/agent/service/ControlSocket.h"

#include "../Input.h"
#include "../Require.h"
#include "Clients.h"
#include "Pello/TextTrace.h"
#include "postcard/agent/service/ControlCommands.h"
#include "postcard/policy/file/PolicyFile.h"
#include "postcard/rules-client/Conversation.h"
#include "postcard/rules-client/software/SoftwareTcam.h"

#include <nlohmann/json.hpp>

#include <array>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <optional>

namespace {

using namespace Postcard::Agent;
using namespace Postcard::Agent::Service;
using Fuzz::Client;
using Fuzz::Input;
using Fuzz::require;

constexpr std::size_t mostClients = 4;

const Postcard::Policy::PolicyFile& policyFile(bool second) {
   static const auto parse = [](const char* text) {
      return *Postcard::Policy::File::parsePolicyText(text, "file").policyFile;
   };
   static const std::array files{
         parse("policies: [{ name: web, interfaces: { ipv4: [E] }, classes: [{ name: all, actions: "
               "[sample-all], ipv4: {} }] }]"),
         parse("policies: [{ name: web, interfaces: { ipv6: [E] }, classes: [] }, { name: bad, "
               "interfaces: { ipv4: [E] }, classes: [{ name: all, actions: [drop], ipv4: {} }] "
               "}]")};
   return files.at(second ? 1 : 0);
}

// An agent that is asked, with its rules client. Its answers come from the event loop.
class Asked {
 public:
   explicit Asked(EventLoop& loop)
      : loop_{loop},
        host_{Postcard::Host::PluginHost::defaultModule()},
        agent_{host_, policyFile(false), PolicyAgent::Options{std::chrono::hours{1}, 3},
               PolicyAgent::Hooks{[this](auto work) { loop_.later(std::move(work)); }, [](auto) {},
                                  [] {}}},
        line_{agent_.requests(), agent_.answers(),
              std::make_shared<Postcard::RulesClient::SoftwareTcam>(),
              [this](auto work) { loop_.later(std::move(work)); }} {
      agent_.start();
   }

   void answer(std::string_view line, const Respond& respond) {
      answerRequest(line, agent_, process_, [respond](Answer answer) {
         // No child process, of which a fuzzer would make thousands. What it would write is made.
         if (answer.write) {
            static const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
            answer.write(nowhere);
         }
         respond({std::move(answer.text), nullptr});
      });
   }
   // Files and results of waiting take turns, from the first one on.
   void beginAgain() {
      turn_ = 0;
      refused_.reset();
      agent_.reload(policyFile(false));
      Pello::traceLevelsIs("");
   }

 private:
   void reload(ReloadOptions options, const ReloadDone& done) {
      const ReloadResult result = agent_.reload(
            policyFile(++turn_ % 2 == 1), options.partial ? PolicyAgent::Refused::isLeftOut
                                                          : PolicyAgent::Refused::nothingIsDone);
      refused_ = result.accepted ? std::nullopt : std::optional{RefusedReload{0, result.findings}};
      loop_.later([done, result] { done(result); });
   }
   void wait(const std::function<void(WaitEnd)>& end) {
      loop_.later([end, how = static_cast<WaitEnd>(turn_++ % 4)] { end(how); });
   }

   EventLoop& loop_;
   Postcard::Host::PluginHost host_;
   PolicyAgent agent_;
   Postcard::RulesClient::Conversation line_;
   std::optional<RefusedReload> refused_;
   unsigned turn_ = 0;
   const Process process_{
         [this](ReloadOptions options, const ReloadDone& done) { reload(options, done); },
         [this]() -> const std::optional<RefusedReload>& { return refused_; },
         [] {
            return std::optional{Capacity{2, 4096}};
         },
         [this](std::chrono::milliseconds, const std::function<void(WaitEnd)>& end) { wait(end); },
         "policy.yaml",
         [] { return std::string_view{"policies: []\n"}; }};
};

// The process's event loop, the agent, and the two servers.
class World {
 public:
   // Kept until the process ends.
   static World& only() {
      static auto* const world = new World;
      return *world;
   }
   static void removeFolder() { std::filesystem::remove_all(only().folder_); }

   std::string path(bool crowded) const { return folder_ + (crowded ? "/crowded" : "/roomy"); }
   void beginAgain() { asked_.beginAgain(); }
   // Everything that can happen at once happens.
   void round() {
      loop_.later([this] { loop_.stop(); });
      loop_.run();
   }

 private:
   World()
      : folder_{makeFolder()},
        asked_{loop_},
        roomy_{loop_, path(false), ControlLimits{mostClients, hour, hour, hour}, answerer()},
        crowded_{loop_, path(true), ControlLimits{2, hour, hour, std::chrono::milliseconds{0}},
                 answerer()} {}

   static std::string makeFolder() {
      std::string folder = std::filesystem::temp_directory_path() / "postcard-fuzz-XXXXXX";
      require(::mkdtemp(folder.data()) != nullptr, "there is a folder for sockets");
      return folder;
   }
   ControlServer::Answerer answerer() {
      return
            [this](std::string_view line, const Respond& respond) { asked_.answer(line, respond); };
   }

   static constexpr std::chrono::milliseconds hour{3'600'000};

   std::string folder_;
   EventLoop loop_;
   Asked asked_;
   ControlServer roomy_;
   ControlServer crowded_;
};

// ---- What must hold ----

// What a client has asked, if it is an object as the protocol has it.
std::optional<nlohmann::json> requestOf(const std::string& sent) {
   auto request = nlohmann::json::parse(sent.substr(0, sent.find('\n')), nullptr, false);
   const bool good =
         request.is_object() && request.contains("command") && request["command"].is_string();
   return good ? std::optional{std::move(request)} : std::nullopt;
}

void checkText(std::string_view text, const nlohmann::json& request, int exitCode) {
   for (const char c : text) {
      require(c == '\n' || static_cast<unsigned char>(c) >= 32, "no control characters", text);
   }
   // `dump` throws for a text that is not UTF-8.
   require(!nlohmann::json(text).dump().empty(), "the text is UTF-8", text);
   const auto command = request["command"].get<std::string>();
   const bool hasDocument = command == "status" || command == "memory" || command == "reload";
   if (hasDocument && exitCode != 3 && request.value("format", nlohmann::json()) == "json") {
      require(nlohmann::json::accept(text), "JSON was asked for", text);
   }
}

void checkAnswer(const Client& client) {
   const std::string& answer = client.answer();
   const std::size_t end = answer.find('\n');
   require(end != std::string::npos, "an answer has a header", answer);
   const auto header = nlohmann::json::parse(answer.substr(0, end), nullptr, false);
   require(header.is_object() && header.contains("exit"), "the header says how to end", answer);
   const int exitCode = header["exit"];
   require(exitCode >= 0 && exitCode <= 3, "it is an exit status of the command", answer);
   const auto request = requestOf(client.sent());
   const bool cut = client.sent().find('\n') > longestRequest; // it was answered before its end
   if (!cut) {
      require(request.has_value() || exitCode == 2, "what is no request is refused", answer);
   }
   if (request && !cut) {
      checkText(std::string_view{answer}.substr(end + 1), *request, exitCode);
   }
}

// ---- The steps ----

class Crowd {
 public:
   explicit Crowd(bool crowded) : crowded_{crowded} {}

   void step(Input& input) {
      const auto what = input.number<U8>();
      std::optional<Client>& client = clients_.at(what % mostClients);
      constexpr unsigned leave = 7;
      constexpr unsigned turn = 6;
      constexpr unsigned endSending = 5;
      const unsigned action = what / mostClients % 8;
      if (!client && action < endSending) {
         client.emplace(World::only().path(crowded_));
      }
      if (action == leave) {
         client.reset();
      } else if (action == turn) {
         World::only().round();
      } else if (action == endSending) {
         client ? client->endSending() : void();
      } else {
         std::string bytes = input.text(input.number<U8>());
         bytes += action >= 3 ? "\n" : "";
         // Few bytes of input stand for a line that is too long.
         const std::size_t times = action == 2 ? 100 : 1;
         for (std::size_t i = 0; i < times; ++i) {
            client->send(bytes);
         }
      }
   }

   void end() {
      for (std::optional<Client>& client : clients_) {
         client ? client->endSending() : void();
      }
      bool over = false;
      for (int rounds = 0; !over; ++rounds) {
         require(rounds < 1000, "every client is answered");
         World::only().round();
         over = true;
         for (std::optional<Client>& client : clients_) {
            over = (!client || client->read()) && over;
         }
      }
      for (const std::optional<Client>& client : clients_) {
         if (client) {
            check(*client);
         }
      }
   }

 private:
   void check(const Client& client) const {
      if (client.sent().empty()) {
         require(client.answer().empty(), "nothing was asked", client.answer());
      } else if (!crowded_ || !client.answer().empty()) { // in a crowd, it may have made room
         checkAnswer(client);
      }
   }

   bool crowded_;
   std::array<std::optional<Client>, mostClients> clients_;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
   std::signal(SIGPIPE, SIG_IGN); // as the agent does
   World::only();
   std::atexit(&World::removeFolder);
   return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
   Input input{{data, size}};
   World::only().beginAgain();
   Crowd crowd{input.number<U8>() % 2 == 1};
   while (!input.empty()) {
      crowd.step(input);
   }
   crowd.end();
   return 0;
}
