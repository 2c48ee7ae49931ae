#include "Platform.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

namespace vobbo::Platform {

Env processEnv() {
  return [](std::string_view name) -> std::optional<std::string> {
    const char* value = std::getenv(std::string(name).c_str());
    if (!value) return std::nullopt;
    return std::string(value);
  };
}

std::string homeDirectory(const Env& env) {
  if (auto home = env("HOME"); home && !home->empty()) return *home;
  if (const passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_dir && *pw->pw_dir) return pw->pw_dir;
  return "/";
}

std::string applicationSupportDirectory(std::string_view home, const Env& env) {
#if defined(__APPLE__)
  (void)env;
  return std::string(home) + "/Library/Application Support";
#else
  if (auto xdg = env("XDG_DATA_HOME"); xdg && !xdg->empty() && xdg->front() == '/') return *xdg;
  return std::string(home) + "/.local/share";
#endif
}

}  // namespace vobbo::Platform
