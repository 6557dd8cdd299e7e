#pragma once
// Joins any number of futures into one Future<void>. Add futures, then Seal: the sealed future completes
// once every added future has completed: with a value when all of them have values, otherwise with the
// exception of the earliest-added future that failed (a future without a state counts as failed with
// FutureIsCancelledException). Sealing with nothing added completes at once.
//
// Threads: Add and Seal may be called from any thread, concurrently. Nothing blocks beyond a short internal
// lock. Completions of added futures are counted on the threads that complete them; continuations of the
// sealed future are posted on the executor given to Create (null: the default executor).
// Lifetime: every added future that is still pending keeps the CompoundFuture and itself alive, so the
// caller may drop both the CompoundFuture and the added futures after Seal. Added futures are therefore
// never seen as abandoned by their producers while the compound waits for them.

#include <cstddef>
#include <exception>
#include <memory>
#include <mutex>

#include "kivcore/async/Future.h"
#include "kivcore/async/UntypedFuture.h"
#include "kivcore/kivcore_export.h"

namespace kivcore::async {

class AsyncExecutor;

class KIVCORE_EXPORT CompoundFuture : public std::enable_shared_from_this<CompoundFuture> {
 public:
  static std::shared_ptr<CompoundFuture> Create(std::shared_ptr<AsyncExecutor> executor);
  ~CompoundFuture();
  CompoundFuture(const CompoundFuture&) = delete;
  CompoundFuture& operator=(const CompoundFuture&) = delete;

  // False, and `future` is ignored, once Seal has been called.
  bool Add(const UntypedFuture& future);

  // Stops accepting futures and returns the joined future. Later calls return the same future while
  // somebody holds it (a future without a state once it has been abandoned).
  Future<void> Seal();

 private:
  explicit CompoundFuture(std::shared_ptr<AsyncExecutor> executor);

  void MemberCompleted(size_t index, std::exception_ptr exception) noexcept;
  void Complete(std::exception_ptr failure) noexcept;

  std::mutex mMutex;
  Promise<void> mPromise;
  size_t mAdded = 0;            // guarded by mMutex
  size_t mPending = 0;          // guarded by mMutex
  size_t mFailedIndex = 0;      // guarded by mMutex; meaningful when mFailure is set
  std::exception_ptr mFailure;  // guarded by mMutex
  bool mSealed = false;         // guarded by mMutex
};

}  // namespace kivcore::async
