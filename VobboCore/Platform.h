#pragma once
// The few facts the core takes from the machine: environment variables, the
// home folder and the per-user data folder. The environment is passed in as a
// lookup so tests can give their own.

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace vobbo::Platform {

// Reads one environment variable: absent when it is not set.
using Env = std::function<std::optional<std::string>(std::string_view name)>;

// The process's own environment.
Env processEnv();

// $HOME when set and not empty, else the user database's home folder, else "/".
std::string homeDirectory(const Env& env);

// The folder where per-user application data lives: "Library/Application Support"
// in the home folder on macOS; on Linux $XDG_DATA_HOME when set and absolute,
// else ".local/share" in the home folder.
std::string applicationSupportDirectory(std::string_view home, const Env& env);

}  // namespace vobbo::Platform
