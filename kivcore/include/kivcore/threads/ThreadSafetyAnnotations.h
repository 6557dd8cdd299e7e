#pragma once
// Lock annotations that clang's thread-safety analysis (-Wthread-safety) checks: which mutex guards a
// member, which a function needs held or takes. Other compilers see nothing, so they cost GCC and MinGW
// builds nothing. scripts/check_thread_safety.sh builds the libraries with the analysis on.
//
// A class that locks declares itself KIV_CAPABILITY("mutex"); its lock and unlock functions say
// KIV_ACQUIRE() and KIV_RELEASE(). An RAII guard is KIV_SCOPED_CAPABILITY, acquiring its mutex argument in
// the constructor and releasing in the destructor. Members then name their mutex with KIV_GUARDED_BY, and
// functions that expect it held with KIV_REQUIRES. An accessor that hands the mutex to derived classes
// says KIV_RETURN_CAPABILITY(member), so that a lock taken through it counts as the member.
//
// The analysis does not know re-entrant mutexes: taking kivcore::threads::RecursiveMutex twice within one
// function is reported, so KIV_EXCLUDES marks only functions that must never run with the mutex held (they
// run callers' code), not every function that takes it. libstdc++ does not annotate std::mutex: members it
// guards say so in a comment instead.

#if defined(__clang__)
#define KIV_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define KIV_THREAD_ANNOTATION(x)
#endif

// On a class: its objects are capabilities (mutexes); `name` appears in diagnostics.
#define KIV_CAPABILITY(name) KIV_THREAD_ANNOTATION(capability(name))
// On a class: RAII objects that hold the capability named in their constructor's KIV_ACQUIRE.
#define KIV_SCOPED_CAPABILITY KIV_THREAD_ANNOTATION(scoped_lockable)

// On a data member: read and written only with `mutex` held.
#define KIV_GUARDED_BY(mutex) KIV_THREAD_ANNOTATION(guarded_by(mutex))
// On a pointer member: what it points to is read and written only with `mutex` held.
#define KIV_PT_GUARDED_BY(mutex) KIV_THREAD_ANNOTATION(pt_guarded_by(mutex))
// On a mutex member: the order in which it is taken relative to other mutexes.
#define KIV_ACQUIRED_BEFORE(...) KIV_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
#define KIV_ACQUIRED_AFTER(...) KIV_THREAD_ANNOTATION(acquired_after(__VA_ARGS__))

// On a function: the caller holds these, exclusively or shared, and still holds them on return.
#define KIV_REQUIRES(...) KIV_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define KIV_REQUIRES_SHARED(...) KIV_THREAD_ANNOTATION(requires_shared_capability(__VA_ARGS__))
// On a function: it takes these (with no argument, on a member function of a capability: the object
// itself) and returns holding them.
#define KIV_ACQUIRE(...) KIV_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define KIV_ACQUIRE_SHARED(...) KIV_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
// On a function: the caller holds these and they are released on return.
#define KIV_RELEASE(...) KIV_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define KIV_RELEASE_SHARED(...) KIV_THREAD_ANNOTATION(release_shared_capability(__VA_ARGS__))
#define KIV_RELEASE_GENERIC(...) KIV_THREAD_ANNOTATION(release_generic_capability(__VA_ARGS__))
// On a function returning bool (first argument: the value meaning success): takes the capability only
// when it returns that value.
#define KIV_TRY_ACQUIRE(...) KIV_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define KIV_TRY_ACQUIRE_SHARED(...) KIV_THREAD_ANNOTATION(try_acquire_shared_capability(__VA_ARGS__))
// On a function: must not be called with these held (it takes them, or runs code that might).
#define KIV_EXCLUDES(...) KIV_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
// On a function: when it returns, the calling thread holds `mutex` (a run-time check that throws or aborts
// otherwise).
#define KIV_ASSERT_CAPABILITY(mutex) KIV_THREAD_ANNOTATION(assert_capability(mutex))
// On a function returning a mutex (by reference or pointer): it is `mutex`.
#define KIV_RETURN_CAPABILITY(mutex) KIV_THREAD_ANNOTATION(lock_returned(mutex))

// On a function definition: skip the analysis there. For code the analysis cannot follow (the lock
// primitives themselves, conditional locking); say why next to it.
#define KIV_NO_THREAD_SAFETY_ANALYSIS KIV_THREAD_ANNOTATION(no_thread_safety_analysis)
