#include "FeatureToggle/FeatureToggle.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstdio>
#include <dlfcn.h>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>

namespace FeatureToggle {

namespace {

using Json = nlohmann::json;

struct Settings {
   std::mutex mutex;
   std::filesystem::path directory; // empty: the library's own
   std::map<std::string, bool, std::less<>> overrides;
};

// Never destroyed, because destructors of other static objects may still ask for a toggle.
Settings& settings() {
   static Settings& instance = *new Settings;
   return instance;
}

// The folder that this library was loaded from; empty when the loader does not know it.
std::filesystem::path libraryDirectory() {
   Dl_info library{};
   // Any symbol of this library says where it was loaded from.
   if (::dladdr(reinterpret_cast<const void*>(&getToggleState), &library) == 0) {
      return {};
   }
   return std::filesystem::path{library.dli_fname}.parent_path();
}

// The file's text, or nothing when there is no such file. Throws std::system_error when it cannot
// be read. The standard does not say that a stream sets `errno`; the C library's calls below it do,
// and it is cleared first so that an older error is not reported.
std::optional<std::string> readFile(const std::filesystem::path& path) {
   errno = 0;
   std::ifstream file{path};
   if (!file && errno == ENOENT) {
      return std::nullopt;
   }
   std::string text{std::istreambuf_iterator<char>{file}, {}};
   if (!file || file.bad()) {
      throw std::system_error{errno, std::generic_category(), "it cannot be read"};
   }
   return text;
}

// The member `key` of `object`, which `what` names in messages; null when it has none. Throws
// std::runtime_error when `object` is no JSON object.
const Json* member(const Json& object, const std::string& what, std::string_view key) {
   if (!object.is_object()) {
      throw std::runtime_error{what + " is not an object"};
   }
   const auto found = object.find(key);
   return found == object.end() ? nullptr : &*found;
}

// The declared state of `name`, or nothing when the document does not declare it. Everything else
// that the form demands and that is missing throws: a typing error must not pass for a toggle that
// is not declared.
std::optional<bool> declaredDefault(const Json& document, std::string_view name) {
   const Json* toggles = member(document, "the document", "toggles");
   if (toggles == nullptr) {
      throw std::runtime_error{"it has no \"toggles\""};
   }
   const Json* toggle = member(*toggles, "\"toggles\"", name);
   if (toggle == nullptr) {
      return std::nullopt;
   }
   const std::string quoted = '"' + std::string{name} + '"';
   const Json* state = member(*toggle, quoted, "default");
   if (state == nullptr || !state->is_boolean()) {
      throw std::runtime_error{quoted + " has no \"default\" that is true or false"};
   }
   return state->get<bool>();
}

// A damaged file is reported and then treated as absent: a feature must not keep the process from
// working because its toggle cannot be read.
std::optional<bool> stateInFile(const std::filesystem::path& path, std::string_view name) {
   try {
      const std::optional<std::string> text = readFile(path);
      return text ? declaredDefault(Json::parse(*text), name) : std::nullopt;
   } catch (const std::exception& error) {
      std::fprintf(stderr, "%s: feature toggles ignored: %s\n", path.c_str(), error.what());
      return std::nullopt;
   }
}

// Where the file lies if no folder is set. In the build tree it lies beside this library. An
// installed library shares its folder with other libraries, so there the file lies in a subfolder.
std::filesystem::path besideLibrary(std::string_view toggleFile) {
   const std::filesystem::path directory = libraryDirectory();
   const std::filesystem::path beside = directory / toggleFile;
   std::error_code ignored;
   const auto kind = std::filesystem::status(beside, ignored).type();
   return kind == std::filesystem::file_type::not_found ? directory / "postcard" / toggleFile
                                                        : beside;
}

// The state without overrides. Requires the lock of the settings.
U32 declared(const Settings& all, std::string_view name, std::string_view toggleFile,
             bool defaultState) {
   const auto path = all.directory.empty() ? besideLibrary(toggleFile) : all.directory / toggleFile;
   return stateInFile(path, name).value_or(defaultState) ? 1 : 0;
}

} // namespace

U32 getToggleState(std::string_view name, std::string_view toggleFile, bool defaultState) {
   Settings& all = settings();
   const std::lock_guard lock{all.mutex};
   if (const auto found = all.overrides.find(name); found != all.overrides.end()) {
      return found->second ? 1 : 0;
   }
   return declared(all, name, toggleFile, defaultState);
}

U32 declaredToggleState(std::string_view name, std::string_view toggleFile, bool defaultState) {
   Settings& all = settings();
   const std::lock_guard lock{all.mutex};
   return declared(all, name, toggleFile, defaultState);
}

void toggleDirectoryIs(const std::filesystem::path& directory) {
   Settings& all = settings();
   const std::lock_guard lock{all.mutex};
   all.directory = directory;
}

void toggleOverrideIs(std::string_view name, bool on) {
   Settings& all = settings();
   const std::lock_guard lock{all.mutex};
   all.overrides.insert_or_assign(std::string{name}, on);
}

void toggleOverridesDelAll() {
   Settings& all = settings();
   const std::lock_guard lock{all.mutex};
   all.overrides.clear();
}

} // namespace FeatureToggle
