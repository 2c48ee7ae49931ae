#pragma once
// A notification on the desktop, where the platform has one: Notification
// Center through osascript on macOS, notify-send on a Linux desktop session.
// Used when something needs the person while their terminal is not in front
// (a ringing alarm, an agent waiting for approval).

#include <string_view>

#include "Platform.h"

namespace vobbo::DesktopNotice {

// Whether this machine can show one: a notifier program is installed and, on
// Linux, a desktop session is there to show it in.
bool available(const Platform::Env& env);

// Shows the notification and waits (at most a few seconds) for the notifier to
// take it. Returns false when there is no notifier or it failed; the caller
// then relies on its other signal (the terminal bell).
bool show(std::string_view title, std::string_view body, const Platform::Env& env);

}  // namespace vobbo::DesktopNotice
