#include "kivcore/filesupport/FileUtils.h"

#include <filesystem>
#include <fstream>
#include <limits>
#include <system_error>

#include "PathConversion.h"

namespace kivcore::utility {

std::shared_ptr<allocator::RecycledMemory> FileUtils::SimpleReadFileIntoBuffer(const wstring& path) {
  try {
    const std::filesystem::path filePath = filesupport::detail::ToFilesystemPath(path);
    std::error_code error;
    // Regular files only: their size is known up front, so the buffer is allocated once.
    if (path.empty() || !std::filesystem::is_regular_file(filePath, error)) {
      return nullptr;
    }
    const uintmax_t size = std::filesystem::file_size(filePath, error);
    if (error || size > static_cast<uintmax_t>(std::numeric_limits<std::streamsize>::max())) {
      return nullptr;
    }
    std::ifstream file(filePath, std::ios::binary);
    if (!file) {
      return nullptr;
    }
    auto buffer = allocator::RecycledMemory::Create(static_cast<size_t>(size));
    if (size > 0 && !file.read(buffer->Buffer(), static_cast<std::streamsize>(size))) {
      return nullptr;  // shrank while being read, or a read error
    }
    return buffer;
  } catch (const std::exception&) {
    return nullptr;  // out of memory for a huge file: "cannot be read"
  }
}

}  // namespace kivcore::utility
