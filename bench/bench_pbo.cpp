// Extraction as users run it (open, SHA-1 check, extract into a fresh folder) against a plain copy
// of the same bytes into the same files, timed in turn within one run so that the load of the
// machine falls on both alike; the counters give the median ratio and the private memory.
//
// Archives are made on the fly in VENDRAK_BENCH_DIR (default /dev/shm, so that the figures measure
// the tool rather than a disk), sealed with a SHA-1 trailer:
//   200 MB of stored files of mixed sizes, random and text bytes (VENDRAK_BENCH_TREE=folder packs
//          the files of that folder instead, e.g. a mod's sources);
//   2 GB   of the same kind, skipped when VENDRAK_BENCH_SKIP_LARGE is set (small disks);
//   64 MB  of LZSS-packed text files.
// VENDRAK_BENCH_KEEP=1 leaves the archives in place (their paths are printed) for timing the tool
// itself against `cp -r`.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "core/BisDLL.h"
#include "io/BisFileIO.h"
#include "io/CompressionEngine.h"
#include "pbo/Vendrak.h"

namespace fs = std::filesystem;

namespace {
void put32(std::string& s, uint32_t v) {
  for (int i = 0; i < 4; ++i) s.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
}

// Text-like bytes: words from a small vocabulary, so that packing has something to find.
std::string text_bytes(size_t n, std::mt19937& rng) {
  static char const* const words[] = {"class ", "model", " = ", "\"\\a3\\data\\", ".p3d\";\r\n", "scope", "{", "};\r\n",
                                      "displayName", "0.25", "armor", "\t"};
  std::string s;
  s.reserve(n + 32);
  while (s.size() < n) s += words[rng() % 12];
  s.resize(n);
  return s;
}

std::string random_bytes(size_t n, std::mt19937& rng) {
  std::string s(n, '\0');
  for (size_t i = 0; i + 4 <= n; i += 4) {
    uint32_t v = rng();
    std::memcpy(&s[i], &v, 4);
  }
  return s;
}

// One entry of an archive made here: its name, where its (expanded) bytes come from in `source`,
// and where its stored bytes sit in the archive.
struct Entry {
  std::string name;
  uint64_t size = 0;
  uint64_t archive_offset = 0;
};

struct Archive {
  std::string path;
  std::string source;  // the expanded bytes of every entry, back to back (packed archives only)
  std::vector<Entry> entries;
  uint64_t bytes = 0;  // expanded bytes of all entries
};

// Writes an archive entry by entry (never whole in memory), hashing as it goes, and seals it.
class ArchiveWriter {
 public:
  ArchiveWriter(std::string path, std::vector<Entry> entries, bool packed)
      : _path(std::move(path)), _entries(std::move(entries)), _packed(packed) {}

  // `body(i)` gives entry i's bytes; packed entries are coded here.
  template <class Body>
  Archive write(Body&& body, std::string const& source_path) {
    std::vector<std::string> stored(_packed ? _entries.size() : 0);
    std::vector<uint32_t> stored_size(_entries.size());
    CompressionEngine engine;
    std::ofstream source;
    if (_packed) source.open(source_path, std::ios::binary);
    for (size_t i = 0; i < _entries.size(); ++i) {
      if (!_packed) {
        stored_size[i] = static_cast<uint32_t>(_entries[i].size);
        continue;
      }
      std::string b = body(i);
      source.write(b.data(), static_cast<std::streamsize>(b.size()));
      int64_t n = cmp_Compress(engine, b.data(), b.size(), CT_LZSS);
      stored[i].assign(reinterpret_cast<char const*>(engine.cmp_GetOutput()), static_cast<size_t>(n));
      stored_size[i] = static_cast<uint32_t>(n);
    }
    std::string header;
    header.push_back(0);
    put32(header, 0x56657273);
    for (int k = 0; k < 4; ++k) put32(header, 0);
    header += std::string("prefix") + '\0' + "bench\\data" + '\0' + '\0';
    for (size_t i = 0; i < _entries.size(); ++i) {
      header += _entries[i].name;
      header.push_back(0);
      put32(header, _packed ? 0x43707273 : 0);
      put32(header, _packed ? static_cast<uint32_t>(_entries[i].size) : 0);
      put32(header, 0);
      put32(header, 1600000000);
      put32(header, stored_size[i]);
    }
    header.push_back(0);
    for (int k = 0; k < 5; ++k) put32(header, 0);

    std::ofstream out(_path, std::ios::binary);
    auto emit = [&](std::string const& b) { out.write(b.data(), static_cast<std::streamsize>(b.size())); };
    emit(header);
    Archive a;
    a.path = _path;
    a.source = _packed ? source_path : _path;
    uint64_t at = header.size(), expanded = 0;
    for (size_t i = 0; i < _entries.size(); ++i) {
      Entry e = _entries[i];
      e.archive_offset = _packed ? expanded : at;
      if (_packed) {
        emit(stored[i]);
      } else {
        emit(body(i));
      }
      at += stored_size[i];
      expanded += e.size;
      a.bytes += e.size;
      a.entries.push_back(std::move(e));
    }
    out.write(std::string(21, '\0').data(), 21);
    out.close();
    seal();
    return a;
  }

