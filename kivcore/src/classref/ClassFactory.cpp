#include "kivcore/classref/ClassFactory.h"

#include <mutex>
#include <string>
#include <unordered_map>

#include "kivcore/config/ResultCodes.h"
#include "kivcore/debug/Assert.h"
#include "kivcore/string/StringConversions.h"

namespace kivcore::classref {
namespace {

struct ClassEntry {
  std::string idName;
  std::string className;
  ClassFactory::CreateFunction create = nullptr;
};

struct Registry {
  std::mutex mutex;
  std::unordered_map<utility::Guid, ClassEntry> classes;  // guarded by mutex
};

Registry& GetRegistry() {
  static Registry* registry = new Registry();  // modules may unregister from their static destructors
  return *registry;
}

}  // namespace

int ClassFactory::RegisterClass(const utility::Guid& classId, const char* idName, const char* className,
                                CreateFunction create) {
  if (create == nullptr) {
    return config::eInvalidArgument;
  }
  Registry& registry = GetRegistry();
  std::lock_guard lock(registry.mutex);
  const bool inserted =
      registry.classes
          .try_emplace(classId, ClassEntry{idName ? idName : "", className ? className : "", create})
          .second;
  return inserted ? 0 : config::eClassAlreadyRegistered;
}

bool ClassFactory::UnregisterClass(const utility::Guid& classId) {
  Registry& registry = GetRegistry();
  std::lock_guard lock(registry.mutex);
  return registry.classes.erase(classId) != 0;
}

std::string ClassFactory::GetClassName(const utility::Guid& classId) {
  Registry& registry = GetRegistry();
  std::lock_guard lock(registry.mutex);
  const auto it = registry.classes.find(classId);
  return it == registry.classes.end() ? std::string() : it->second.className;
}

InterfaceRef<UnknownBase> CreateClassInstanceRef(const utility::Guid& classId) {
  ClassFactory::CreateFunction create = nullptr;
  {
    Registry& registry = GetRegistry();
    std::lock_guard lock(registry.mutex);
    const auto it = registry.classes.find(classId);
    if (it == registry.classes.end()) {
      return {};
    }
    create = it->second.create;
  }
  InterfaceRef<UnknownBase> instance;
  create(instance);  // outside the lock: a creator may itself create registered classes
  return instance;
}

namespace detail {

void AssertHasChanged(const u8string& typeName) {
  const std::string message = "Interface query gave a different pointer for " + string::ToStdString(typeName);
  if (debug::DoSimpleAssert(__FILE__, __LINE__, "!hasChanged", message.c_str()) &&
      debug::IsDebuggerAttached()) {
    debug::BreakIntoDebugger();
  }
}

}  // namespace detail
}  // namespace kivcore::classref
