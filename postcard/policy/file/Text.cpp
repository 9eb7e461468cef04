#include "postcard/policy/file/Text.h"

#include "Pello/FileDescriptor.h"
#include "Pello/Utf8.h"
#include "postcard/policy/file/Findings.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Postcard::Policy::File {

namespace {

// Must be called before another system call changes errno.
Finding systemFailure(std::string_view what) {
   return {{},
           FindingCode::unreadable,
           fmt::format("{}: {}", what, std::generic_category().message(errno))};
}

Finding tooLong(std::size_t maxBytes) {
   return {{}, FindingCode::tooLarge, fmt::format("the file is longer than {} bytes", maxBytes)};
}

std::string_view fileKind(mode_t mode) {
   if (S_ISDIR(mode)) {
      return "a directory";
   }
   if (S_ISFIFO(mode)) {
      return "a pipe";
   }
   if (S_ISSOCK(mode)) {
      return "a socket";
   }
   return "a device";
}

// Waits until `descriptor` can be read, when whoever opened it has asked not to wait.
bool wait(int descriptor) {
   pollfd readable{descriptor, POLLIN, 0};
   return ::poll(&readable, 1, -1) >= 0 || errno == EINTR;
}

// Checks the limit as well, because another process may append to the file while it is read, and
// because a pipe has no size.
std::variant<std::string, Finding> readAll(int descriptor, std::size_t size, std::size_t maxBytes) {
   std::string text;
   text.reserve(size);
   std::array<char, 65536> buffer{};
   for (;;) {
      const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
      if (count == 0) {
         return text;
      }
      const bool again = count < 0 && (errno == EINTR || (errno == EAGAIN && wait(descriptor)));
      if (count < 0 && !again) {
         return systemFailure("cannot read");
      }
      if (count > 0) {
         text.append(buffer.data(), static_cast<std::size_t>(count));
      }
      if (text.size() > maxBytes) {
         return tooLong(maxBytes);
      }
   }
}

// The descriptor of this process that `path` names; nothing when it is any other path. Opening such
// a path again would fail for a socket, and O_NONBLOCK would end the text before its writer begins.
std::optional<int> ownDescriptor(std::string_view path) {
   if (path == standardInput || path == "/dev/stdin") {
      return STDIN_FILENO;
   }
   for (const std::string_view folder : {"/dev/fd/", "/proc/self/fd/"}) {
      int number = 0;
      const char* end = path.data() + path.size();
      if (path.starts_with(folder) &&
          std::from_chars(path.data() + folder.size(), end, number).ptr == end && number >= 0 &&
          path.size() > folder.size()) {
         return number;
      }
   }
   return std::nullopt;
}

// Other encodings are told apart because editors write them without saying so; the plain message
// about one byte would not help.
std::string_view byteOrderMark(std::string_view text) {
   if (text.starts_with("\xef\xbb\xbf")) {
      return "the file starts with a byte order mark (expected UTF-8 without one)";
   }
   if (text.starts_with("\xff\xfe") || text.starts_with("\xfe\xff")) {
      return "the file is UTF-16 (expected UTF-8)";
   }
   return {};
}

std::string refusal(std::string_view rest, const Pello::Utf8Character& decoded) {
   if (!decoded.valid) {
      return fmt::format("byte 0x{:02x} is not UTF-8", static_cast<unsigned char>(rest.front()));
   }
   return fmt::format("character U+{:04X} is not allowed in a policy file",
                      static_cast<U32>(decoded.character));
}

// Moves `location` past the first character of `rest`. Carriage return, line feed and the pair of
// both end a line (YAML 1.2.2, section 5.4); of the pair, the line feed does.
void advance(Location& location, std::string_view rest) {
   const bool pair = rest.starts_with("\r\n");
   if ((rest.front() == '\n' || rest.front() == '\r') && !pair) {
      ++location.line;
      location.column = 1;
   } else {
      ++location.column;
   }
}

// The number of printable ASCII characters at the beginning of `text`. Nearly all of a policy file
// is such text, which needs no decoding.
std::size_t plainLength(std::string_view text) {
   std::size_t length = 0;
   while (length < text.size() && text[length] >= 0x20 && text[length] < 0x7f) {
      ++length;
   }
   return length;
}

// Returns the first line of `text` without its line break, and removes both from `text`.
std::string_view takeLine(std::string_view& text) {
   const std::size_t end = text.find_first_of("\r\n");
   const std::string_view line = text.substr(0, end);
   const std::size_t breakLength = text.substr(line.size()).starts_with("\r\n") ? 2 : 1;
   text.remove_prefix(std::min(text.size(), line.size() + breakLength));
   return line;
}

} // namespace