  // The trailer was written as zeros: the tool's own check computes the digest that goes there.
  void seal() {
    BisDLL dll;
    Vendrak* tool = dll.dll_GetVendrak();
    tool->pbo_GetIO()->io_SetErrCallBack(quiet);
    if (tool->pbo_Open(_path.c_str(), quiet, Vendrak::OPEN_NO_REPORT) != PBO_CORRUPTED_SHA) std::abort();
    std::string digest(reinterpret_cast<char const*>(tool->pbo_GetComputedSha()), 20);
    tool->ClosePbo();
    std::fstream f(_path, std::ios::binary | std::ios::in | std::ios::out);
    f.seekp(-20, std::ios::end);
    f.write(digest.data(), 20);
  }
  static bool quiet(char const*, ...) { return true; }

 private:
  std::string _path;
  std::vector<Entry> _entries;
  bool _packed;
};

// Files of mixed sizes (1 KiB to 1 MiB, most of them small, as in a mod) in nested folders, half
// random and half text, until `total` bytes.
Archive make_mixed(std::string const& path, uint64_t total, unsigned seed) {
  std::mt19937 rng(seed);
  std::vector<Entry> entries;
  uint64_t sum = 0;
  while (sum < total) {
    double e = std::uniform_real_distribution<double>(10.0, 20.0)(rng);
    uint64_t size = std::min<uint64_t>(static_cast<uint64_t>(std::exp2(e)), total - sum);
    size_t i = entries.size();
    entries.push_back({"addons\\part" + std::to_string(i % 7) + "\\sub" + std::to_string(i % 23) + "\\file" +
                           std::to_string(i) + (i % 2 ? ".paa" : ".sqf"),
                       size, 0});
    sum += size;
  }
  return ArchiveWriter(path, entries, false).write(
      [&](size_t i) {
        std::mt19937 r(seed + static_cast<unsigned>(i));
        return i % 2 ? random_bytes(entries[i].size, r) : text_bytes(entries[i].size, r);
      },
      "");
}

// The regular files below `folder`, as one archive.
Archive make_from_tree(std::string const& path, fs::path const& folder) {
  std::vector<Entry> entries;
  std::vector<fs::path> files;
  for (auto& f : fs::recursive_directory_iterator(folder, fs::directory_options::skip_permission_denied)) {
    if (!f.is_regular_file() || f.is_symlink() || f.file_size() >= (1ull << 32)) continue;
    std::string rel = f.path().lexically_relative(folder).string();
    std::replace(rel.begin(), rel.end(), '/', '\\');
    entries.push_back({rel, f.file_size(), 0});
    files.push_back(f.path());
  }
  return ArchiveWriter(path, entries, false).write(
      [&](size_t i) {
        std::ifstream in(files[i], std::ios::binary);
        std::string b(entries[i].size, '\0');
        in.read(b.data(), static_cast<std::streamsize>(b.size()));
        return b;
      },
      "");
}

Archive make_packed(std::string const& path, std::string const& source, uint64_t total) {
  std::vector<Entry> entries;
  for (uint64_t i = 0; i * (256u << 10) < total; ++i)
    entries.push_back(
        {"data\\folder" + std::to_string(i % 8) + "\\file" + std::to_string(i) + ".sqf", 256u << 10, 0});
  return ArchiveWriter(path, entries, true).write(
      [&](size_t i) {
        std::mt19937 r(static_cast<unsigned>(i));
        return text_bytes(entries[i].size, r);
      },
      source);
}

struct Scratch {
  fs::path root;
  Archive mid, large, packed;
  bool keep = std::getenv("VENDRAK_BENCH_KEEP") != nullptr;
  Scratch() {
    char const* dir = std::getenv("VENDRAK_BENCH_DIR");
    fs::path base = dir                              ? fs::path(dir)
                    : fs::is_directory("/dev/shm") ? fs::path("/dev/shm")
                                                   : fs::temp_directory_path();
    std::string t = (base / "vendrak-bench-XXXXXX").string();
    root = ::mkdtemp(t.data());
    char const* tree = std::getenv("VENDRAK_BENCH_TREE");
    mid = tree ? make_from_tree((root / "mid.pbo").string(), tree)
               : make_mixed((root / "mid.pbo").string(), 200ull << 20, 1);
    packed = make_packed((root / "packed.pbo").string(), (root / "packed.bytes").string(), 64ull << 20);
    if (keep) std::fprintf(stderr, "archives kept in %s\n", root.c_str());
  }
  Archive const& get_large() {
    if (large.path.empty()) large = make_mixed((root / "large.pbo").string(), 2048ull << 20, 2);
    return large;
  }
  ~Scratch() {
    std::error_code ec;
    if (!keep) fs::remove_all(root, ec);
  }
};

Scratch& scratch() {
  static Scratch s;
  return s;
}

bool silent(char const*, ...) { return true; }

// The bytes of the process's private (anonymous) memory, from the kernel's own account.
uint64_t anon_rss() {
  std::ifstream in("/proc/self/status");
  std::string line;
  while (std::getline(in, line))
    if (line.rfind("RssAnon:", 0) == 0) return std::strtoull(line.c_str() + 8, nullptr, 10) << 10;
  return 0;
}

// Samples the private memory while a piece of work runs and keeps the highest figure.
class PeakSampler {
 public:
  PeakSampler() : _peak(anon_rss()), _thread([this] {
      while (!_stop.load()) {
        _peak = std::max(_peak.load(), anon_rss());
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
      }
    }) {}
  uint64_t stop() {
    _stop = true;
    _thread.join();
    return std::max(_peak.load(), anon_rss());
  }

