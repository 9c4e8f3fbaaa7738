// The process-wide objects the library makes for itself (the storage thread's
// dispatch, the cache cleaner, the buffer recycler, the HTTP totals, the disk
// adapter registry, ...), the clock every time-out reads and the HTTP client
// the executors send through, reached through one context instead of one
// singleton each.
//
// A process-wide object is a "service": a class with a public constructor
// taking a LibraryContext& (or none). Get<T>() makes it on first use and the
// context owns it; the context destroys its services in the reverse order of
// their making, so a service may use the ones it asked for while it was made.
// The context sits in the lowest layer and names no service: each layer asks
// for its own services, so no folder reaches a higher one.
//
// Current() is the context the library's objects use. The process's own is
// made on first use and never destroyed: a DLL being unloaded must not join
// the service threads, and a thread still running at exit finds it intact.
// A test installs a context of its own (with a fake clock) with
// ScopedCurrent, before it makes the objects under test, and ends it after
// they are gone; that context's services are destroyed with it.
//
// Thread rules: any thread. Get<T>() holds mutex_ while it makes a service
// (re-entered when a service asks for another while it is made); once made, a
// service is found without the lock, so network callbacks that count into a
// service per block do not meet on a mutex. Install only while no object of
// the library runs.
#ifndef DOWNLOADER_UTILS_CONTEXT_LIBRARYCONTEXT_H_
#define DOWNLOADER_UTILS_CONTEXT_LIBRARYCONTEXT_H_

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <type_traits>
#include <utility>
#include <vector>

#include "Utils/clock/Clock.h"

namespace wisp {
namespace http {
class WispClient;
}  // namespace http
}  // namespace wisp

namespace downloader {

class LibraryContext {
 public:
  // `clock` must outlive the context. Without `httpClient` the context uses
  // the process's default client.
  explicit LibraryContext(Clock& clock, std::shared_ptr<wisp::http::WispClient> httpClient = nullptr);
  ~LibraryContext();
  LibraryContext(const LibraryContext&) = delete;
  LibraryContext& operator=(const LibraryContext&) = delete;

  static LibraryContext& Current();

  Clock& clock() const { return clock_; }
  std::shared_ptr<wisp::http::WispClient> httpClient();

  template <typename Service>
  Service& Get() {
    std::atomic<void*>& slot = made_[SlotOf<Service>()];
    if (void* made = slot.load(std::memory_order_acquire)) return *static_cast<Service*>(made);
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (void* made = slot.load(std::memory_order_acquire)) return *static_cast<Service*>(made);
    std::shared_ptr<Service> made = Make<Service>();
    Service& service = *made;
    madeInOrder_.push_back(std::move(made));
    slot.store(&service, std::memory_order_release);
    return service;
  }

  // Makes `context` current for the scope's life, then restores the previous.
  class ScopedCurrent {
   public:
    explicit ScopedCurrent(LibraryContext& context);
    ~ScopedCurrent();
    ScopedCurrent(const ScopedCurrent&) = delete;
    ScopedCurrent& operator=(const ScopedCurrent&) = delete;

   private:
    LibraryContext* const previous_;
  };

 private:
  template <typename Service>
  std::shared_ptr<Service> Make() {
    if constexpr (std::is_constructible<Service, LibraryContext&>::value) {
      return std::make_shared<Service>(*this);
    } else {
      return std::make_shared<Service>();
    }
  }

  // More kinds of service than the library has; NextSlot aborts past it.
  static constexpr size_t kMaxServices = 64;
  // Each service class gets its slot once per process, the same in every
  // context.
  template <typename Service>
  static size_t SlotOf() {
    static const size_t slot = NextSlot();
    return slot;
  }
  static size_t NextSlot();

  Clock& clock_;

  // Written once under mutex_, read without it.
  std::array<std::atomic<void*>, kMaxServices> made_{};

  std::recursive_mutex mutex_;
  // Guarded by mutex_.
  std::shared_ptr<wisp::http::WispClient> httpClient_;
  std::vector<std::shared_ptr<void>> madeInOrder_;
};

}  // namespace downloader

#endif  // DOWNLOADER_UTILS_CONTEXT_LIBRARYCONTEXT_H_
