// Extraction speed against a plain copy of the same bytes. Two archives are generated once: 64 MiB
// of stored entries and 16 MiB of packed ones (256 KiB each, in eight folders). The plain copies
// read the archive and write its bytes out with stdio: once into the same files an extraction
// makes (the least any extraction has to do), and once into a single file.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "core/BisDLL.h"
#include "io/BisFileIO.h"
#include "io/CompressionEngine.h"
#include "pbo/Vendrak.h"

namespace fs = std::filesystem;

namespace {
constexpr size_t kEntrySize = 256 * 1024;

void put32(std::string& s, uint32_t v) {
  for (int i = 0; i < 4; ++i) s.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
}

// Text-like bytes: words from a small vocabulary, so that packing has something to find.
std::string sample_bytes(size_t n, unsigned seed) {
  static char const* const words[] = {"class ", "model", " = ", "\"\\a3\\data\\", ".p3d\";\r\n", "scope", "{", "};\r\n",
                                      "displayName", "0.25", "armor", "\t"};
  std::mt19937 rng(seed);
  std::string s;
  s.reserve(n + 32);
  while (s.size() < n) s += words[rng() % 12];
  s.resize(n);
  return s;
}

std::string make_archive(size_t entries, bool packed) {
  CompressionEngine engine;
  std::string header, data;
  for (size_t i = 0; i < entries; ++i) {
    std::string body = sample_bytes(kEntrySize, static_cast<unsigned>(i));
    std::string stored = body;
    if (packed) {
      int64_t n = cmp_Compress(engine, body.data(), body.size(), CT_LZSS);
      stored.assign(reinterpret_cast<char const*>(engine.cmp_GetOutput()), static_cast<size_t>(n));
    }
    header += "data\\folder" + std::to_string(i % 8) + "\\file" + std::to_string(i) + ".bin";
    header.push_back(0);
    put32(header, packed ? 0x43707273 : 0);
    put32(header, packed ? static_cast<uint32_t>(body.size()) : 0);
    put32(header, 0);
    put32(header, 1600000000);
    put32(header, static_cast<uint32_t>(stored.size()));
    data += stored;
  }
  header.push_back(0);
  for (int i = 0; i < 5; ++i) put32(header, 0);
  return header + data;
}

struct Scratch {
  fs::path root;
  std::string stored, packed;
  uint64_t stored_bytes = 0, packed_bytes = 0;
  Scratch() {
    // Memory-backed when the system has it, so that the figures measure the extraction rather than
    // the disk's inode allocator (VENDRAK_BENCH_DIR chooses another place).
    fs::path base = std::getenv("VENDRAK_BENCH_DIR") ? fs::path(std::getenv("VENDRAK_BENCH_DIR"))
                    : fs::is_directory("/dev/shm")  ? fs::path("/dev/shm")
                                                    : fs::temp_directory_path();
    std::string t = (base / "vendrak-bench-XXXXXX").string();
    root = ::mkdtemp(t.data());
    stored = (root / "stored.pbo").string();
    packed = (root / "packed.pbo").string();
    std::string a = make_archive(256, false), b = make_archive(64, true);
    std::ofstream(stored, std::ios::binary).write(a.data(), static_cast<std::streamsize>(a.size()));
    std::ofstream(packed, std::ios::binary).write(b.data(), static_cast<std::streamsize>(b.size()));
    stored_bytes = 256 * kEntrySize;
    packed_bytes = 64 * kEntrySize;
  }
  ~Scratch() {
    std::error_code ec;
    fs::remove_all(root, ec);
  }
};

Scratch& scratch() {
  static Scratch s;
  return s;
}

bool silent(char const*, ...) { return true; }

void extract(benchmark::State& state, std::string const& archive, uint64_t bytes) {
  fs::path out = scratch().root / "out";
  BisDLL dll;
  Vendrak* tool = dll.dll_GetVendrak();
  tool->pbo_GetIO()->io_SetErrCallBack(silent);
  for (auto _ : state) {
    int r = tool->pbo_Extract(archive.c_str(), silent, Vendrak::EXTRACT_QUIET, nullptr, out.c_str());
    if (r) state.SkipWithError("extraction failed");
    state.PauseTiming();
    fs::remove_all(out);
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

void BM_ExtractStored(benchmark::State& state) { extract(state, scratch().stored, scratch().stored_bytes); }
void BM_ExtractPacked(benchmark::State& state) { extract(state, scratch().packed, scratch().packed_bytes); }

std::vector<char> slurp(std::string const& from) {
  std::vector<char> buffer(fs::file_size(from));
  FILE* in = std::fopen(from.c_str(), "rb");
  size_t got = std::fread(buffer.data(), 1, buffer.size(), in);
  std::fclose(in);
  buffer.resize(got);
  return buffer;
}

void BM_PlainCopyToEntryFiles(benchmark::State& state) {
  fs::path out = scratch().root / "plain";
  for (auto _ : state) {
    std::vector<char> archive = slurp(scratch().stored);
    size_t data = archive.size() - 256 * kEntrySize;
    for (int folder = 0; folder < 8; ++folder)
      fs::create_directories(out / "data" / ("folder" + std::to_string(folder)));
    for (size_t i = 0; i < 256; ++i) {
      fs::path file = out / "data" / ("folder" + std::to_string(i % 8)) / ("file" + std::to_string(i) + ".bin");
      FILE* f = std::fopen(file.c_str(), "wb");
      std::fwrite(archive.data() + data + i * kEntrySize, 1, kEntrySize, f);
      std::fclose(f);
    }
    state.PauseTiming();
    fs::remove_all(out);
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * scratch().stored_bytes));
}

void BM_PlainCopyToOneFile(benchmark::State& state) {
  fs::path to = scratch().root / "copy.bin";
  for (auto _ : state) {
    std::vector<char> archive = slurp(scratch().stored);
    FILE* out = std::fopen(to.c_str(), "wb");
    std::fwrite(archive.data(), 1, archive.size(), out);
    std::fclose(out);
    state.PauseTiming();
    fs::remove(to);
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * scratch().stored_bytes));
}
}  // namespace

BENCHMARK(BM_PlainCopyToOneFile)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PlainCopyToEntryFiles)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ExtractStored)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ExtractPacked)->Unit(benchmark::kMillisecond)->UseRealTime();
