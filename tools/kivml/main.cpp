#include "CommandLine.h"

int main(int argc, char** argv) {
  return kivml::cli::CommandLine().Run(argc, argv);
}
