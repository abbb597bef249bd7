// Lock annotations that clang checks with -Wthread-safety; other compilers ignore them. They state what a lock
// protects where it is declared, e.g.
//     ThMutex gRights;
//     Block* gBlocks KZ_GUARDED_BY(gRights);
//     Block* FindBlockLocked(const void* p) KZ_REQUIRES(gRights);
#ifndef KZCORE_THREADANNOTATIONS_H
#define KZCORE_THREADANNOTATIONS_H

#if defined(__clang__)
#define KZ_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define KZ_THREAD_ATTRIBUTE(x)
#endif

// A type that is a lock, and a type that holds one from construction to destruction.
#define KZ_CAPABILITY(name) KZ_THREAD_ATTRIBUTE(capability(name))
#define KZ_SCOPED_CAPABILITY KZ_THREAD_ATTRIBUTE(scoped_lockable)

// Data that is touched only while `lock` is held.
#define KZ_GUARDED_BY(lock) KZ_THREAD_ATTRIBUTE(guarded_by(lock))

// A function that is called with these locks held, takes them, or gives them back.
#define KZ_REQUIRES(...) KZ_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define KZ_ACQUIRE(...) KZ_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define KZ_RELEASE(...) KZ_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))

// A body that the checker can't follow: the lock operations themselves.
#define KZ_NO_THREAD_CHECK KZ_THREAD_ATTRIBUTE(no_thread_safety_analysis)

#endif
