#include "kivcore/async/FutureStateBase.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "kivcore/async/AsyncExecutor.h"
#include "kivcore/async/ContinuationNode.h"

namespace kivcore::async {
namespace {

// States do not carry a mutex and condition variable of their own: waiters park on one of a fixed set of
// slots picked by the state's address. Completing wakes the whole slot; waiters for other states sharing
// it re-check and park again.
struct alignas(64) WaitSlot {
  std::mutex mutex;
  std::condition_variable condition;
};

constexpr unsigned kWaitSlotBits = 6;
constexpr size_t kWaitSlotCount = size_t{1} << kWaitSlotBits;

WaitSlot& SlotFor(const void* state) {
  // Never destroyed: a detached thread may still be waiting while static destructors run.
  static WaitSlot* const slots = new WaitSlot[kWaitSlotCount];
  // Fibonacci hashing: states are 16- or 64-byte aligned, so the low address bits carry no information.
  const uint64_t mixed = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(state)) * 0x9E3779B97F4A7C15ull;
  return slots[mixed >> (64 - kWaitSlotBits)];
}

// Marks the list of a completed state; never dereferenced.
ContinuationNode* const kClosed = reinterpret_cast<ContinuationNode*>(uintptr_t{1});

}  // namespace

FutureStateBase::FutureStateBase(std::shared_ptr<AsyncExecutor> continuationExecutor) noexcept
    : mContinuationExecutor(std::move(continuationExecutor)) {}

FutureStateBase::~FutureStateBase() {
  ContinuationNode* node = mContinuations.load(std::memory_order_acquire);
  while (node != nullptr && node != kClosed) {
    ContinuationNode* next = node->mNext;
    node->Release();
    node = next;
  }
}

std::shared_ptr<AsyncExecutor> FutureStateBase::ContinuationExecutor() const {
  return mContinuationExecutor != nullptr ? mContinuationExecutor : GetDefaultExecutor();
}

bool FutureStateBase::PrepareToWait() const noexcept {
  if (IsReady()) {
    return false;
  }
  // One read-modify-write on the status word: either the completer's Publish sees kWaiters and wakes the
  // slot, or this sees the completion.
  const uint32_t previous = mStatus.fetch_or(kWaiters, std::memory_order_acq_rel);
  return (previous & kPhaseMask) < kHasValue;
}

void FutureStateBase::Wait() const {
  if (!PrepareToWait()) {
    return;
  }
  WaitSlot& slot = SlotFor(this);
  std::unique_lock<std::mutex> lock(slot.mutex);
  while (!IsReady()) {
    slot.condition.wait(lock);
  }
}

bool FutureStateBase::WaitUntil(std::chrono::steady_clock::time_point deadline) const {
  if (!PrepareToWait()) {
    return true;
  }
  WaitSlot& slot = SlotFor(this);
  std::unique_lock<std::mutex> lock(slot.mutex);
  while (!IsReady()) {
    if (slot.condition.wait_until(lock, deadline) == std::cv_status::timeout) {
      return IsReady();
    }
  }
  return true;
}

bool FutureStateBase::TryClaim() noexcept {
  uint32_t status = mStatus.load(std::memory_order_relaxed);
  do {
    if ((status & kPhaseMask) != kPending) {
      return false;
    }
  } while (!mStatus.compare_exchange_weak(status, (status & ~kPhaseMask) | kClaimed,
                                          std::memory_order_acquire, std::memory_order_relaxed));
  return true;
}

bool FutureStateBase::CompleteWithException(const std::shared_ptr<FutureStateBase>& state,
                                            std::exception_ptr exception) noexcept {
  // Rethrowing a null exception is undefined: a future is never failed with one.
  if (exception == nullptr || !state->TryClaim()) {
    return false;
  }
  state->StoreException(std::move(exception));
  Publish(state, true);
  return true;
}

void FutureStateBase::Publish(const std::shared_ptr<FutureStateBase>& state, bool hasException) noexcept {
  // Nothing downstream of the upstream is left to feed this state.
  state->mUpstream.reset();

  // kClaimed + 1 = kHasValue, kClaimed + 2 = kHasException; the waiter bit is left as it is.
  const uint32_t previous = state->mStatus.fetch_add(hasException ? 2 : 1, std::memory_order_acq_rel);
  if ((previous & kWaiters) != 0) {
    WaitSlot& slot = SlotFor(state.get());
    {
      // A waiter that checked the status before the add is parked by the time this lock is granted.
      std::lock_guard<std::mutex> lock(slot.mutex);
    }
    slot.condition.notify_all();
  }

  ContinuationNode* head = state->mContinuations.exchange(kClosed, std::memory_order_acq_rel);
  // The list is newest first; continuations are scheduled in the order they were attached.
  ContinuationNode* ordered = nullptr;
  while (head != nullptr) {
    ContinuationNode* next = head->mNext;
    head->mNext = ordered;
    ordered = head;
    head = next;
  }
  while (ordered != nullptr) {
    ContinuationNode* next = ordered->mNext;
    ordered->Schedule(state);
    ordered = next;
  }
}

void FutureStateBase::AddContinuation(const std::shared_ptr<FutureStateBase>& state,
                                      ContinuationNode* node) noexcept {
  ContinuationNode* head = state->mContinuations.load(std::memory_order_acquire);
  do {
    if (head == kClosed) {
      node->Schedule(state);
      return;
    }
    node->mNext = head;
  } while (!state->mContinuations.compare_exchange_weak(head, node, std::memory_order_acq_rel,
                                                        std::memory_order_acquire));
}

}  // namespace kivcore::async
