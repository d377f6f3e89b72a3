// Writing sounds: WSS0 in its three forms, WAVE and Ogg Vorbis; resampling and lip-sync text.
#include <samplerate.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

#include "core/GuardedCall.h"
#include "sound/BisSound.h"
#include "sound/WssOgg.h"
#include "sound/WssPcm.h"
#include "text/FileStringA.h"
#include "text/GenString.h"

namespace {
constexpr uint64_t kMaxData = 0xFFFFFFFFull - 64;

// Closes the output however the writer leaves.
struct OutputCloser {
  BisFileIO& io;
  ~OutputCloser() { io.io_CloseOutput(); }
};

// The name an Ogg file carries in its comment: the file's own name, without its folders.
char const* base_name(char const* file) {
  char const* slash = std::strrchr(file, '\\');
  if (!slash) slash = std::strrchr(file, '/');
  return slash ? slash + 1 : file;
}
}  // namespace

// ===== exported entry points ================================================

int BisSound::wss_Create(char const* file, int kind) {
  return bis_guarded_call<SonmarErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION,
                                        [&] { return _create_worker(file, kind); });
}

int BisSound::wss_Create(wchar_t const* file, int kind) {
  std::string name = file ? FileStringA::fs_convert_to_utf8(file) : std::string();
  return wss_Create(file ? name.c_str() : nullptr, kind);
}

int BisSound::wss_Resample(char const* file, unsigned int rate, unsigned int kind) {
  return bis_guarded_call<SonmarErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    _require_sound();
    _resample(rate);
    return _create_worker(file, static_cast<int>(kind));
  });
}

int BisSound::wss_Resample(wchar_t const* file, unsigned int rate, unsigned int kind) {
  std::string name = file ? FileStringA::fs_convert_to_utf8(file) : std::string();
  return wss_Resample(file ? name.c_str() : nullptr, rate, kind);
}

WssCodec const& BisSound::wss_GetCodec() {
  if (!_codec) _codec = std::make_unique<WssCodec>();
  return *_codec;
}

void BisSound::_require_sound() const {
  if (_type == SOUND_NONE) throw "no sound is open";
}

// ===== files ================================================================

int BisSound::_create_worker(char const* file, int kind) {
  _require_sound();
  if (!file || !*file) throw "no filename";
  if ((kind == KIND_WSS_NIBBLE || kind == KIND_WSS_BYTE) && _fmt.bits_per_sample != 16) throw SONMAR_NOT_16BIT;
  // Asked before the file exists, so that a refusal leaves nothing behind.
  if (kind == KIND_OGG && !wss_ogg_accepts(_fmt.channels, static_cast<long>(_fmt.samples_per_sec)))
    throw SONMAR_INVALID_OGG;
  if (!_io.io_CreateFile(file)) throw GE_INVALID_FILE;
  OutputCloser closer{_io};
  switch (kind) {
    case KIND_WSS: _write_wss(COMPRESSION_NONE); break;
    case KIND_WSS_NIBBLE: _write_wss(COMPRESSION_NIBBLE); break;
    case KIND_WSS_BYTE: _write_wss(COMPRESSION_BYTE); break;
    case KIND_OGG: _write_ogg(file); break;
    default: _write_wav(); break;
  }
  return 0;
}

void BisSound::_write_wss(uint32_t compression) {
  uint8_t head[26] = {'W', 'S', 'S', '0'};
  std::memcpy(head + 4, &compression, 4);
  _fmt.wss_Store(head + 8);  // the extra size stays 0: nothing follows the record
  _io.io_WriteBlock(head, sizeof head);
  size_t samples = _data.size() / 2;
  std::vector<uint8_t> packed;
  if (compression == COMPRESSION_NIBBLE) {
    packed.resize((samples + 1) / 2);
    WssCodec::wss_EncodeNibble(_data.data(), samples, _fmt.channels, packed.data());
  } else if (compression == COMPRESSION_BYTE) {
    packed.resize(samples);
    wss_GetCodec().wss_EncodeByte(_data.data(), samples, _fmt.channels, packed.data());
  } else {
    _io.io_WriteBlock(_data.data(), _data.size());
    return;
  }
  _io.io_WriteBlock(packed.data(), packed.size());
}

void BisSound::_write_wav() {
  uint32_t size = static_cast<uint32_t>(_data.size());
  uint32_t pad = size & 1;
  uint8_t head[44];
  std::memcpy(head, "RIFF", 4);
  uint32_t overall = size + pad + 36;
  std::memcpy(head + 4, &overall, 4);
  std::memcpy(head + 8, "WAVEfmt ", 8);
  uint32_t fmt_size = 16;
  std::memcpy(head + 16, &fmt_size, 4);
  _fmt.wss_Store(head + 20);
  std::memcpy(head + 36, "data", 4);
  std::memcpy(head + 40, &size, 4);
  _io.io_WriteBlock(head, sizeof head);
  _io.io_WriteBlock(_data.data(), size);
  if (pad) _io.io_WriteByte(0);
}

