#include <exception>
#include <iostream>
#include <stdexcept>

#include "device/options.h"
#include "device/program.h"

int main(int argc, char** argv) {
  using namespace corvalint::device;
  ProgramOptions options;
  try {
    options = ParseOptions({argv + 1, argv + argc});
  } catch (const std::invalid_argument& error) {
    std::cerr << "corvalint-device: " << error.what() << "\nSee corvalint-device --help.\n";
    return 2;
  }
  if (options.help) {
    PrintUsage(std::cout);
    return 0;
  }
  try {
    return RunProgram(options);
  } catch (const std::exception& error) {
    std::cerr << "corvalint-device: " << error.what() << "\n";
    return 2;
  }
}
