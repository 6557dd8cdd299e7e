#pragma once
// The Direct3D 12 API on every platform: Windows' own headers there, vkd3d's everywhere else. COM objects
// are held by ComPtr, an intrusive pointer over IUnknown's reference count.

// The Windows headers' min and max macros would break std::min and std::max in every includer.
#ifndef NOMINMAX
#define NOMINMAX
#endif

#if defined(_WIN32)
#include <d3d12.h>
#else
#ifndef WIDL_EXPLICIT_AGGREGATE_RETURNS
// Without it, struct-returning methods such as GetDesc use the wrong calling convention and crash.
#define WIDL_EXPLICIT_AGGREGATE_RETURNS
#endif
// clang-format off
#include <vkd3d_windows.h>
#include <vkd3d_d3d12.h>
// clang-format on
#endif

#include <boost/intrusive_ptr.hpp>

// Found by argument-dependent lookup for every interface that derives from IUnknown.
inline void intrusive_ptr_add_ref(IUnknown* object) {
  object->AddRef();
}
inline void intrusive_ptr_release(IUnknown* object) {
  object->Release();
}

namespace kivml::gpu {

template <class T>
using ComPtr = boost::intrusive_ptr<T>;

// Takes over the reference that a creating call (CreateHeap, QueryInterface, ...) handed out.
template <class T>
ComPtr<T> AdoptCom(T* object) {
  return ComPtr<T>(object, false);
}

}  // namespace kivml::gpu
