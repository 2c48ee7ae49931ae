#pragma once
// The run of `quibly-approve AGENT`, the command a coding agent starts when it
// wants permission: read the hook event from standard input, send one request
// to the app, wait for the decision when the agent can take one, and print the
// agent's answer. It never stands in the agent's way: every failure ends in
// silence on standard output and exit status 0, which leaves the agent to ask
// in its own way. Standard error only ever carries the usage line.

#include <cstdint>

#include "Platform.h"

namespace vobbo {

struct ApproveHook {
  struct Io {
    int in = 0;
    int out = 1;
    int err = 2;
  };

  static constexpr const char* kUsage = "usage: quibly-approve claude|codex|grok|gemini\n";

  // Runs the hook once and returns the exit status, which is always 0.
  // `parentPid` is the agent's process id, carried in the request.
  static int run(int argc, const char* const* argv, Io io, const Platform::Env& env,
                 int32_t parentPid);
};

}  // namespace vobbo
