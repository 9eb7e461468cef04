#include "postcard/cli/trace/Output.h"

#include "Pello/Utf8.h"
#include "postcard/cli/trace/Filter.h"
#include "postcard/cli/trace/Time.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cerrno>
#include <system_error>
#include <unistd.h>

namespace Postcard::Cli::Trace {

namespace {

using Json = nlohmann::ordered_json;

// The version of the JSON objects. It rises when a key changes its meaning or disappears.
constexpr int traceJsonSchema = 1;

// Control characters (C0, DEL, C1), and the line and paragraph separators of Unicode.
bool breaksLine(char32_t c) {
   return c < 0x20 || (c >= 0x7f && c < 0xa0) || c == 0x2028 || c == 0x2029;
}

// Appends the escaped form of one character, or of one byte that is no character.
void escape(std::string& out, std::string_view bytes) {
   switch (bytes.front()) {
   case '\n':
      out += "\\n";
      return;
   case '\t':
      out += "\\t";
      return;
   case '\r':
      out += "\\r";
      return;
   default:
      for (const char c : bytes) {
         fmt::format_to(std::back_inserter(out), "\\x{:02x}", static_cast<unsigned char>(c));
      }
   }
}

std::string jsonOf(const Ringlog::Record& record, U32 process) {
   const Ringlog::Descriptor& site = *record.site;
   const Json object{{"schema", traceJsonSchema}, {"time", timeText(microsecondsOf(record.time))},
                     {"process", process},        {"thread", record.thread},
                     {"source", site.source},     {"level", site.level},
                     {"class", site.className},   {"function", site.functionName},
                     {"line", site.line},         {"text", record.text}};
   // A text may hold any bytes. JSON must be UTF-8, so others become U+FFFD. JSON
   // escapes line ends itself.
   return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// `process` is the text before the thread, or empty. Names are escaped as well: they come from the
// file, which may be damaged.
std::string textOf(const Ringlog::Record& record, const std::string& process) {
   const Ringlog::Descriptor& site = *record.site;
   return fmt::format("{} {}{} {} {} {}:{}{}", timeText(microsecondsOf(record.time)), process,
                      record.thread, oneLine(site.source), site.level, oneLine(functionOf(site)),
                      record.text.empty() ? "" : " ", oneLine(record.text));
}

} // namespace

std::string oneLine(std::string_view text) {
   std::string out;
   while (!text.empty()) {
      const Pello::Utf8Character decoded = Pello::decodeUtf8(text);
      const std::string_view bytes = text.substr(0, decoded.length);
      if (!decoded.valid || breaksLine(decoded.character)) {
         escape(out, bytes);
      } else {
         out += bytes;
      }
      text.remove_prefix(decoded.length);
   }
   return out;
}

void Output::print(const Ringlog::Record& record, U32 process) {
   switch (layout_) {
   case Layout::text:
      waiting_ += textOf(record, "");
      break;
   case Layout::textWithProcess:
      waiting_ += textOf(record, std::to_string(process) + "/");
      break;
   case Layout::json:
      waiting_ += jsonOf(record, process);
      break;
   }
   waiting_ += '\n';
   // Few large writes, because each costs a system call.
   constexpr std::size_t enough = std::size_t{64} * 1024;
   if (waiting_.size() >= enough) {
      flush();
   }
}

void Output::flush() {
   std::string_view left = waiting_;
   while (!left.empty() && !closed_) {
      const ssize_t written = ::write(STDOUT_FILENO, left.data(), left.size());
      if (written >= 0) {
         left.remove_prefix(static_cast<std::size_t>(written));
      } else if (errno == EPIPE || errno == EINTR) {
         closed_ = true; // EINTR: the command catches only the signals that end it
      } else {
         throw std::system_error{errno, std::generic_category(), "standard output"};
      }
   }
   waiting_.clear(); // also when closed: nobody will read it
}

} // namespace Postcard::Cli::Trace
