// quibly-approve: the hook a coding agent runs for permission. See ApproveHook.h.
#include <unistd.h>

#include "ApproveHook.h"

int main(int argc, char** argv) {
  return vobbo::ApproveHook::run(argc, argv, {}, vobbo::Platform::processEnv(),
                                 static_cast<int32_t>(::getppid()));
}
