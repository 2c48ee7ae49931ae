#include "Commands.h"

namespace quibly {

void addApproveCommand(CLI::App& command, Io& io, int& status) {
  command.callback([&io, &status] {
    io.err << "Not ready yet.\n";
    status = 1;
  });
}

}  // namespace quibly
