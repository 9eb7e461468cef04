// `getToggleState`: whether a feature is on. Relies on JSON files that declare toggles:
//
//   { "toggles": { "FeatureName": { "default": true } } }
//
// Nothing is cached: every question reads the file anew. A caller that needs the same answer for
// the life of the process keeps it. All functions may be called by several threads at the same
// time.
#pragma once

#include "Pello/Types.h"

#include <filesystem>
#include <string_view>

namespace FeatureToggle {

// Returns 1 when the toggle `name` is on, else 0. The first of these that knows the toggle decides:
// an override, the file `toggleFile` (a file name) in the toggle directory, `defaultState`. A file
// that does not exist knows no toggle. A file that cannot be read or has not the form above is
// passed over, and one line on standard error names it and the reason.
U32 getToggleState(std::string_view name, std::string_view toggleFile, bool defaultState);

// The same without the overrides: what the file or else `defaultState` says.
U32 declaredToggleState(std::string_view name, std::string_view toggleFile, bool defaultState);

// Sets the folder in which toggle files are looked up. An empty path, which is the initial setting,
// means the folder that this library was loaded from, or its subfolder `postcard` when the folder
// has no such file.
void toggleDirectoryIs(const std::filesystem::path& directory);

// Sets the override of the toggle `name`, which may be unknown to any file. It holds from the next
// `getToggleState` on until another call for `name` or `toggleOverridesDelAll`. It has no effect on
// a caller that has asked before and keeps the answer.
void toggleOverrideIs(std::string_view name, bool on);
// Removes all overrides.
void toggleOverridesDelAll();

} // namespace FeatureToggle
