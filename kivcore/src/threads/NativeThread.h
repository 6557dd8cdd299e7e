#pragma once
// The platform seam for threads (NativeThread_linux.cpp / NativeThread_windows.cpp): starting a thread
// with a chosen stack size, joining or detaching it, and naming and prioritising the calling thread.
// A NativeThread still joinable when destroyed is detached. It is not synchronized: its owner serializes
// the calls. The body runs on the new thread and must not throw.

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "kivcore/threads/ThreadPriority.h"

namespace kivcore::threads {

class NativeThread {
 public:
  // Throws std::system_error when the platform cannot start the thread (the body is then destroyed).
  NativeThread(std::size_t stackSize, std::function<void()> body);
  NativeThread(NativeThread&& other) noexcept;
  NativeThread& operator=(NativeThread&& other) = delete;
  NativeThread(const NativeThread&) = delete;
  NativeThread& operator=(const NativeThread&) = delete;
  ~NativeThread();

  void Join();
  void Detach();
  bool IsCurrentThread() const noexcept;

  // Best effort: failures (name too long is cut, priority refused) are ignored.
  static void SetCurrentThreadName(const std::string& name);
  static void SetCurrentThreadPriority(ThreadPriority priority);

 private:
  struct Handle;                    // defined per platform
  std::unique_ptr<Handle> mHandle;  // null once moved from
};

}  // namespace kivcore::threads
