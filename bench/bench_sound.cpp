// Sound codecs. The WSS0 decoders are counted in bytes of PCM out; Ogg encoding and decoding and
// resampling in seconds of sound per second of work (the "realtime" counter).
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "core/BisDLL.h"
#include "sound/BisSound.h"
#include "sound/WssCodec.h"

namespace fs = std::filesystem;

namespace {
constexpr uint32_t kRate = 44100;
constexpr size_t kSeconds = 10;

// Ten seconds of a voice-like signal (two tones and noise), in the given channel count.
std::vector<uint8_t> pcm(int channels) {
  std::mt19937 rng(7);
  std::normal_distribution<double> noise(0, 1500);
  std::vector<uint8_t> out;
  for (size_t i = 0; i < kSeconds * kRate; ++i)
    for (int c = 0; c < channels; ++c) {
      double t = static_cast<double>(i) / kRate;
      double v = 9000 * std::sin(2 * M_PI * 220 * t) + 4000 * std::sin(2 * M_PI * (1300 + 200 * c) * t) + noise(rng);
      int16_t s = static_cast<int16_t>(std::clamp(v, -32768.0, 32767.0));
      out.push_back(static_cast<uint8_t>(s)), out.push_back(static_cast<uint8_t>(s >> 8));
    }
  return out;
}

std::string wav(int channels) {
  std::vector<uint8_t> data = pcm(channels);
  auto put = [](std::string& s, uint32_t v, int n) {
    for (int i = 0; i < n; ++i) s.push_back(static_cast<char>(v >> (8 * i)));
  };
  uint32_t align = 2 * static_cast<uint32_t>(channels);
  std::string s = "RIFF";
  put(s, static_cast<uint32_t>(data.size() + 36), 4);
  s += "WAVEfmt ";
  put(s, 16, 4), put(s, 1, 2), put(s, static_cast<uint32_t>(channels), 2), put(s, kRate, 4);
  put(s, kRate * align, 4), put(s, align, 2), put(s, 16, 2);
  s += "data";
  put(s, static_cast<uint32_t>(data.size()), 4);
  return s.append(data.begin(), data.end());
}

void BM_SoundDecode(benchmark::State& state) {
  bool nibble = state.range(0) == 4;
  int channels = static_cast<int>(state.range(1));
  std::vector<uint8_t> in = pcm(channels);
  size_t samples = in.size() / 2;
  std::vector<uint8_t> packed(nibble ? (samples + 1) / 2 : samples);
  if (nibble)
    WssCodec::wss_EncodeNibble(in.data(), samples, channels, packed.data());
  else
    WssCodec().wss_EncodeByte(in.data(), samples, channels, packed.data());
  std::vector<uint8_t> out(packed.size() * (nibble ? 4 : 2));
  for (auto _ : state) {
    if (nibble)
      WssCodec::wss_DecodeNibble(packed.data(), packed.size(), channels, out.data());
    else
      WssCodec::wss_DecodeByte(packed.data(), packed.size(), channels, out.data());
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * out.size()));
}
BENCHMARK(BM_SoundDecode)->ArgNames({"kind", "channels"})->ArgsProduct({{4, 8}, {1, 2}})->Unit(benchmark::kMicrosecond);

void BM_SoundEncode(benchmark::State& state) {
  bool nibble = state.range(0) == 4;
  std::vector<uint8_t> in = pcm(2);
  size_t samples = in.size() / 2;
  std::vector<uint8_t> packed(samples);
  WssCodec codec;
  for (auto _ : state) {
    if (nibble)
      WssCodec::wss_EncodeNibble(in.data(), samples, 2, packed.data());
    else
      codec.wss_EncodeByte(in.data(), samples, 2, packed.data());
    benchmark::DoNotOptimize(packed.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * in.size()));
}
BENCHMARK(BM_SoundEncode)->ArgName("kind")->Arg(4)->Arg(8)->Unit(benchmark::kMicrosecond);

struct Scratch {
  fs::path dir;
  Scratch() {
    std::string t = (fs::temp_directory_path() / "vendrak-bench-sound-XXXXXX").string();
    dir = ::mkdtemp(t.data());
  }
  ~Scratch() {
    std::error_code ec;
    fs::remove_all(dir, ec);
  }
};

void realtime(benchmark::State& state, double seconds) {
  state.counters["realtime"] = benchmark::Counter(seconds * static_cast<double>(state.iterations()),
                                                  benchmark::Counter::kIsRate);
}

void BM_SoundOggEncode(benchmark::State& state) {
  std::string w = wav(static_cast<int>(state.range(0)));
  Scratch scratch;
  std::string out = (scratch.dir / "out.ogg").string();
  BisDLL dll;
  BisSound* tool = dll.dll_GetSonmar();
  if (tool->wss_Open(w.data(), w.size(), nullptr, BisSound::OPEN_NO_REPORT) != 0) return state.SkipWithError("open");
  for (auto _ : state)
    if (tool->wss_Create(out.c_str(), BisSound::KIND_OGG) != 0) state.SkipWithError("encode");
  realtime(state, kSeconds);
}
BENCHMARK(BM_SoundOggEncode)->ArgName("channels")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_SoundOggDecode(benchmark::State& state) {
  std::string w = wav(2);
  Scratch scratch;
  std::string out = (scratch.dir / "in.ogg").string();
  BisDLL dll;
  BisSound* tool = dll.dll_GetSonmar();
  if (tool->wss_Open(w.data(), w.size(), nullptr, BisSound::OPEN_NO_REPORT) != 0 ||
      tool->wss_Create(out.c_str(), BisSound::KIND_OGG) != 0)
    return state.SkipWithError("encode");
  for (auto _ : state)
    if (tool->wss_Open(out.c_str(), nullptr, BisSound::OPEN_NO_REPORT) != 0) state.SkipWithError("decode");
  realtime(state, kSeconds);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * (w.size() - 44)));
}
BENCHMARK(BM_SoundOggDecode)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_SoundResample(benchmark::State& state) {
  std::string w = wav(2);
  Scratch scratch;
  std::string out = (scratch.dir / "out.wav").string();
  BisDLL dll;
  BisSound* tool = dll.dll_GetSonmar();
  for (auto _ : state) {
    state.PauseTiming();
    if (tool->wss_Open(w.data(), w.size(), nullptr, BisSound::OPEN_NO_REPORT) != 0) state.SkipWithError("open");
    state.ResumeTiming();
    if (tool->wss_Resample(out.c_str(), static_cast<unsigned>(state.range(0)), BisSound::KIND_WAV) != 0)
      state.SkipWithError("resample");
  }
  realtime(state, kSeconds);
}
BENCHMARK(BM_SoundResample)->ArgName("to")->Arg(22050)->Arg(48000)->Unit(benchmark::kMillisecond)->UseRealTime();
}  // namespace
