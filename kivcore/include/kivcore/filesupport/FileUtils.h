#pragma once
// Whole-file helpers. Stateless and safe from any thread.

#include <memory>

#include "kivcore/allocator/RecycledMemory.h"
#include "kivcore/kivcore_export.h"
#include "kivcore/string/StringTypes.h"

namespace kivcore::utility {

class KIVCORE_EXPORT FileUtils {
 public:
  FileUtils() = delete;

  // The whole content of the regular file at `path`, or null when it cannot be read completely.
  static std::shared_ptr<allocator::RecycledMemory> SimpleReadFileIntoBuffer(const wstring& path);
};

}  // namespace kivcore::utility
