#include "DesktopNotice.h"

#include <string>
#include <vector>

#include "Processes.h"

namespace vobbo::DesktopNotice {

namespace {

std::vector<std::string> command(std::string_view title, std::string_view body) {
#if defined(__APPLE__)
  // The texts travel as arguments, so no quoting of AppleScript strings is needed.
  return {"osascript",
          "-e",
          "on run argv",
          "-e",
          "display notification (item 2 of argv) with title (item 1 of argv)",
          "-e",
          "end run",
          std::string(title),
          std::string(body)};
#else
  return {"notify-send", "--app-name=Quibly", "--", std::string(title), std::string(body)};
#endif
}

}  // namespace

bool available(const Platform::Env& env) {
#if defined(__APPLE__)
  return Processes::which("osascript", env).has_value();
#else
  auto set = [&](std::string_view name) {
    auto value = env(name);
    return value && !value->empty();
  };
  bool session = set("DISPLAY") || set("WAYLAND_DISPLAY") || set("DBUS_SESSION_BUS_ADDRESS");
  return session && Processes::which("notify-send", env).has_value();
#endif
}

bool show(std::string_view title, std::string_view body, const Platform::Env& env) {
  if (!available(env)) return false;
  Processes::Options options;
  options.timeoutSeconds = 5;
  auto ran = Processes::run(command(title, body), options);
  return ran && ran->succeeded();
}

}  // namespace vobbo::DesktopNotice
