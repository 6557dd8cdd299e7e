#include "NativeThread.h"

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <climits>
#include <system_error>
#include <utility>

namespace kivcore::threads {

struct NativeThread::Handle {
  pthread_t thread;
};

namespace {

void* ThreadEntry(void* argument) {
  // The body is owned by the new thread from here on.
  std::unique_ptr<std::function<void()>> body(static_cast<std::function<void()>*>(argument));
  (*body)();
  return nullptr;
}

std::size_t RoundStackSize(std::size_t requested) {
  const long page = sysconf(_SC_PAGESIZE);
  const std::size_t pageSize = page > 0 ? static_cast<std::size_t>(page) : 4096;
  // PTHREAD_STACK_MIN is a run-time value (a long) in recent glibc.
  const long minimum = PTHREAD_STACK_MIN;
  const std::size_t minimumSize = minimum > 0 ? static_cast<std::size_t>(minimum) : 16384;
  const std::size_t atLeast = requested < minimumSize ? minimumSize : requested;
  return (atLeast + pageSize - 1) / pageSize * pageSize;
}

}  // namespace

NativeThread::NativeThread(std::size_t stackSize, std::function<void()> body) : mHandle(new Handle{}) {
  pthread_attr_t attributes;
  int rc = pthread_attr_init(&attributes);
  if (rc != 0) {
    throw std::system_error(rc, std::generic_category(), "pthread_attr_init");
  }
  if (stackSize != 0) {
    rc = pthread_attr_setstacksize(&attributes, RoundStackSize(stackSize));
  }
  auto owned = std::make_unique<std::function<void()>>(std::move(body));
  if (rc == 0) {
    rc = pthread_create(&mHandle->thread, &attributes, &ThreadEntry, owned.get());
  }
  pthread_attr_destroy(&attributes);
  if (rc != 0) {
    throw std::system_error(rc, std::generic_category(), "pthread_create");
  }
  owned.release();  // NOLINT(bugprone-unused-return-value): ThreadEntry owns it now
}

NativeThread::NativeThread(NativeThread&& other) noexcept = default;
NativeThread::~NativeThread() {
  Detach();
}

void NativeThread::Join() {
  if (mHandle) {
    pthread_join(mHandle->thread, nullptr);
    mHandle.reset();
  }
}

void NativeThread::Detach() {
  if (mHandle) {
    pthread_detach(mHandle->thread);
    mHandle.reset();
  }
}

bool NativeThread::IsCurrentThread() const noexcept {
  return mHandle && pthread_equal(mHandle->thread, pthread_self()) != 0;
}

void NativeThread::SetCurrentThreadName(const std::string& name) {
  // Linux keeps 15 bytes plus the terminator and refuses longer names outright.
  pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
}

void NativeThread::SetCurrentThreadPriority(ThreadPriority priority) {
  // Linux threads under the default scheduler differ only by nice value, which is per thread.
  static constexpr int kNice[] = {19, 10, 5, 0, -5, -10, -15};
  const int level = static_cast<int>(priority);
  if (level < 0 || level > 6 || priority == ThreadPriority::kNormal) {
    return;
  }
  // Raising priority needs CAP_SYS_NICE; without it the thread keeps its inherited nice value.
  setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kNice[level]);
}

}  // namespace kivcore::threads
