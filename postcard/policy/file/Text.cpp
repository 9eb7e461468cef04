#include "postcard/policy/file/Text.h"

#include "Pello/FileDescriptor.h"
#include "Pello/Utf8.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Postcard::Policy::File {

namespace {

// Must be called before another system call changes errno.
Finding systemFailure(std::string_view what) {
   return {{}, fmt::format("{}: {}", what, std::generic_category().message(errno))};
}

Finding tooLong(std::size_t maxBytes) {
   return {{}, fmt::format("the file is longer than {} bytes", maxBytes)};
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

// Checks the limit as well, because another process may append to the file while it is read.
std::variant<std::string, Finding> readAll(int descriptor, std::size_t size, std::size_t maxBytes) {
   std::string text;
   text.reserve(size);
   std::array<char, 65536> buffer{};
   for (;;) {
      const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
      if (count == 0) {
         return text;
      }
      if (count < 0 && errno != EINTR) {
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

} // namespace

std::variant<std::string, Finding> readPolicyText(const std::string& path, std::size_t maxBytes) {
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
                     fmt::format("expected a regular file, found {}", fileKind(status.st_mode))};
   }
   const auto size = static_cast<std::size_t>(status.st_size);
   return size > maxBytes ? tooLong(maxBytes) : readAll(file.get(), size, maxBytes);
}

std::optional<Finding> checkText(std::string_view text) {
   Location location{1, 1};
   if (const std::string_view mark = byteOrderMark(text); !mark.empty()) {
      return Finding{location, std::string{mark}};
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
         return Finding{location, refusal(text, decoded)};
      }
      advance(location, text);
      text.remove_prefix(decoded.length);
   }
}

} // namespace Postcard::Policy::File
