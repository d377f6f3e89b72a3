#pragma once
// Hand-made sounds and a scratch folder for the sound tests; messages are captured in g_msgs and g_errs.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "core/BisDLL.h"
#include "io/BisFileIO_test_util.h"
#include "sound/BisSound.h"

namespace soundtest {
namespace fs = std::filesystem;

inline void put16(std::string& s, uint32_t v) {
  s.push_back(static_cast<char>(v & 0xFF)), s.push_back(static_cast<char>((v >> 8) & 0xFF));
}
inline void put32(std::string& s, uint32_t v) { put16(s, v & 0xFFFF), put16(s, v >> 16); }

struct Fmt {
  uint32_t tag = 1, channels = 1, rate = 22050, bytes_per_sec = 44100, align = 2, bits = 16, extra = 0;
  static Fmt pcm(uint32_t channels, uint32_t rate, uint32_t bits) {
    uint32_t align = channels * bits / 8;
    return {1, channels, rate, rate * align, align, bits, 0};
  }
  std::string bytes() const {
    std::string s;
    put16(s, tag), put16(s, channels), put32(s, rate), put32(s, bytes_per_sec), put16(s, align), put16(s, bits);
    return s;
  }
};

inline std::string wss(Fmt const& f, uint32_t compression, std::string const& data) {
  std::string s = "WSS0";
  put32(s, compression);
  s += f.bytes();
  put16(s, f.extra);
  return s + data;
}

// A canonical WAVE file, as the tool writes one.
inline std::string wav(Fmt const& f, std::string const& data) {
  std::string s = "RIFF";
  put32(s, static_cast<uint32_t>(data.size() + (data.size() & 1) + 36));
  s += "WAVEfmt ";
  put32(s, 16);
  s += f.bytes() + "data";
  put32(s, static_cast<uint32_t>(data.size()));
  s += data;
  if (data.size() & 1) s.push_back(0);
  return s;
}

inline std::string samples16(std::vector<int> const& v) {
  std::string s;
  for (int x : v) put16(s, static_cast<uint32_t>(static_cast<uint16_t>(static_cast<int16_t>(x))));
  return s;
}

inline std::vector<int> as_samples(uint8_t const* data, size_t bytes) {
  std::vector<int> v(bytes / 2);
  for (size_t i = 0; i < v.size(); ++i) {
    int16_t s;
    std::memcpy(&s, data + 2 * i, 2);
    v[i] = s;
  }
  return v;
}

// `frames` frames of a sine of `hz` at `amplitude`, every channel alike.
inline std::vector<int> sine(size_t frames, int channels, double hz, double rate, double amplitude) {
  std::vector<int> v;
  for (size_t i = 0; i < frames; ++i)
    for (int c = 0; c < channels; ++c)
      v.push_back(static_cast<int>(std::lround(amplitude * std::sin(2 * M_PI * hz * static_cast<double>(i) / rate))));
  return v;
}

struct SoundTest : ::testing::Test {
  fs::path dir;
  BisDLL dll;
  BisSound* tool = dll.dll_GetSonmar();
  SoundTest() {
    std::string t = (fs::temp_directory_path() / "vendrak-sound-XXXXXX").string();
    dir = ::mkdtemp(t.data());
    clear_captured();
    tool->wss_GetFileIO()->io_SetErrCallBack(capture_err);
  }
  ~SoundTest() override {
    std::error_code ec;
    fs::remove_all(dir, ec);
  }
  int open(std::string const& bytes) { return tool->wss_Open(bytes.data(), bytes.size(), capture_msg, 0, "test"); }
  int open_file(fs::path const& p) { return tool->wss_Open(p.c_str(), capture_msg, 0); }
  std::vector<int> pcm() const { return as_samples(tool->wss_GetData(), tool->wss_GetDataSize()); }
  std::string out(char const* name) const { return (dir / name).string(); }
};

// The build names the corpus beside the source tree; a checkout elsewhere names it in the environment.
inline fs::path corpus() {
  char const* env = std::getenv("VENDRAK_CORPUS");
  return fs::path(env && *env ? env : VENDRAK_CORPUS);
}
#define SKIP_WITHOUT_CORPUS() \
  if (!fs::is_directory(corpus())) GTEST_SKIP() << "no corpus at " << corpus()
}  // namespace soundtest
