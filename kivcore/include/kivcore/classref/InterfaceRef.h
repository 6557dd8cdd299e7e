#pragma once
// A shared, reference-counted pointer to one interface of an object derived from UnknownBase. Copies share
// ownership of the whole object. Dereferencing an empty reference throws through DoThrowNullPtrException
// naming the interface. Query<U>() asks the object for another interface by U::kIID.

#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>

#include "kivcore/classref/UnknownBase.h"
#include "kivcore/config/NullPtrException.h"
#include "kivcore/debug/TypeName.h"

namespace kivcore::classref {

template <class T>
class InterfaceRef {
 public:
  using element_type = T;

  InterfaceRef() noexcept = default;
  InterfaceRef(std::nullptr_t) noexcept {}  // NOLINT(google-explicit-constructor)
  explicit InterfaceRef(std::shared_ptr<T> pointer) noexcept : mPointer(std::move(pointer)) {}

  // Upcast: a reference to a derived interface converts to one of its bases.
  template <class U>
  requires std::is_convertible_v<U*, T*> InterfaceRef(const InterfaceRef<U>& other)
  noexcept  // NOLINT(google-explicit-constructor)
      : mPointer(other.GetShared()) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> InterfaceRef(InterfaceRef<U>&& other)
  noexcept  // NOLINT(google-explicit-constructor)
      : mPointer(std::move(other).TakeShared()) {}

  T* operator->() const { return &**this; }
  T& operator*() const {
    if (!mPointer) {
      config::DoThrowNullPtrException(debug::GetTypeName(typeid(T)));
    }
    return *mPointer;
  }
  T* get() const noexcept { return mPointer.get(); }
  explicit operator bool() const noexcept { return mPointer != nullptr; }
  const std::shared_ptr<T>& GetShared() const& noexcept { return mPointer; }
  std::shared_ptr<T> TakeShared() && noexcept { return std::move(mPointer); }
  void Reset() noexcept { mPointer.reset(); }

  // The object's interface U, or an empty reference when this is empty or the object lacks U.
  template <class U>
  InterfaceRef<U> Query() const noexcept {
    if (!mPointer) {
      return {};
    }
    auto* unknown = const_cast<UnknownBase*>(static_cast<const UnknownBase*>(mPointer.get()));
    // A copy, not a reference: Windows DLLs do not export the constexpr id members of imported classes.
    const utility::Guid iid = U::kIID;
    void* found = unknown->QueryInterface(iid);
    if (found == nullptr) {
      return {};
    }
    return InterfaceRef<U>(std::shared_ptr<U>(mPointer, static_cast<U*>(found)));
  }

  template <class U>
  friend bool operator==(const InterfaceRef& a, const InterfaceRef<U>& b) noexcept {
    return a.get() == b.get();
  }
  friend bool operator==(const InterfaceRef& a, std::nullptr_t) noexcept { return !a; }

 private:
  std::shared_ptr<T> mPointer;
};

template <class U, class T>
InterfaceRef<U> QueryInterface(const InterfaceRef<T>& reference) noexcept {
  return reference.template Query<U>();
}

// A reference to interface I of an object held by shared_ptr.
template <class I, class T>
InterfaceRef<I> MakeInterfaceRef(const std::shared_ptr<T>& object) noexcept {
  return InterfaceRef<I>(std::shared_ptr<I>(object, static_cast<I*>(object.get())));
}

}  // namespace kivcore::classref
