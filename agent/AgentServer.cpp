#include "agent/AgentServer.h"

#include "agent/ControlCommands.h"
#include "agent/ControlSocket.h"
#include "agent/ServiceManager.h"

#include <fmt/format.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <map>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>
#include <uv.h>

namespace Agent {

namespace {

constexpr int longestQueue = 64; // connections that wait to be accepted

void check(int status, const std::string& what) {
   if (status < 0) {
      throw ServerError{what + ": " + ::uv_strerror(status)};
   }
}

void say(const std::string& line) {
   std::fputs((line + "\n").c_str(), stderr);
}

// The lines of a text, without their ends.
std::vector<std::string> linesOf(const std::string& text) {
   std::vector<std::string> lines;
   std::istringstream stream{text};
   for (std::string line; std::getline(stream, line);) {
      lines.push_back(std::move(line));
   }
   return lines;
}

// Whether somebody accepts connections at `path`.
bool isServed(const std::string& path) {
   const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   std::memcpy(address.sun_path, path.data(), path.size());
   const bool served =
         ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
   ::close(fd);
   return served;
}

// Removes what an agent that was killed has left; anything that is not a socket stays.
void clearStaleSocket(const std::string& path) {
   checkSocketPath(path);
   struct stat status {};
   if (::lstat(path.c_str(), &status) != 0) {
      return;
   }
   if (!S_ISSOCK(status.st_mode)) {
      throw ServerError{path + ": there is a file that is not a socket"};
   }
   if (isServed(path)) {
      throw ServerError{path + ": another agent is running"};
   }
   ::unlink(path.c_str());
}

} // namespace

// One client of the control socket. Deletes itself when its handle is closed.
struct Connection {
   uv_pipe_t pipe{};
   uv_write_t write{};
   std::string request;
   std::string answer;
   char buffer[1024];
   bool answered = false;
   std::function<std::string(std::string_view)> answerer;

   void begin() {
      ::uv_read_start(
            stream(),
            [](uv_handle_t* handle, std::size_t, uv_buf_t* target) {
               auto* self = static_cast<Connection*>(handle->data);
               *target = ::uv_buf_init(self->buffer, sizeof self->buffer);
            },
            [](uv_stream_t* from, ssize_t size, const uv_buf_t*) {
               static_cast<Connection*>(from->data)->received(size);
            });
   }

   void close() {
      auto* handle = reinterpret_cast<uv_handle_t*>(&pipe);
      if (::uv_is_closing(handle) == 0) {
         ::uv_close(handle,
                    [](uv_handle_t* closed) { delete static_cast<Connection*>(closed->data); });
      }
   }

 private:
   uv_stream_t* stream() { return reinterpret_cast<uv_stream_t*>(&pipe); }

   void received(ssize_t size) {
      if (size > 0 && !answered) {
         request.append(buffer, static_cast<std::size_t>(size));
      }
      const std::size_t end = request.find('\n');
      if (!answered && (end != std::string::npos || size < 0 || request.size() > longestRequest)) {
         reply(std::string_view{request}.substr(0, end));
      } else if (size < 0 && !answered) {
         close();
      }
   }

   void reply(std::string_view line) {
      answered = true;
      ::uv_read_stop(stream());
      answer = answerer(line);
      const uv_buf_t part = ::uv_buf_init(answer.data(), static_cast<unsigned>(answer.size()));
      write.data = this;
      const int status = ::uv_write(&write, stream(), &part, 1, [](uv_write_t* done, int) {
         static_cast<Connection*>(done->data)->close();
      });
      if (status < 0) {
         close();
      }
   }
};

class AgentServer::Implementation {
 public:
   explicit Implementation(ServerOptions options)
      : options_{std::move(options)}, host_{PluginHost::defaultModule()} {
      check(::uv_loop_init(&loop_), "event loop");
   }