 private:
  std::atomic<bool> _stop{false};
  std::atomic<uint64_t> _peak;
  std::thread _thread;
};

// What `cp -r` does for each file: make its folder, create it, and have the kernel copy the bytes.
void plain_copy(Archive const& a, fs::path const& to) {
  int src = ::open(a.source.c_str(), O_RDONLY | O_CLOEXEC);
  std::string made;
  for (Entry const& e : a.entries) {
    std::string rel = e.name;
    std::replace(rel.begin(), rel.end(), '\\', '/');
    fs::path file = to / rel;
    std::string folder = file.parent_path().string();
    if (folder != made) fs::create_directories(folder), made = folder;
    int dst = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    loff_t at = static_cast<loff_t>(e.archive_offset);
    for (uint64_t left = e.size; left;) {
      ssize_t n = ::copy_file_range(src, &at, dst, nullptr, left, 0);
      if (n <= 0) break;
      left -= static_cast<uint64_t>(n);
    }
    ::close(dst);
  }
  ::close(src);
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v[v.size() / 2];
}

void extract_vs_copy(benchmark::State& state, Archive const& a) {
  fs::path out = scratch().root / "out", copy = scratch().root / "copy";
  fs::remove_all(out);
  fs::remove_all(copy);
  BisDLL dll;
  Vendrak* tool = dll.dll_GetVendrak();
  tool->pbo_GetIO()->io_SetErrCallBack(silent);
  std::vector<double> tool_s, copy_s;
  uint64_t base = anon_rss(), peak = 0;
  using clock = std::chrono::steady_clock;
  for (auto _ : state) {
    PeakSampler sampler;
    auto t0 = clock::now();
    int r = tool->pbo_Extract(a.path.c_str(), silent, Vendrak::EXTRACT_QUIET, nullptr, out.c_str());
    auto t1 = clock::now();
    peak = std::max(peak, sampler.stop());
    if (r) state.SkipWithError("extraction failed");
    state.PauseTiming();
    auto c0 = clock::now();
    plain_copy(a, copy / "bench" / "data");
    auto c1 = clock::now();
    fs::remove_all(out);
    fs::remove_all(copy);
    state.ResumeTiming();
    tool_s.push_back(std::chrono::duration<double>(t1 - t0).count());
    copy_s.push_back(std::chrono::duration<double>(c1 - c0).count());
  }
  std::vector<double> ratio;
  for (size_t i = 0; i < tool_s.size(); ++i) ratio.push_back(tool_s[i] / copy_s[i]);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * a.bytes));
  state.counters["copy_ms"] = median(copy_s) * 1000;
  state.counters["ratio_to_copy"] = median(ratio);
  state.counters["anon_growth_MB"] = static_cast<double>(peak > base ? peak - base : 0) / (1 << 20);
}

void BM_Extract200MB(benchmark::State& state) { extract_vs_copy(state, scratch().mid); }
void BM_ExtractPacked64MB(benchmark::State& state) { extract_vs_copy(state, scratch().packed); }
void BM_Extract2GB(benchmark::State& state) {
  if (std::getenv("VENDRAK_BENCH_SKIP_LARGE")) {
    state.SkipWithError("skipped: VENDRAK_BENCH_SKIP_LARGE is set");
    for (auto _ : state) {
    }
    return;
  }
  extract_vs_copy(state, scratch().get_large());
}

// A listing opens the archive and checks its digest; nothing of it is copied into memory.
void BM_List200MB(benchmark::State& state) {
  std::string const& archive = scratch().mid.path;  // made before anything is measured
  BisDLL dll;
  Vendrak* tool = dll.dll_GetVendrak();
  uint64_t base = anon_rss(), peak = 0;
  for (auto _ : state) {
    PeakSampler sampler;
    int flags = Vendrak::EXTRACT_LIST_ONLY | Vendrak::EXTRACT_QUIET;
    int r = tool->pbo_Extract(archive.c_str(), silent, flags, nullptr, nullptr);
    peak = std::max(peak, sampler.stop());
    if (r) state.SkipWithError("listing failed");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * fs::file_size(archive)));
  state.counters["anon_growth_MB"] = static_cast<double>(peak > base ? peak - base : 0) / (1 << 20);
}
}  // namespace

BENCHMARK(BM_Extract200MB)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(9);
BENCHMARK(BM_ExtractPacked64MB)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(9);
BENCHMARK(BM_List200MB)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(9);
BENCHMARK(BM_Extract2GB)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
