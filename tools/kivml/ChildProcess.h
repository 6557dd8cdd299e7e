#pragma once
// Another program, run to completion with this process's standard output and error: gnuplot fed its
// script, or the tool itself measuring in a process of its own. One implementation per platform
// (ChildProcess_linux.cpp, ChildProcess_windows.cpp); the PATH search is shared (ChildProcess.cpp).

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kivml::cli {

class ChildProcess {
 public:
  // Runs `program` with `arguments` (its own name not among them) and waits for it. With `input`, its
  // standard input is a pipe that gets that text and then its end; otherwise it is this process's.
  // Returns the exit status; throws ToolError when the program cannot be started or ends without exiting
  // (killed by a signal).
  static int Run(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                 const std::optional<std::string>& input = std::nullopt);
  // The program's file in the first folder of the PATH that holds it; nothing when none does.
  static std::optional<std::filesystem::path> FindOnPath(const std::string& program);

 private:
  // How the platform separates the PATH's folders, and names a program's file.
  static char PathListSeparator() noexcept;
  static std::string ExecutableFileName(const std::string& program);
};

}  // namespace kivml::cli
