#pragma once
// Read access to the custom metadata a loaded model carries. Never throws: failures are logged and give
// what could be read.

#include <unordered_map>

#include "kivcore/allocator/STLAllocator.h"
#include "kivcore/classref/UnknownBase.h"
#include "kivcore/string/StringTypes.h"

namespace kivml {

class IMLEvaluatorMetadata : public kivcore::classref::Unknown {
 public:
  static constexpr kivcore::utility::Guid kIID{"122EC180-92B9-4125-874D-61818E96342B", 36};

  using MetadataMap = std::unordered_map<
      kivcore::u8string, kivcore::u8string, kivcore::U8StringHash, std::equal_to<>,
      kivcore::allocator::STLAllocator<std::pair<const kivcore::u8string, kivcore::u8string>>>;

  // Every key with its value.
  virtual MetadataMap GetMetdata() = 0;
  // The value under `key`, or an empty string.
  virtual kivcore::u8string LookupMetadata(const kivcore::u8string& key) = 0;
};

}  // namespace kivml