std::variant<std::string, Finding> readPolicyText(const std::string& path, std::size_t maxBytes) {
   if (const auto descriptor = ownDescriptor(path)) {
      return readAll(*descriptor, 0, maxBytes);
   }
   // Without O_NONBLOCK, opening a pipe would wait for its writer. Without O_NOCTTY, a terminal
   // could become the controlling terminal of the process.
   const Pello::FileDescriptor file{
         ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)};
   struct stat status {};
   if (file.get() < 0 || ::fstat(file.get(), &status) != 0) {
      return systemFailure("cannot open");
   }
   if (!S_ISREG(status.st_mode)) {
      return Finding{{},
                     FindingCode::unreadable,
                     fmt::format("expected a regular file, found {}", fileKind(status.st_mode))};
   }
   const auto size = static_cast<std::size_t>(status.st_size);
   return size > maxBytes ? tooLong(maxBytes) : readAll(file.get(), size, maxBytes);
}

std::optional<Finding> checkText(std::string_view text) {
   Location location{1, 1};
   if (const std::string_view mark = byteOrderMark(text); !mark.empty()) {
      return Finding{location, FindingCode::encoding, std::string{mark}};
   }
   for (;;) {
      const std::size_t plain = plainLength(text);
      location.column += static_cast<U32>(plain);
      text.remove_prefix(plain);
      if (text.empty()) {
         return std::nullopt;
      }
      const Pello::Utf8Character decoded = Pello::decodeUtf8(text);
      const bool blank =
            decoded.character == '\t' || decoded.character == '\n' || decoded.character == '\r';
      if (!decoded.valid || (!blank && !Pello::isPrintable(decoded.character))) {
         const FindingCode code = decoded.valid ? FindingCode::character : FindingCode::encoding;
         return Finding{location, code, refusal(text, decoded)};
      }
      advance(location, text);
      text.remove_prefix(decoded.length);
   }
}

std::string_view textFrom(std::string_view text, Location location) {
   for (U32 line = 1; line < location.line; ++line) {
      takeLine(text);
   }
   for (U32 column = 1; column < location.column && !text.empty(); ++column) {
      text.remove_prefix(Pello::decodeUtf8(text).length);
   }
   return text;
}

std::optional<Location> somethingAfter(std::string_view text, Location location) {
   text = textFrom(text, location);
   while (!text.empty()) {
      const std::string_view line = takeLine(text);
      const std::size_t column = line.find_first_not_of(" \t");
      if (column != std::string_view::npos && line[column] != '#') {
         location.column += static_cast<U32>(column);
         return location;
      }
      location = {location.line + 1, 1};
   }
   return std::nullopt;
}

std::optional<Finding> findDirective(std::string_view text) {
   for (U32 line = 1; !text.empty(); ++line) {
      const std::string_view content = takeLine(text);
      if (content.starts_with('%') && !content.starts_with("%YAML ")) {
         return Finding{{line, 1},
                        FindingCode::construct,
                        fmt::format("directive {} is not accepted", inQuotes(content))};
      }
      const std::size_t first = content.find_first_not_of(" \t");
      if (first != std::string_view::npos && content[first] != '#' && content[first] != '%') {
         break;
      }
   }
   return std::nullopt;
}

} // namespace Postcard::Policy::File
