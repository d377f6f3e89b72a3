#pragma once
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "pbo/PboOutputFolder.h"

class CompressionEngine;

// Expands packed entries and writes them on helper threads while the extraction goes on with the
// next entries: expansion is the slow part of a packed archive, and its entries are independent.
// Each thread keeps one expansion buffer and reuses it. Helpers never send messages; the caller
// collects their outcomes and reports them.
class PboWriterPool {
 public:
  struct Job {
    uint8_t const* packed = nullptr;
    uint64_t packed_size = 0;
    uint64_t original_size = 0;
    int dir_fd = -1;  // the pool's own descriptor of the folder, closed when the job is done
    std::string leaf;
    std::string name;  // the entry's name, for messages
    time_t stamp = 0;
    bool force = false;
  };
  struct Outcome {
    std::string name;
    PboOutputFolder::Put put;
    bool bad_data = false;  // the packed bytes did not expand
  };

  // `helpers` threads; with 0 every job runs in pwp_Submit.
  explicit PboWriterPool(unsigned helpers);
  ~PboWriterPool();
  PboWriterPool(PboWriterPool const&) = delete;
  PboWriterPool& operator=(PboWriterPool const&) = delete;

  // Queues a job, or runs it at once on the calling thread when every helper is busy and the queue
  // is full (so the caller works too instead of waiting) or when `here` is set.
  void pwp_Submit(Job job, bool here = false);
  // Outcomes finished so far; with `wait` only once every submitted job is done.
  std::vector<Outcome> pwp_Take(bool wait);

  // Expands one job into `buffer` (grown as needed, never shrunk) and writes it.
  static Outcome pwp_Run(Job const& job, CompressionEngine& engine, std::vector<uint8_t>& buffer);

  // How many helpers pay on this machine.
  static unsigned pwp_DefaultHelpers();

 private:
  void _work();

  std::mutex _lock;
  std::condition_variable _wake, _done;
  std::deque<Job> _queue;
  std::vector<Outcome> _outcomes;
  size_t _pending = 0;  // queued or running on a helper
  bool _stop = false;
  std::vector<std::thread> _threads;
  std::unique_ptr<CompressionEngine> _engine;  // the caller's, for jobs it runs itself
  std::vector<uint8_t> _buffer;
};
