#include "NpyFiles.h"

#include <algorithm>
#include <fstream>
#include <system_error>

#include "Formatting.h"
#include "InputFile.h"
#include "OutputFile.h"
#include "ToolError.h"
#include "kivcore/config/kiv_exception.h"

namespace kivml::cli {

NpyFiles::Loaded NpyFiles::Read(const std::filesystem::path& file) {
  InputFile::Require(file, "input file");
  std::error_code error;
  const auto bytes = std::filesystem::file_size(file, error);
  std::ifstream in(file, std::ios::binary);
  if (error || !in) {
    throw ToolError("cannot read '" + file.string() + "'");
  }
  Loaded loaded;
  loaded.image = kivcore::allocator::RecycledMemory::Create(static_cast<size_t>(bytes));
  if (bytes > 0 && !in.read(loaded.image->Buffer(), static_cast<std::streamsize>(bytes))) {
    throw ToolError("cannot read '" + file.string() + "'");
  }
  try {
    loaded.tensor = debug::CreateTensorFromStandardNumpy(loaded.image);
  } catch (const kivcore::kiv_exception& exception) {
    throw ToolError("'" + file.string() + "' is not a .npy file kivml reads: " + exception.what());
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