void BisSound::_write_ogg(char const* file) {
  char const* title = _ogg_title.empty() ? base_name(file) : _ogg_title.c_str();
  if (!wss_ogg_encode(_io, _data.data(), _data.size(), _fmt.channels, static_cast<long>(_fmt.samples_per_sec),
                      _fmt.bits_per_sample / 8, title))
    throw SONMAR_INVALID_OGG;
}

// ===== resampling ===========================================================

// Band-limited sinc interpolation from libsamplerate: the best of its converters, since a sound is
// converted once when a mod is built and then played many times.
void BisSound::_resample(uint32_t rate) {
  uint32_t from = _fmt.samples_per_sec;
  double ratio = static_cast<double>(rate) / from;
  if (rate == 0 || rate > kMaxRate || !src_is_valid_ratio(ratio))
    bis_throw_message("cannot resample from %u to %u samples per second", from, rate);
  if (rate == from) return;
  int channels = _fmt.channels;
  int bytes = _fmt.bits_per_sample / 8;
  size_t frames = _data.size() / _fmt.block_align;
  uint64_t out_frames_max = static_cast<uint64_t>(std::ceil(static_cast<double>(frames) * ratio)) + 64;
  if (out_frames_max * _fmt.block_align > kMaxData) throw GE_NO_MEMORY;

  std::vector<float> in(frames * static_cast<size_t>(channels));
  for (size_t i = 0; i < in.size(); ++i) in[i] = wss_pcm_to_float(_data.data() + i * static_cast<size_t>(bytes), bytes);
  std::vector<float> out(static_cast<size_t>(out_frames_max) * static_cast<size_t>(channels));

  int error = 0;
  SRC_STATE* state = src_new(SRC_SINC_BEST_QUALITY, channels, &error);
  if (!state) bis_throw_message("resampler: %s", src_strerror(error));
  SRC_DATA job{};
  job.src_ratio = ratio;
  job.end_of_input = 1;
  size_t used = 0, made = 0;
  for (;;) {
    job.data_in = in.data() + used * static_cast<size_t>(channels);
    job.input_frames = static_cast<long>(frames - used);
    job.data_out = out.data() + made * static_cast<size_t>(channels);
    job.output_frames = static_cast<long>(out_frames_max - made);
    error = src_process(state, &job);
    if (error) break;
    used += static_cast<size_t>(job.input_frames_used);
    made += static_cast<size_t>(job.output_frames_gen);
    if (job.output_frames_gen == 0 || made >= out_frames_max) break;
  }
  src_delete(state);
  if (error) bis_throw_message("resampler: %s", src_strerror(error));

  std::vector<float>().swap(in);
  _data.resize(made * _fmt.block_align);
  for (size_t i = 0; i < made * static_cast<size_t>(channels); ++i)
    wss_float_to_pcm(out[i], _data.data() + i * static_cast<size_t>(bytes), bytes);
  _fmt.samples_per_sec = rate;
  _fmt.bytes_per_sec = rate * _fmt.block_align;
}

// ===== lip-sync =============================================================

int BisSound::wss_CreateLip(char const* file, float threshold) {
  return bis_guarded_call<SonmarErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    _require_sound();
    if (!file || !*file) throw "no filename";
    if (_fmt.channels != 1 || _fmt.bits_per_sample != 16) throw SONMAR_NOT_16BIT_MONO;
    double th = std::isnan(threshold) ? 0.0 : std::clamp(static_cast<double>(threshold), 0.0, 0.999);
    size_t frames = _data.size() / 2;
    size_t window = static_cast<size_t>(std::max(1L, std::lround(_fmt.samples_per_sec * kLipFrame)));
    std::vector<double> level;
    level.reserve(frames / window + 1);
    double loudest = 0;
    for (size_t start = 0; start < frames; start += window) {
      size_t n = std::min(window, frames - start);
      double sum = 0;
      for (size_t i = start; i < start + n; ++i) {
        int16_t s;
        std::memcpy(&s, _data.data() + 2 * i, 2);
        sum += static_cast<double>(s) * s;
      }
      level.push_back(std::sqrt(sum / static_cast<double>(n)));
      loudest = std::max(loudest, level.back());
    }
    if (loudest == 0) throw SONMAR_ONLY_SILENCE;

    GenString text("frame = 0.040\r\n");
    double rate = _fmt.samples_per_sec;
    int previous = -1;
    for (size_t k = 0; k < level.size(); ++k) {
      double relative = level[k] / loudest;
      int open = relative < th ? 0 : std::min(7, 1 + static_cast<int>((relative - th) / (1.0 - th) * 7.0));
      if (open == previous) continue;
      previous = open;
      text.str_Add("%.3f, %d\r\n", static_cast<double>(k * window) / rate, open);
    }
    text.str_Add("%.3f, -1\r\n", static_cast<double>(frames) / rate);
    if (!_io.io_write_file(file, text.c_str(), 0)) throw GE_INVALID_FILE;
    return 0;
  });
}
