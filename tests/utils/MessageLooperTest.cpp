#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include "Utils/looper/MessageLooper.h"
#include "support/WaitFor.h"

namespace downloader {
namespace {

using std::chrono::milliseconds;

// Records task order; thread-safe.
class Journal {
 public:
  void Add(int value) {
    std::lock_guard<std::mutex> lock(mutex_);
    values_.push_back(value);
  }
  std::vector<int> Values() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return values_;
  }
  size_t Size() const { return Values().size(); }

 private:
  mutable std::mutex mutex_;
  std::vector<int> values_;
};

// Holds the looper thread until released, so that tests can queue work behind it.
class Gate {
 public:
  void Wait() {
    std::unique_lock<std::mutex> lock(mutex_);
    opened_.wait(lock, [this] { return open_; });
  }
  void Open() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      open_ = true;
    }
    opened_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable opened_;
  bool open_ = false;
};

// Opens the gate only once the looper refuses new tasks, that is once Stop has
// taken the pending ones away: the task held at the gate is then the last one
// to run, whatever the scheduling.
void OpenOnceStopped(MessageLooper& looper, Gate& gate) {
  while (looper.Post([] {})) std::this_thread::yield();
  gate.Open();
}

// Also: a delayed task waits for its time, and a task may post further tasks.
TEST(MessageLooperTest, ImmediateTasksRunInPostOrderBeforeLaterDelayedOnes) {
  MessageLooper looper("order");
  ASSERT_TRUE(looper.Start());
  Journal journal;
  Gate gate;
  const auto posted = std::chrono::steady_clock::now();
  std::atomic<int64_t> lastWaitedMs{0};
  looper.Post([&] { gate.Wait(); });
  // Posted first but due last: Stop drops it. The delays below are posted
  // after the immediate tasks, so a stall of this thread cannot reorder them.
  looper.PostDelayed([&] { journal.Add(999); }, std::chrono::hours(1));
  for (int i = 0; i < 20; ++i) looper.Post([&journal, i] { journal.Add(i); });
  looper.PostDelayed([&] { journal.Add(50); }, milliseconds(10));
  looper.PostDelayed(
      [&] {
        lastWaitedMs = std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - posted).count();
        journal.Add(100);
        looper.Post([&] { journal.Add(101); });
      },
      milliseconds(30));
  gate.Open();
  ASSERT_TRUE(dltest::WaitFor([&] { return journal.Size() == 23; }));
  std::vector<int> expected;
  for (int i = 0; i < 20; ++i) expected.push_back(i);
  expected.insert(expected.end(), {50, 100, 101});
  EXPECT_EQ(journal.Values(), expected);
  EXPECT_GE(lastWaitedMs.load(), 30);
  looper.Stop();
}

TEST(MessageLooperTest, StopJoinsDropsPendingAndRefusesNewTasks) {
  auto looper = std::make_unique<MessageLooper>("stop");
  looper->Start();
  Journal journal;
  Gate gate;
  std::atomic<bool> blockerRunning{false};
  looper->Post([&] {
    blockerRunning = true;
    gate.Wait();
    journal.Add(1);
  });
  looper->Post([&] { journal.Add(2); });
  looper->PostDelayed([&] { journal.Add(3); }, milliseconds(1));
  ASSERT_TRUE(dltest::WaitFor([&] { return blockerRunning.load(); }));
  std::thread opener([&] { OpenOnceStopped(*looper, gate); });
  looper->Stop();  // returns only after the running task has finished
  opener.join();
  EXPECT_EQ(journal.Values(), (std::vector<int>{1}));
  EXPECT_FALSE(looper->Post([&] { journal.Add(4); }));
  EXPECT_FALSE(looper->Start());
  looper->Stop();  // a second stop is harmless
  looper.reset();
  EXPECT_EQ(journal.Values(), (std::vector<int>{1}));
}

TEST(MessageLooperTest, DroppedTaskMayPostWhileBeingDestroyed) {
  MessageLooper looper("drop");
  looper.Start();
  Gate gate;
  std::atomic<bool> blockerRunning{false};
  looper.Post([&] {
    blockerRunning = true;
    gate.Wait();
  });
  // A capture whose destructor posts, as an object owning a timer would.
  struct PostsOnDestroy {
    MessageLooper* looper;
    ~PostsOnDestroy() { looper->Post([] {}); }
  };
  auto capture = std::make_shared<PostsOnDestroy>(PostsOnDestroy{&looper});
  looper.Post([capture] {});
  capture.reset();
  ASSERT_TRUE(dltest::WaitFor([&] { return blockerRunning.load(); }));
  std::thread opener([&] { OpenOnceStopped(looper, gate); });
  looper.Stop();
  opener.join();
}

TEST(MessageLooperTest, LooperDestroyedByItsOwnTask) {
  auto looper = std::make_shared<MessageLooper>("self");
  looper->Start();
  std::atomic<bool> done{false};
  std::weak_ptr<MessageLooper> weak = looper;
  looper->Post([owned = looper, &done]() mutable {
    EXPECT_TRUE(owned->IsLooperThread());
    owned.reset();
    done = true;
  });
  looper.reset();
  ASSERT_TRUE(dltest::WaitFor([&] { return done.load() && weak.expired(); }));
}

TEST(MessageLooperTest, ManyPostersKeepEachPostersOrder) {
  MessageLooper looper("posters");
  looper.Start();
  constexpr int kPosters = 4;
  constexpr int kTasksEach = 500;
  std::vector<std::vector<int>> seen(kPosters);
  std::atomic<int> ran{0};
  std::vector<std::thread> posters;
  for (int p = 0; p < kPosters; ++p) {
    posters.emplace_back([&, p] {
      for (int i = 0; i < kTasksEach; ++i) {
        looper.Post([&, p, i] {
          seen[p].push_back(i);  // only the looper thread touches seen
          ++ran;
        });
      }
    });
  }
  for (auto& t : posters) t.join();
  ASSERT_TRUE(dltest::WaitFor([&] { return ran.load() == kPosters * kTasksEach; }));
  looper.Stop();
  for (int p = 0; p < kPosters; ++p) {
    ASSERT_EQ(seen[p].size(), static_cast<size_t>(kTasksEach));
    for (int i = 0; i < kTasksEach; ++i) ASSERT_EQ(seen[p][i], i);
  }
}

}  // namespace
}  // namespace downloader
