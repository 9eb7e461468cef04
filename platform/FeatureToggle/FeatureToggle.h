// `getToggleState`: whether a feature is on. Relies on JSON files that declare toggles:
//
//   { "toggles": { "FeatureName": { "default": true } } }
//
// Every call reads the file anew; who needs an answer that lasts keeps it. All functions may be
// called by several threads.
#pragma once

#include "Pello/Types.h"

#include <filesystem>
#include <string_view>

namespace FeatureToggle {

// 1 when the toggle `name` is on, else 0. Decided by the first that knows it: an override, the file
// `toggleFile` in the toggle directory, `defaultState`. A file that is there but cannot be used is
// passed over, after one line on standard error that names it and says why.
U32 getToggleState(std::string_view name, std::string_view toggleFile, bool defaultState);

// The same as declared, whatever the overrides say.
U32 declaredToggleState(std::string_view name, std::string_view toggleFile, bool defaultState);

// Sets the folder in which toggle files are looked up. An empty path, the setting at first, means
// the folder of this library, and its subfolder `postcard` for a file that is not there.
void toggleDirectoryIs(const std::filesystem::path& directory);

// Decides a toggle whatever the files say, from the next `getToggleState` on.
void toggleOverrideIs(std::string_view name, bool on);
void toggleOverridesDelAll();

} // namespace FeatureToggle
