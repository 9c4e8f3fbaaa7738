// A mutex, its scoped lock and a condition variable that clang's thread-safety
// analysis understands (libstdc++'s std::mutex carries no capability). They
// behave exactly as std::mutex, std::unique_lock and std::condition_variable,
// which they wrap; wisp and the downloader guard every shared member with them.
//
// Thread rules: those of the wrapped std types.
#ifndef WISP_MUTEX_H_
#define WISP_MUTEX_H_

#include <wisp/ThreadAnnotations.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace wisp {

class CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void Lock() ACQUIRE() { mutex_.lock(); }
  void Unlock() RELEASE() { mutex_.unlock(); }

 private:
  friend class CondVar;
  std::mutex mutex_;
};

// Holds `mutex` from construction to destruction.
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex* mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_->Lock(); }
  ~MutexLock() RELEASE() { mutex_->Unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  friend class CondVar;
  Mutex* const mutex_;
};

// std::condition_variable waiting on a MutexLock. The analysis cannot tie a
// predicate to the lock it runs under, so a predicate that reads guarded
// members says so itself: [this]() REQUIRES(mutex_) { ... }.
class CondVar {
 public:
  CondVar() = default;
  CondVar(const CondVar&) = delete;
  CondVar& operator=(const CondVar&) = delete;

  void notify_one() noexcept { cv_.notify_one(); }
  void notify_all() noexcept { cv_.notify_all(); }

  void wait(MutexLock& lock) {
    Adopted adopted(lock);
    cv_.wait(adopted.lock);
  }
  template <typename Predicate>
  void wait(MutexLock& lock, Predicate predicate) NO_THREAD_SAFETY_ANALYSIS {
    Adopted adopted(lock);
    cv_.wait(adopted.lock, predicate);
  }
  template <typename Rep, typename Period>
  std::cv_status wait_for(MutexLock& lock, const std::chrono::duration<Rep, Period>& timeout) {
    Adopted adopted(lock);
    return cv_.wait_for(adopted.lock, timeout);
  }
  template <typename Rep, typename Period, typename Predicate>
  bool wait_for(MutexLock& lock, const std::chrono::duration<Rep, Period>& timeout,
                Predicate predicate) NO_THREAD_SAFETY_ANALYSIS {
    Adopted adopted(lock);
    return cv_.wait_for(adopted.lock, timeout, predicate);
  }
  template <typename Clock, typename Duration>
  std::cv_status wait_until(MutexLock& lock, const std::chrono::time_point<Clock, Duration>& deadline) {
    Adopted adopted(lock);
    return cv_.wait_until(adopted.lock, deadline);
  }
  template <typename Clock, typename Duration, typename Predicate>
  bool wait_until(MutexLock& lock, const std::chrono::time_point<Clock, Duration>& deadline,
                  Predicate predicate) NO_THREAD_SAFETY_ANALYSIS {
    Adopted adopted(lock);
    return cv_.wait_until(adopted.lock, deadline, predicate);
  }

 private:
  // Lends the held std::mutex to std::condition_variable for one wait and
  // hands it back still held, as the wait leaves it.
  struct Adopted {
    explicit Adopted(MutexLock& held) : lock(held.mutex_->mutex_, std::adopt_lock) {}
    ~Adopted() { lock.release(); }
    std::unique_lock<std::mutex> lock;
  };

  std::condition_variable cv_;
};

}  // namespace wisp

#endif  // WISP_MUTEX_H_
