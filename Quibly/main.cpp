#include <iostream>

#include "Commands.h"

int main(int argc, char** argv) {
  quibly::Io io{std::cin, std::cout, std::cerr, vobbo::Platform::processEnv(), ""};
  return quibly::run(argc, argv, io);
}