   // Apart from the constructor: what fails here leaves an object whose destructor closes the loop.
   void open(PolicyFile file, const MakeRulesClient& makeRulesClient) {
      openLaters();
      check(::uv_timer_init(&loop_, &answerTimer_), "timer");
      answerTimer_.data = this;
      agent_ = std::make_unique<PolicyAgent>(host_, std::move(file), options_.agent, hooks());
      rulesClient_ = makeRulesClient(
            *agent_, [this](std::function<void()> work) { later(std::move(work)); });
      listen();
      watchSignals();
   }

   ~Implementation() {
      rulesClient_.reset();
      agent_.reset();
      ::uv_walk(
            &loop_,
            [](uv_handle_t* handle, void* self) {
               static_cast<Implementation*>(self)->closeHandle(handle);
            },
            this);
      ::uv_run(&loop_, UV_RUN_DEFAULT);
      ::uv_loop_close(&loop_);
      if (listening_) {
         ::unlink(options_.socketPath.c_str());
      }
   }

   void run() {
      agent_->start();
      startWatchdog();
      manager_.notify("READY=1");
      say("agent: listening at " + options_.socketPath);
      ::uv_run(&loop_, UV_RUN_DEFAULT);
      manager_.notify("STOPPING=1");
   }

 private:
   PolicyAgent::Hooks hooks() {
      return {[this](std::function<void()> work) { later(std::move(work)); },
              [this](std::optional<std::chrono::milliseconds> time) { setAnswerTimer(time); },
              [this] { reportChanges(); }};
   }

   // Work for later runs in the order in which it came; work that it adds runs in the next round,
   // so that a busy rules client cannot starve the socket.
   void openLaters() {
      check(::uv_async_init(&loop_, &wakeUp_,
                            [](uv_async_t* handle) {
                               static_cast<Implementation*>(handle->data)->runLaters();
                            }),
            "event loop");
      wakeUp_.data = this;
   }

   void later(std::function<void()> work) {
      laters_.push_back(std::move(work));
      ::uv_async_send(&wakeUp_);
   }

   void runLaters() {
      const auto work = std::exchange(laters_, {});
      for (const auto& function : work) {
         function();
      }
   }

   void setAnswerTimer(std::optional<std::chrono::milliseconds> time) {
      ::uv_timer_stop(&answerTimer_);
      if (time) {
         ::uv_timer_start(
               &answerTimer_,
               [](uv_timer_t* timer) {
                  static_cast<Implementation*>(timer->data)->agent_->timeUp();
               },
               static_cast<std::uint64_t>(time->count()), 0);
      }
   }

   void startWatchdog() {
      check(::uv_timer_init(&loop_, &watchdog_), "timer");
      watchdog_.data = this;
      if (const auto interval = manager_.watchdogInterval()) {
         const auto period = static_cast<std::uint64_t>(interval->count());
         ::uv_timer_start(
               &watchdog_,
               [](uv_timer_t* timer) {
                  static_cast<Implementation*>(timer->data)->manager_.notify("WATCHDOG=1");
               },
               0, period);
      }
   }

   void listen() {
      clearStaleSocket(options_.socketPath);
      check(::uv_pipe_init(&loop_, &server_, 0), "socket");
      server_.data = this;
      const mode_t before = ::umask(0177); // for the owner only
      const int bound = ::uv_pipe_bind(&server_, options_.socketPath.c_str());
      ::umask(before);
      check(bound, options_.socketPath);
      listening_ = true;
      check(::uv_listen(reinterpret_cast<uv_stream_t*>(&server_), longestQueue,
                        [](uv_stream_t* server, int status) {
                           if (status >= 0) {
                              static_cast<Implementation*>(server->data)->accept();
                           }
                        }),
            options_.socketPath);
   }

   void accept() {
      auto connection = std::make_unique<Connection>();
      check(::uv_pipe_init(&loop_, &connection->pipe, 0), "socket");
      connection->pipe.data = connection.get();
      connection->answerer = [this](std::string_view line) { return answerLine(line); };
      Connection* open = connection.release(); // deletes itself when it is closed
      if (::uv_accept(reinterpret_cast<uv_stream_t*>(&server_),
                      reinterpret_cast<uv_stream_t*>(&open->pipe)) < 0) {
         open->close();
         return;
      }
      open->begin();
   }

