#ifndef OSTREL_SCOPED_LOCK_H
#define OSTREL_SCOPED_LOCK_H

#include <pthread.h>

namespace Ostrel {

// Holds a pthread mutex for the life of the guard: unlocked on every path,
// exceptions included. Internal to the library.
class ScopedLock {
 public:
  explicit ScopedLock(pthread_mutex_t* mutex) : m_pMutex(mutex) { pthread_mutex_lock(m_pMutex); }
  ~ScopedLock() { pthread_mutex_unlock(m_pMutex); }

 private:
  ScopedLock(const ScopedLock&);
  ScopedLock& operator=(const ScopedLock&);

  pthread_mutex_t* m_pMutex;
};

}  // namespace Ostrel

#endif  // OSTREL_SCOPED_LOCK_H
