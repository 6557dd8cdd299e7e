#pragma once
// Process-wide registry of creatable classes by class id. Modules register their classes at start-up;
// hosts create instances by id without linking against the implementation. Thread-safe.

#include <string>

#include "kivcore/classref/InterfaceRef.h"
#include "kivcore/kivcore_export.h"
#include "kivcore/string/StringTypes.h"
#include "kivcore/utility/Guid.h"

// <windows.h> makes RegisterClass and UnregisterClass macros (their A/W forms); seen before this header they
// would rename the members below in this translation unit only. Include <windows.h> first, or not at all.
#ifdef RegisterClass
#undef RegisterClass
#endif
#ifdef UnregisterClass
#undef UnregisterClass
#endif

namespace kivcore::classref {

class KIVCORE_EXPORT ClassFactory {
 public:
  using CreateFunction = void (*)(InterfaceRef<UnknownBase>& instance);

  // Returns 0, or eClassAlreadyRegistered when the id is taken (the first registration stays),
  // or eInvalidArgument for a null creator.
  static int RegisterClass(const utility::Guid& classId, const char* idName, const char* className,
                           CreateFunction create);
  static bool UnregisterClass(const utility::Guid& classId);
  // The class name registered under the id, or "" when none.
  static std::string GetClassName(const utility::Guid& classId);
};

// A new instance of the class registered under the id; empty when none is registered or the creator
// made nothing. Exceptions of the creator propagate.
KIVCORE_EXPORT InterfaceRef<UnknownBase> CreateClassInstanceRef(const utility::Guid& classId);

namespace detail {
// Reports (as a debug assertion) that querying one object twice for one interface gave two pointers.
KIVCORE_EXPORT void AssertHasChanged(const u8string& typeName);
}  // namespace detail

}  // namespace kivcore::classref
