#pragma once
// .npy files on disk, in the form numpy.save writes and numpy.load reads. The images themselves are the
// library's business (kivml/debug/StandardNumpy.h); this class moves them between files and memory.

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "kivcore/allocator/RecycledMemory.h"
#include "kivcore/classref/InterfaceRef.h"
#include "kivcore/utility/Guid.h"
#include "kivml/IMLFeature.h"
#include "kivml/debug/StandardNumpy.h"

namespace kivml::cli {

class NpyFiles {
 public:
  struct Loaded {
    std::shared_ptr<kivcore::allocator::RecycledMemory> image;  // the tensor reads from it
    debug::StandardNumpyTensor tensor;
  };

  // Throws ToolError when the file is missing, unreadable or too large for memory, or is not an image the
  // library reads (with the library's reason).
  static Loaded Read(const std::filesystem::path& file);
  // Throws ToolError when the tensor cannot be imaged or the file cannot be written (with the system's
  // reason); the file is then as it was (OutputFile).
  static void Write(const std::filesystem::path& file,
                    const kivcore::classref::InterfaceRef<IMLFeature>& tensor,
                    const kivcore::utility::Guid& elementType);
  // `featureName` made safe as a file name on every platform: characters other than letters, digits,
  // '-', '_' and '.' become '_', and names that are empty or all dots become "output".
  static std::string SafeFileStem(std::string_view featureName);
};

}  // namespace kivml::cli
