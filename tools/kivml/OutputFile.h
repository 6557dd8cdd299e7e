#pragma once
// A file the tool writes (.npy outputs, --json, --plot). It is written under a temporary name in the same
// folder and renamed into place only once complete, so that a failure (a full disk) never leaves a
// truncated file under the real name, and an earlier file of that name survives the failure. Failures are
// reported with the system's reason.

#include <filesystem>
#include <functional>
#include <ostream>
#include <string_view>

namespace kivml::cli {

class OutputFile {
 public:
  using Fill = std::function<void(std::ostream& out)>;

  explicit OutputFile(const std::filesystem::path& file);
  // Removes the temporary file unless it was committed.
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Where the content goes: the temporary name, or the file itself when that exists and is neither a
  // regular file nor a folder (/dev/stdout, a FIFO), which renaming would replace rather than write to.
  const std::filesystem::path& WritePath() const { return mWritePath; }
  // Writes WritePath() through `fill`; throws ToolError with the system's reason.
  void Write(const Fill& fill) const;
  // Renames the temporary file into place; throws ToolError with the system's reason.
  void Commit();

  // Write then Commit.
  static void Replace(const std::filesystem::path& file, const Fill& fill);
  // Throws ToolError, `option` ("--json") and the system's reason in its message, when `file` could not be
  // written: checked before a long run whose results go there. Leaves nothing behind.
  static void RequireWritable(const std::filesystem::path& file, std::string_view option);

 private:
  std::filesystem::path mFile;
  std::filesystem::path mTarget;  // mFile with symbolic links followed: renaming replaces this
  std::filesystem::path mWritePath;
  bool mTemporary = true;
  bool mCommitted = false;
};

}  // namespace kivml::cli
