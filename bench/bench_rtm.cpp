// Animations: opening editable and binarised files (bytes of file per second), every bone's
// transform of every frame (the parent products), and binarising with a skeleton.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "anim/KinterNew.h"
#include "core/BisDLL.h"

namespace {
constexpr unsigned kBones = 80, kFrames = 400;

std::string tmp(char const* name) { return "/tmp/bench_rtm_" + std::to_string(getpid()) + "_" + name; }

// An editable walk of a chain of 80 bones over 400 frames, and the skeleton that chains them.
struct Fixture {
  std::vector<uint8_t> text, binarised;
  std::string cfg = tmp("skeleton.cfg");
  Fixture() {
    auto put = [&](void const* p, size_t n) { text.insert(text.end(), static_cast<uint8_t const*>(p), static_cast<uint8_t const*>(p) + n); };
    auto name = [](unsigned b) {
      char n[32] = {};
      std::snprintf(n, sizeof n, "bone%u", b);
      return std::string(n, 32);
    };
    put("RTM_0101", 8);
    float zero[3] = {0, 0, 0};
    put(zero, 12);
    put(&kFrames, 4);
    put(&kBones, 4);
    for (unsigned b = 0; b < kBones; ++b) put(name(b).data(), 32);
    for (unsigned f = 0; f < kFrames; ++f) {
      float t = float(f) / kFrames;
      put(&t, 4);
      for (unsigned b = 0; b < kBones; ++b) {
        float a = 0.01f * float(f + b), c = std::cos(a), s = std::sin(a);
        float m[12] = {c, 0, -s, 0, 1, 0, s, 0, c, 0.01f * float(b), 0.1f * float(b), 0.002f * float(f)};
        put(name(b).data(), 32);
        put(m, 48);
      }
    }
    std::ofstream c(cfg);
    c << "class CfgSkeletons { class Chain { skeletonBones[] = {\"bone0\",\"\"";
    for (unsigned b = 1; b < kBones; ++b) c << ",\"bone" << b << "\",\"bone" << b - 1 << "\"";
    c << "}; }; };\n";
    c.close();
    BisDLL dll;
    KinterNew* k = dll.dll_GetKinter();
    std::string bin = tmp("walk.bin");
    if (k->rtm_Open(text.data(), unsigned(text.size()), nullptr, cfg.c_str()) == 0 &&
        k->rtm_Create(bin.c_str(), KinterNew::KIND_A3_LZO) == 0) {
      std::ifstream in(bin, std::ios::binary);
      binarised.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    std::remove(bin.c_str());
  }
};

Fixture& fixture() {
  static Fixture f;
  return f;
}

void open_all(benchmark::State& state, std::vector<uint8_t> const& bytes, bool transforms) {
  BisDLL dll;
  KinterNew* k = dll.dll_GetKinter();
  char const* cfg = fixture().cfg.c_str();
  for (auto _ : state) {
    if (k->rtm_Open(bytes.data(), unsigned(bytes.size()), nullptr, transforms ? cfg : nullptr) != 0) {
      state.SkipWithError("open failed");
      return;
    }
    if (transforms)
      for (unsigned f = 0; f < kFrames; ++f)
        for (unsigned b = 0; b < kBones; ++b) benchmark::DoNotOptimize(k->rtm_GetTransform(f, b));
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(bytes.size()));
}

void BM_RtmOpenEditable(benchmark::State& state) { open_all(state, fixture().text, false); }
void BM_RtmOpenBinarised(benchmark::State& state) { open_all(state, fixture().binarised, false); }
void BM_RtmBinarisedPoses(benchmark::State& state) { open_all(state, fixture().binarised, true); }

void BM_RtmBinarise(benchmark::State& state) {
  BisDLL dll;
  KinterNew* k = dll.dll_GetKinter();
  std::vector<uint8_t> const& text = fixture().text;
  std::string out = tmp("out.bin");
  if (k->rtm_Open(text.data(), unsigned(text.size()), nullptr, fixture().cfg.c_str()) != 0) {
    state.SkipWithError("open failed");
    return;
  }
  for (auto _ : state)
    if (k->rtm_Create(out.c_str(), KinterNew::KIND_A3_LZO) != 0) state.SkipWithError("write failed");
  std::remove(out.c_str());
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(text.size()));
}

BENCHMARK(BM_RtmOpenEditable)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RtmOpenBinarised)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RtmBinarisedPoses)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RtmBinarise)->Unit(benchmark::kMillisecond);
}  // namespace
