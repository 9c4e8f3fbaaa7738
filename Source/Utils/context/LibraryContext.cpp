#include "Utils/context/LibraryContext.h"

#include <atomic>
#include <cstdlib>

#include <wisp/http/WispClient.h>

namespace downloader {
namespace {

std::atomic<LibraryContext*> g_installed{nullptr};

}  // namespace

LibraryContext::LibraryContext(Clock& clock, std::shared_ptr<wisp::http::WispClient> httpClient)
    : clock_(clock), httpClient_(std::move(httpClient)) {}

LibraryContext::~LibraryContext() {
  for (std::atomic<void*>& slot : made_) slot.store(nullptr, std::memory_order_relaxed);
  while (!madeInOrder_.empty()) madeInOrder_.pop_back();
}

size_t LibraryContext::NextSlot() {
  static std::atomic<size_t> next{0};
  const size_t slot = next.fetch_add(1, std::memory_order_relaxed);
  // A new service class past the bound is a build-time mistake: fail on its first use.
  if (slot >= kMaxServices) std::abort();
  return slot;
}

LibraryContext& LibraryContext::Current() {
  LibraryContext* installed = g_installed.load(std::memory_order_acquire);
  if (installed != nullptr) return *installed;
  static LibraryContext* const process = new LibraryContext(Clock::Real());
  return *process;
}

std::shared_ptr<wisp::http::WispClient> LibraryContext::httpClient() {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (httpClient_ == nullptr) httpClient_ = wisp::http::WispClient::Default();
  return httpClient_;
}

LibraryContext::ScopedCurrent::ScopedCurrent(LibraryContext& context)
    : previous_(g_installed.exchange(&context, std::memory_order_acq_rel)) {}

LibraryContext::ScopedCurrent::~ScopedCurrent() { g_installed.store(previous_, std::memory_order_release); }

}  // namespace downloader