   // A command that fails must not end the agent.
   std::string answerLine(std::string_view line) {
      try {
         return answerRequest(line, *agent_, [this] { return reload(); });
      } catch (const std::exception& error) {
         return fmt::format("{{\"exit\":3}}\n{}\n", error.what());
      }
   }

   ReloadResult reload() {
      const LoadResult loaded = loadPolicyFile(options_.policyFile);
      ReloadResult result = loaded.policyFile
                                  ? agent_->reload(*loaded.policyFile)
                                  : ReloadResult{false, 0, linesOf(formatFindings(loaded))};
      const std::string text = result.text();
      say((result.accepted ? "agent: reloaded, " : "agent: reload refused, nothing changed\n") +
          text.substr(0, text.size() - 1));
      return result;
   }

   void watchSignals() {
      const std::pair<uv_signal_t*, int> signals[] = {
            {&hangUp_, SIGHUP}, {&terminate_, SIGTERM}, {&interrupt_, SIGINT}};
      for (const auto& [handle, number] : signals) {
         check(::uv_signal_init(&loop_, handle), "signal");
         handle->data = this;
         check(::uv_signal_start(
                     handle,
                     [](uv_signal_t* from, int signal) {
                        static_cast<Implementation*>(from->data)->signalled(signal);
                     },
                     number),
               "signal");
      }
      std::signal(SIGPIPE, SIG_IGN); // a client that goes away is no reason to end
   }

   void signalled(int number) {
      if (number == SIGHUP) {
         reload();
         return;
      }
      if (options_.deleteOnExit && !ending_) {
         say("agent: taking back every policy");
         ending_ = true;
         agent_->deleteAll();
         stopWhenIdle();
      } else {
         ::uv_stop(&loop_);
      }
   }

   void stopWhenIdle() {
      if (ending_ && agent_->idle()) {
         ::uv_stop(&loop_);
      }
   }

   // Says what has changed since the last time, and to the service manager how it stands.
   void reportChanges() {
      if (agent_ == nullptr) {
         return;
      }
      const auto saidBefore = std::exchange(said_, {});
      for (const PolicyReport& report : agent_->report()) {
         const std::string line =
               fmt::format("{} {}: {}{}{}{}", report.name, familyName(report.family),
                           policyStateName(report.state), report.overdue ? ", overdue" : "",
                           report.text.empty() ? "" : ", ", report.text);
         const std::string stamped = fmt::format("{} {}", report.generation, line);
         const auto known = saidBefore.find({report.name, report.family});
         if (known == saidBefore.end() || known->second != stamped) {
            say(line);
         }
         said_[{report.name, report.family}] = stamped;
      }
      stopWhenIdle();
   }

   void closeHandle(uv_handle_t* handle) {
      if (::uv_is_closing(handle) != 0) {
         return;
      }
      const bool isServer = handle == reinterpret_cast<uv_handle_t*>(&server_);
      if (handle->type == UV_NAMED_PIPE && !isServer) {
         static_cast<Connection*>(handle->data)->close();
      } else {
         ::uv_close(handle, nullptr);
      }
   }

   ServerOptions options_;
   PluginHost host_;
   ServiceManager manager_;
   uv_loop_t loop_{};
   uv_async_t wakeUp_{};
   uv_timer_t answerTimer_{};
   uv_timer_t watchdog_{};
   uv_pipe_t server_{};
   uv_signal_t hangUp_{};
   uv_signal_t terminate_{};
   uv_signal_t interrupt_{};
   bool listening_ = false;
   bool ending_ = false;
   std::vector<std::function<void()>> laters_;
   std::map<std::pair<std::string, Family>, std::string> said_;
   std::unique_ptr<PolicyAgent> agent_;
   std::shared_ptr<void> rulesClient_;
};

AgentServer::AgentServer(ServerOptions options, PolicyFile file,
                         const MakeRulesClient& makeRulesClient)
   : implementation_{std::make_unique<Implementation>(std::move(options))} {
   implementation_->open(std::move(file), makeRulesClient);
}

AgentServer::~AgentServer() = default;

void AgentServer::run() {
   implementation_->run();
}

} // namespace Agent
