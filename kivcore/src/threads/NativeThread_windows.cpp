#include "NativeThread.h"

#include <process.h>
#include <windows.h>

#include <cerrno>
#include <cstdint>
#include <system_error>
#include <utility>

namespace kivcore::threads {

struct NativeThread::Handle {
  HANDLE thread;
  unsigned id;
};

namespace {

unsigned __stdcall ThreadEntry(void* argument) {
  // The body is owned by the new thread from here on.
  std::unique_ptr<std::function<void()>> body(static_cast<std::function<void()>*>(argument));
  (*body)();
  return 0;
}

using SetThreadDescriptionFn = HRESULT(WINAPI*)(HANDLE, PCWSTR);

// SetThreadDescription exists from Windows 10 1607 on; looked up at run time so that the library still
// loads on older systems.
SetThreadDescriptionFn FindSetThreadDescription() {
  HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
  if (kernel == nullptr) {
    return nullptr;
  }
  FARPROC proc = GetProcAddress(kernel, "SetThreadDescription");
  return reinterpret_cast<SetThreadDescriptionFn>(reinterpret_cast<void (*)()>(proc));
}

}  // namespace

NativeThread::NativeThread(std::size_t stackSize, std::function<void()> body) : mHandle(new Handle{}) {
  auto owned = std::make_unique<std::function<void()>>(std::move(body));
  const uintptr_t thread = _beginthreadex(nullptr, static_cast<unsigned>(stackSize), &ThreadEntry,
                                          owned.get(), STACK_SIZE_PARAM_IS_A_RESERVATION, &mHandle->id);
  if (thread == 0) {
    throw std::system_error(errno, std::generic_category(), "_beginthreadex");
  }
  mHandle->thread = reinterpret_cast<HANDLE>(thread);
  owned.release();  // NOLINT(bugprone-unused-return-value): ThreadEntry owns it now
}

NativeThread::NativeThread(NativeThread&& other) noexcept = default;
NativeThread::~NativeThread() {
  Detach();
}

void NativeThread::Join() {
  if (mHandle) {
    WaitForSingleObject(mHandle->thread, INFINITE);
    CloseHandle(mHandle->thread);
    mHandle.reset();
  }
}

void NativeThread::Detach() {
  if (mHandle) {
    CloseHandle(mHandle->thread);
    mHandle.reset();
  }
}

bool NativeThread::IsCurrentThread() const noexcept {
  return mHandle && mHandle->id == GetCurrentThreadId();
}

void NativeThread::SetCurrentThreadName(const std::string& name) {
  static const SetThreadDescriptionFn setDescription = FindSetThreadDescription();
  if (setDescription == nullptr || name.empty()) {
    return;
  }
  const int length = MultiByteToWideChar(CP_UTF8, 0, name.data(), static_cast<int>(name.size()), nullptr, 0);
  if (length <= 0) {
    return;
  }
  std::wstring wide(static_cast<std::size_t>(length), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, name.data(), static_cast<int>(name.size()), wide.data(), length);
  setDescription(GetCurrentThread(), wide.c_str());
}

void NativeThread::SetCurrentThreadPriority(ThreadPriority priority) {
  static constexpr int kLevels[] = {THREAD_PRIORITY_IDLE,         THREAD_PRIORITY_LOWEST,
                                    THREAD_PRIORITY_BELOW_NORMAL, THREAD_PRIORITY_NORMAL,
                                    THREAD_PRIORITY_ABOVE_NORMAL, THREAD_PRIORITY_HIGHEST,
                                    THREAD_PRIORITY_TIME_CRITICAL};
  const int level = static_cast<int>(priority);
  if (level < 0 || level > 6 || priority == ThreadPriority::kNormal) {
    return;
  }
  SetThreadPriority(GetCurrentThread(), kLevels[level]);
}

}  // namespace kivcore::threads
