#include "pbo/PboWriterPool.h"

#include <unistd.h>

#include <algorithm>

#include "io/CompressionEngine.h"
#include "pbo/PboErrors.h"

PboWriterPool::PboWriterPool(unsigned helpers) : _engine(std::make_unique<CompressionEngine>()) {
  for (unsigned i = 0; i < helpers; ++i) {
    try {
      _threads.emplace_back([this] { _work(); });
    } catch (...) {  // fewer threads than asked for: the caller takes up the slack
      break;
    }
  }
}

PboWriterPool::~PboWriterPool() {
  {
    std::lock_guard<std::mutex> g(_lock);
    _stop = true;
  }
  _wake.notify_all();
  for (auto& t : _threads) t.join();
  for (auto& j : _queue) ::close(j.dir_fd);  // only when no helper could be started
}

unsigned PboWriterPool::pwp_DefaultHelpers() {
  unsigned cores = std::thread::hardware_concurrency();
  return std::clamp(cores, 2u, 4u) - 1;
}

PboWriterPool::Outcome PboWriterPool::pwp_Run(Job const& job, CompressionEngine& engine,
                                              std::vector<uint8_t>& buffer) {
  Outcome o;
  o.name = job.name;
  if (buffer.size() < job.original_size) buffer.resize(job.original_size);
  try {
    cmp_Expand(engine, job.packed, job.packed_size, buffer.data(), job.original_size, CT_LZSS);
  } catch (...) {
    o.bad_data = true;
    o.put.result = PBO_COMPRESSION_ERROR;
    return o;
  }
  o.put = PboOutputFolder::pof_Put(job.dir_fd, job.leaf.c_str(), buffer.data(), job.original_size, job.stamp,
                                   job.force);
  return o;
}

void PboWriterPool::pwp_Submit(Job job, bool here) {
  if (!here) {
    std::unique_lock<std::mutex> g(_lock);
    if (!_threads.empty() && _queue.size() < _threads.size()) {
      _queue.push_back(std::move(job));
      ++_pending;
      g.unlock();
      _wake.notify_one();
      return;
    }
  }
  Outcome o = pwp_Run(job, *_engine, _buffer);
  ::close(job.dir_fd);
  std::lock_guard<std::mutex> g(_lock);
  _outcomes.push_back(std::move(o));
}

std::vector<PboWriterPool::Outcome> PboWriterPool::pwp_Take(bool wait) {
  std::unique_lock<std::mutex> g(_lock);
  if (wait) _done.wait(g, [this] { return _pending == 0; });
  std::vector<Outcome> out;
  out.swap(_outcomes);
  return out;
}

void PboWriterPool::_work() {
  CompressionEngine engine;
  std::vector<uint8_t> buffer;
  std::unique_lock<std::mutex> g(_lock);
  for (;;) {
    _wake.wait(g, [this] { return _stop || !_queue.empty(); });
    if (_queue.empty()) return;  // stopping, nothing left
    Job job = std::move(_queue.front());
    _queue.pop_front();
    g.unlock();
    Outcome o = pwp_Run(job, engine, buffer);
    ::close(job.dir_fd);
    g.lock();
    _outcomes.push_back(std::move(o));
    if (--_pending == 0) _done.notify_all();
  }
}
