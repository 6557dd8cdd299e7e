#pragma once
// Root of every reference-counted object of the runtime. Objects are owned by std::shared_ptr (made with
// CreateObject) and reached through interfaces: an interface query asks the object for the interface
// whose Guid is given and yields a pointer into the same object, or null when it does not implement it.

#include <memory>

#include "kivcore/kivcore_export.h"
#include "kivcore/utility/Guid.h"

namespace kivcore::classref {

class KIVCORE_EXPORT UnknownBase : public std::enable_shared_from_this<UnknownBase> {
 public:
  static constexpr utility::Guid kIID{"00000000-0000-0000-C000-000000000046", 36};

  virtual ~UnknownBase();

  // Pointer to the requested interface inside this object, or null.
  virtual void* QueryInterface(const utility::Guid& iid) noexcept = 0;

  // Shared ownership of this object; throws std::bad_weak_ptr when no shared_ptr owns it.
  std::shared_ptr<UnknownBase> GetSharedFromThis() { return shared_from_this(); }
  std::shared_ptr<const UnknownBase> GetSharedFromThis() const { return shared_from_this(); }

 protected:
  UnknownBase() = default;
  UnknownBase(const UnknownBase&) = default;
  UnknownBase& operator=(const UnknownBase&) = default;
};

// The root of interfaces. Interfaces derive from Unknown, declare `static constexpr Guid kIID` and no data.
// An interface that refines another declares `using ParentInterface = Parent;` so that implementations
// answer queries for both.
class KIVCORE_EXPORT Unknown : public virtual UnknownBase {
 public:
  using ParentInterface = void;
  ~Unknown() override;
};

}  // namespace kivcore::classref
