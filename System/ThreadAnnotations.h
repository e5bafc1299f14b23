#pragma once

/// What the compiler is told about locks, so that it refuses code which touches shared data without
/// them. Only clang looks (-Wthread-safety); to any other compiler the macros are nothing at all.
///
/// A *capability* is what a thread must hold to touch data: a mutex, or a state of the program in
/// which no mutex is needed. A *scoped capability* is an object that holds one until it goes.
#if defined(__clang__)
#define TARVEXDIAGS_THREAD_ANNOTATION(annotation) __attribute__((annotation))
#else
#define TARVEXDIAGS_THREAD_ANNOTATION(annotation)
#endif

/// On a class whose objects are capabilities; the kind ("mutex") appears in messages.
#define TARVEXDIAGS_CAPABILITY(kind) TARVEXDIAGS_THREAD_ANNOTATION(capability(kind))
/// On a class whose objects hold a capability for a scope.
#define TARVEXDIAGS_SCOPED_CAPABILITY TARVEXDIAGS_THREAD_ANNOTATION(scoped_lockable)

/// On a field: touched only with the capability; for reading a shared hold is enough.
#define TARVEXDIAGS_GUARDED_BY(capability) TARVEXDIAGS_THREAD_ANNOTATION(guarded_by(capability))
/// On a pointer: the same for what it points to.
#define TARVEXDIAGS_PT_GUARDED_BY(capability) \
  TARVEXDIAGS_THREAD_ANNOTATION(pt_guarded_by(capability))

/// On a function: its caller holds the capability, alone or with others.
#define TARVEXDIAGS_REQUIRES(...) TARVEXDIAGS_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define TARVEXDIAGS_REQUIRES_SHARED(...) \
  TARVEXDIAGS_THREAD_ANNOTATION(requires_shared_capability(__VA_ARGS__))
/// On a function: its caller does not hold the capability, which the function takes itself.
#define TARVEXDIAGS_EXCLUDES(...) TARVEXDIAGS_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))

/// On a function that takes the capability, or gives it back. Without an argument: the object's
/// own.
#define TARVEXDIAGS_ACQUIRE(...) TARVEXDIAGS_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define TARVEXDIAGS_ACQUIRE_SHARED(...) \
  TARVEXDIAGS_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define TARVEXDIAGS_RELEASE(...) TARVEXDIAGS_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define TARVEXDIAGS_RELEASE_SHARED(...) \
  TARVEXDIAGS_THREAD_ANNOTATION(release_shared_capability(__VA_ARGS__))
/// On a function that takes the capability when it returns the first argument.
#define TARVEXDIAGS_TRY_ACQUIRE(...) \
  TARVEXDIAGS_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))

/// On a function after which the capability counts as held: it was taken out of the compiler's
/// sight.
#define TARVEXDIAGS_ASSERT_CAPABILITY(...) \
  TARVEXDIAGS_THREAD_ANNOTATION(assert_capability(__VA_ARGS__))
#define TARVEXDIAGS_ASSERT_SHARED_CAPABILITY(...) \
  TARVEXDIAGS_THREAD_ANNOTATION(assert_shared_capability(__VA_ARGS__))

/// On a function that returns a reference to a capability.
#define TARVEXDIAGS_RETURN_CAPABILITY(capability) \
  TARVEXDIAGS_THREAD_ANNOTATION(lock_returned(capability))

/// On a function whose body is not looked at. Each use carries its reason.
#define TARVEXDIAGS_NO_THREAD_SAFETY_ANALYSIS \
  TARVEXDIAGS_THREAD_ANNOTATION(no_thread_safety_analysis)
