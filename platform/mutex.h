// Mutexes and condition variables whose contracts clang checks (-Wthread-safety).
//
// The order in which a thread takes locks: the key sequence's or that of the poll server's list; then one
// client's; then the output lock or the compress lock. A thread that holds one of the others takes no further
// lock: the registry's, that of the listen server's list, of the clients' names, of the names of dumps in
// progress, of apr_info.txt, of the archive writer's lookups, of SIGCHLD's disposition.
#pragma once

#include <pthread.h>

#if defined(__clang__)
#define DMD_THREAD_SAFETY(x) __attribute__((x))
#else
#define DMD_THREAD_SAFETY(x)
#endif

#define CAPABILITY(name) DMD_THREAD_SAFETY(capability(name))
#define SCOPED_CAPABILITY DMD_THREAD_SAFETY(scoped_lockable)
#define GUARDED_BY(mutex) DMD_THREAD_SAFETY(guarded_by(mutex))
#define REQUIRES(...) DMD_THREAD_SAFETY(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) DMD_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
#define RELEASE(...) DMD_THREAD_SAFETY(release_capability(__VA_ARGS__))
#define EXCLUDES(...) DMD_THREAD_SAFETY(locks_excluded(__VA_ARGS__))

// A mutex with default attributes, usable before any constructor has run.
struct CAPABILITY("mutex") Mutex {
    pthread_mutex_t handle = PTHREAD_MUTEX_INITIALIZER;

    void lock() ACQUIRE() { pthread_mutex_lock(&handle); }
    void unlock() RELEASE() { pthread_mutex_unlock(&handle); }
};

// Holds a mutex until the end of its scope.
class SCOPED_CAPABILITY MutexLock {
  public:
    explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~MutexLock() RELEASE() { mutex_.unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

  private:
    Mutex& mutex_;
};

// A condition variable with default attributes.
struct Condition {
    pthread_cond_t handle = PTHREAD_COND_INITIALIZER;

    void wait(Mutex& mutex) REQUIRES(mutex) { pthread_cond_wait(&handle, &mutex.handle); }
    void broadcast() { pthread_cond_broadcast(&handle); }
};
