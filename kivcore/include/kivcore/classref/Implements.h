#pragma once
// Implements<I...> answers interface queries for each listed interface, the interfaces they refine
// (ParentInterface) and UnknownBase. ImplementsMore<Base, I...> adds interfaces to a class that already
// implements some, asking Base for the rest. CreateObject makes an object owned by a shared_ptr through
// the recycling allocator, so that GetSharedFromThis works from the start.

#include <memory>
#include <type_traits>
#include <utility>

#include "kivcore/allocator/STLAllocator.h"
#include "kivcore/classref/UnknownBase.h"

namespace kivcore::classref {
namespace detail {

template <class I>
void* FindInterface(I* object, const utility::Guid& iid) noexcept {
  if (iid == I::kIID) {
    return object;
  }
  if constexpr (!std::is_void_v<typename I::ParentInterface>) {
    using Parent = typename I::ParentInterface;
    return FindInterface<Parent>(static_cast<Parent*>(object), iid);
  } else {
    return nullptr;
  }
}

}  // namespace detail

template <class... Interfaces>
class Implements : public Interfaces... {
 public:
  void* QueryInterface(const utility::Guid& iid) noexcept override {
    void* found = nullptr;
    ((found =
          found != nullptr ? found : detail::FindInterface<Interfaces>(static_cast<Interfaces*>(this), iid)),
     ...);
    if (found == nullptr && iid == UnknownBase::kIID) {
      found = static_cast<UnknownBase*>(this);
    }
    return found;
  }
};

template <class Base, class... Interfaces>
class ImplementsMore : public Base, public Interfaces... {
 public:
  using Base::Base;

  void* QueryInterface(const utility::Guid& iid) noexcept override {
    void* found = nullptr;
    ((found =
          found != nullptr ? found : detail::FindInterface<Interfaces>(static_cast<Interfaces*>(this), iid)),
     ...);
    return found != nullptr ? found : Base::QueryInterface(iid);
  }
};

template <class T, class... Args>
std::shared_ptr<T> CreateObject(Args&&... args) {
  return std::allocate_shared<T>(allocator::STLAllocator<T>(), std::forward<Args>(args)...);
}

}  // namespace kivcore::classref
