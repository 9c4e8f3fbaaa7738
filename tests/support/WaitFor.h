// Waiting on a condition with a deadline, instead of sleeping and hoping.
#ifndef TESTS_SUPPORT_WAITFOR_H_
#define TESTS_SUPPORT_WAITFOR_H_

#include <chrono>
#include <thread>

namespace dltest {

// Polls `condition` until it holds or `timeout` passes; returns its last value.
template <typename Condition>
bool WaitFor(Condition condition, std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
  auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return condition();
    std::this_thread::yield();
  }
  return true;
}

}  // namespace dltest

#endif  // TESTS_SUPPORT_WAITFOR_H_
