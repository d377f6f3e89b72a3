#pragma once
#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

// Runs work(i) for every i below `count` on `threads` threads (0: one per core), each thread taking
// the next index as it finishes one; the calling thread is one of them. What the first failing
// call throws is thrown again once every thread has stopped.
template <class Work>
void parallel_for(size_t count, unsigned threads, Work&& work) {
  if (threads == 0) threads = std::max(1u, std::thread::hardware_concurrency());
  threads = static_cast<unsigned>(std::min<size_t>(threads, std::max<size_t>(count, 1)));
  std::atomic<size_t> next{0};
  std::atomic<bool> stop{false};
  std::exception_ptr failure;
  std::mutex failure_lock;
  auto worker = [&] {
    for (size_t i; !stop && (i = next++) < count;) {
      try {
        work(i);
      } catch (...) {
        std::lock_guard<std::mutex> hold(failure_lock);
        if (!failure) failure = std::current_exception();
        stop = true;
      }
    }
  };
  std::vector<std::thread> pool;
  for (unsigned t = 1; t < threads; ++t) pool.emplace_back(worker);
  worker();
  for (auto& t : pool) t.join();
  if (failure) std::rethrow_exception(failure);
}
