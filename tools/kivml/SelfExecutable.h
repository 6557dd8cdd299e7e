#pragma once
// The file of the running tool, so that `kivml bench` can run itself again in a process of its own (one
// implementation per platform: SelfExecutable_linux.cpp, SelfExecutable_windows.cpp).

#include <filesystem>

namespace kivml::cli {

class SelfExecutable {
 public:
  // Throws ToolError when the system cannot say.
  static std::filesystem::path Path();
};

}  // namespace kivml::cli
