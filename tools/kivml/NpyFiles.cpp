#include "NpyFiles.h"

#include <algorithm>
#include <fstream>
#include <new>
#include <string_view>
#include <system_error>

#include "Formatting.h"
#include "InputFile.h"
#include "OutputFile.h"
#include "ToolError.h"
#include "kivcore/config/kiv_exception.h"
#include "kivcore/string/StringConversions.h"

namespace kivml::cli {

namespace {

// The header dictionary of a .npy image, as far as the image holds it; empty without the magic string.
// Version 1.0 gives its length in two bytes, the later versions in four.
std::string_view HeaderText(const char* bytes, size_t size) {
  constexpr std::string_view kMagic("\x93NUMPY");
  constexpr size_t kLengthOffset = 8;
  if (size < kLengthOffset || std::string_view(bytes, kMagic.size()) != kMagic) {
    return {};
  }
  const size_t lengthBytes = bytes[6] == 1 ? 2 : 4;
  const size_t start = kLengthOffset + lengthBytes;
  if (size < start) {
    return {};
  }
  size_t length = 0;
  for (size_t i = lengthBytes; i-- > 0;) {
    length = length << 8U | static_cast<unsigned char>(bytes[kLengthOffset + i]);
  }
  return {bytes + start, std::min(length, size - start)};
}

}  // namespace

NpyFiles::Loaded NpyFiles::Read(const std::filesystem::path& file) {
  InputFile::Require(file, "input file");
  std::error_code error;
  const auto bytes = std::filesystem::file_size(file, error);
  std::ifstream in(file, std::ios::binary);
  if (error || !in) {
    throw ToolError("cannot read '" + file.string() + "'");
  }
  Loaded loaded;
  try {
    loaded.image = kivcore::allocator::RecycledMemory::Create(static_cast<size_t>(bytes));
  } catch (const std::bad_alloc&) {
    throw ToolError("cannot allocate " + std::to_string(bytes) + " bytes to read '" + file.string() + "'");
  }
  if (bytes > 0 && !in.read(loaded.image->Buffer(), static_cast<std::streamsize>(bytes))) {
    throw ToolError("cannot read '" + file.string() + "'");
  }
  try {
    loaded.tensor = debug::CreateTensorFromStandardNumpy(loaded.image);
  } catch (const kivcore::kiv_exception& exception) {
    std::string reason = exception.what();
    // The library's messages are C strings, which a NUL in the header (a dtype '<f\0') cuts short.
    const std::string_view header = HeaderText(loaded.image->Buffer(), loaded.image->Size());
    if (header.find('\0') != std::string_view::npos) {
      reason = "its header holds a NUL byte: " + EscapeControlCharacters(kivcore::string::TrimBlanks(header));
    }
    throw ToolError("'" + file.string() + "' is not a .npy file kivml reads: " + reason);
  }
  return loaded;
}

void NpyFiles::Write(const std::filesystem::path& file,
                     const kivcore::classref::InterfaceRef<IMLFeature>& tensor,
                     const kivcore::utility::Guid& elementType) {
  std::shared_ptr<kivcore::allocator::RecycledMemory> image;
  try {
    image = debug::DumpTensorToStandardNumpy(tensor, elementType);
  } catch (const kivcore::kiv_exception&) {
    throw ToolError("cannot write '" + file.string() + "': " + DescribeFailure(std::current_exception()));
  }
  OutputFile::Replace(file, [&](std::ostream& out) {
    out.write(image->Buffer(), static_cast<std::streamsize>(image->Size()));
  });
}

std::string NpyFiles::SafeFileStem(std::string_view featureName) {
  std::string stem(featureName);
  std::replace_if(
      stem.begin(), stem.end(),
      [](char c) {
        const bool safe = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                          c == '-' || c == '_' || c == '.';
        return !safe;
      },
      '_');
  if (stem.find_first_not_of('.') == std::string::npos) {
    stem = "output";
  }
  return stem;
}

}  // namespace kivml::cli
