// Annotations of locks, by which the compiler finds who touches what a lock guards without holding it.
// Clang checks it with -Wthread-safety; other compilers pass over it.
#pragma once

#ifdef __clang__
#define MEM_ANNOTATION(what) __attribute__((what))
#else
#define MEM_ANNOTATION(what)
#endif

// Of a class: it is a lock; it holds one for a scope.
#define MEM_IS_LOCK MEM_ANNOTATION(capability("lock"))
#define MEM_IS_LOCK_SCOPE MEM_ANNOTATION(scoped_lockable)
// Of data: touched with the lock held; what the pointer leads to is.
#define MEM_GUARDED_BY(lock) MEM_ANNOTATION(guarded_by(lock))
#define MEM_LEADS_TO_GUARDED_BY(lock) MEM_ANNOTATION(pt_guarded_by(lock))
// Of a function: it takes the lock, gives it back, or is called with it.
#define MEM_TAKES(...) MEM_ANNOTATION(acquire_capability(__VA_ARGS__))
#define MEM_TAKES_IF(result) MEM_ANNOTATION(try_acquire_capability(result))
#define MEM_GIVES_BACK(...) MEM_ANNOTATION(release_capability(__VA_ARGS__))
#define MEM_CALLED_WITH(...) MEM_ANNOTATION(requires_capability(__VA_ARGS__))
#define MEM_TAKES_SHARED(...) MEM_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define MEM_GIVES_BACK_ANY(...) MEM_ANNOTATION(release_generic_capability(__VA_ARGS__))
// Of a function whose locks the compiler cannot follow: a lock in another place, or one that nobody else can
// hold yet.
#define MEM_LOCKS_UNCHECKED MEM_ANNOTATION(no_thread_safety_analysis)
