#pragma once
// The kivml command line: parses the arguments, applies the library settings, initialises the library
// around the chosen command and turns failures into a message and an exit status (1 for a failure, 2 for
// a usage error).

namespace kivml::cli {

class CommandLine {
 public:
  int Run(int argc, char** argv) const;
};

}  // namespace kivml::cli
