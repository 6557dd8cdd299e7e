#include "OutputFile.h"

#include <cerrno>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <system_error>

#include "ToolError.h"

namespace kivml::cli {

namespace {

std::string Reason(int error) {
  return error != 0 ? std::generic_category().message(error) : std::string("the system gave no reason");
}

// A name beside `target` that no other run picks at the same time.
std::filesystem::path TemporaryBeside(const std::filesystem::path& target) {
  std::ostringstream name;
  name << target.filename().string() << '.' << std::hex << std::random_device()() << ".tmp";
  return target.parent_path() / name.str();
}

}  // namespace

OutputFile::OutputFile(const std::filesystem::path& file) : mFile(file), mTarget(file) {
  std::error_code error;
  if (std::filesystem::is_symlink(std::filesystem::symlink_status(file, error))) {
    const std::filesystem::path resolved = std::filesystem::canonical(file, error);
    if (!error) {
      mTarget = resolved;
    }
  }
  const auto status = std::filesystem::status(mTarget, error);
  mTemporary = !std::filesystem::exists(status) || std::filesystem::is_regular_file(status) ||
               std::filesystem::is_directory(status);
  mWritePath = mTemporary ? TemporaryBeside(mTarget) : mTarget;
}

OutputFile::~OutputFile() {
  if (mTemporary && !mCommitted) {
    std::error_code ignored;
    std::filesystem::remove(mWritePath, ignored);
  }
}

void OutputFile::Write(const Fill& fill) const {
  errno = 0;
  std::ofstream out(mWritePath, std::ios::binary | std::ios::trunc);
  if (out) {
    fill(out);
    out.close();
  }
  if (!out) {
    throw ToolError("cannot write '" + mFile.string() + "': " + Reason(errno));
  }
}

void OutputFile::Commit() {
  if (mTemporary) {
    std::error_code error;
    std::filesystem::rename(mWritePath, mTarget, error);
    if (error) {
      throw ToolError("cannot write '" + mFile.string() + "': " + error.message());
    }
  }
  mCommitted = true;
}

void OutputFile::Replace(const std::filesystem::path& file, const Fill& fill) {
  OutputFile output(file);
  output.Write(fill);
  output.Commit();
}

void OutputFile::RequireWritable(const std::filesystem::path& file, std::string_view option) {
  const std::string context = std::string(option) + " '" + file.string() + "'";
  std::error_code error;
  if (std::filesystem::is_directory(file, error)) {
    throw ToolError(context + ": that is a directory");
  }
  const OutputFile probe(file);
  if (!probe.mTemporary) {
    return;  // a device or FIFO: opening one to try it could block or have effects of its own
  }
  errno = 0;
  if (!std::ofstream(probe.mWritePath, std::ios::binary)) {
    throw ToolError(context + ": cannot write there: " + Reason(errno));
  }
}

}  // namespace kivml::cli
