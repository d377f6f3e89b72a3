#include "sound/WssOgg.h"

#include <vorbis/codec.h>
#include <vorbis/vorbisenc.h>
#include <vorbis/vorbisfile.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "io/BisFileIO.h"
#include "sound/WssPcm.h"

// ===== decoding =============================================================

struct WssOggReader::State {
  uint8_t const* data = nullptr;
  uint64_t size = 0;
  uint64_t at = 0;
  bool open = false;
  OggVorbis_File vf{};

  static size_t read(void* ptr, size_t size, size_t nmemb, void* source) {
    auto* s = static_cast<State*>(source);
    if (!size) return 0;
    uint64_t n = std::min<uint64_t>(static_cast<uint64_t>(nmemb), (s->size - s->at) / size);
    std::memcpy(ptr, s->data + s->at, n * size);
    s->at += n * size;
    return static_cast<size_t>(n);
  }
  static int seek(void* source, ogg_int64_t offset, int whence) {
    auto* s = static_cast<State*>(source);
    long double base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? s->at : s->size;
    long double to = base + static_cast<long double>(offset);
    if (to < 0 || to > static_cast<long double>(s->size)) return -1;
    s->at = static_cast<uint64_t>(to);
    return 0;
  }
  static long tell(void* source) { return static_cast<long>(static_cast<State*>(source)->at); }
};

WssOggReader::WssOggReader() : _s(std::make_unique<State>()) {}

WssOggReader::~WssOggReader() {
  if (_s->open) ov_clear(&_s->vf);
}

bool WssOggReader::ogg_Open(uint8_t const* data, uint64_t size) {
  if (_s->open) ov_clear(&_s->vf);
  _s->open = false;
  _s->data = data;
  _s->size = data ? size : 0;
  _s->at = 0;
  ov_callbacks cb{State::read, State::seek, nullptr, State::tell};
  if (ov_open_callbacks(_s.get(), &_s->vf, nullptr, 0, cb) != 0) return false;
  _s->open = true;
  vorbis_info* vi = ov_info(&_s->vf, -1);
  return vi && vi->channels > 0 && vi->rate > 0;
}

int WssOggReader::ogg_Channels() const {
  vorbis_info* vi = _s->open ? ov_info(&_s->vf, -1) : nullptr;
  return vi ? vi->channels : 0;
}

long WssOggReader::ogg_Rate() const {
  vorbis_info* vi = _s->open ? ov_info(&_s->vf, -1) : nullptr;
  return vi ? vi->rate : 0;
}

int WssOggReader::ogg_Decode(std::vector<uint8_t>& out, uint64_t limit) {
  if (!_s->open) return OV_EINVAL;
  int channels = ogg_Channels();
  long rate = ogg_Rate();
  // The declared length is only a hint for the first allocation; the decoded data decides.
  ogg_int64_t declared = ov_pcm_total(&_s->vf, -1);
  if (declared > 0) {
    uint64_t want = static_cast<uint64_t>(declared) * static_cast<uint64_t>(channels) * 2;
    out.reserve(static_cast<size_t>(std::min(want, std::min<uint64_t>(limit, uint64_t{64} << 20))));
  }
  char buffer[16384];
  for (;;) {
    int link = 0;
    long n = ov_read(&_s->vf, buffer, sizeof buffer, 0, 2, 1, &link);
    if (n == 0) return 0;
    if (n == OV_HOLE) continue;
    if (n < 0) return static_cast<int>(n);
    vorbis_info* vi = ov_info(&_s->vf, link);
    if (!vi || vi->channels != channels || vi->rate != rate) return kFormatChange;
    if (static_cast<uint64_t>(n) > limit - std::min<uint64_t>(limit, out.size())) return kTooLong;
    out.insert(out.end(), buffer, buffer + n);
  }
}

// ===== encoding =============================================================

namespace {
// Owns the encoder's state so that a failed write on the way releases it.
struct Encoder {
  vorbis_info vi;
  vorbis_comment vc;
  vorbis_dsp_state vd;
  vorbis_block vb;
  ogg_stream_state os;
  bool dsp = false, stream = false;
  Encoder() {
    vorbis_info_init(&vi);
    vorbis_comment_init(&vc);
  }
  ~Encoder() {
    if (stream) ogg_stream_clear(&os);
    if (dsp) {
      vorbis_block_clear(&vb);
      vorbis_dsp_clear(&vd);
    }
    vorbis_comment_clear(&vc);
    vorbis_info_clear(&vi);
  }
  Encoder(Encoder const&) = delete;
  Encoder& operator=(Encoder const&) = delete;
};

void write_page(BisFileIO& io, ogg_page const& og) {
  io.io_WriteBlock(og.header, static_cast<uint64_t>(og.header_len));
  io.io_WriteBlock(og.body, static_cast<uint64_t>(og.body_len));
}

// Runs analysis on every complete block and writes the pages that result.
void drain(BisFileIO& io, Encoder& e) {
  ogg_packet op;
  ogg_page og;
  while (vorbis_analysis_blockout(&e.vd, &e.vb) == 1) {
    vorbis_analysis(&e.vb, nullptr);
    vorbis_bitrate_addblock(&e.vb);
    while (vorbis_bitrate_flushpacket(&e.vd, &op)) {
      ogg_stream_packetin(&e.os, &op);
      while (ogg_stream_pageout(&e.os, &og)) {
        write_page(io, og);
        if (ogg_page_eos(&og)) return;
      }
    }
  }
}
}  // namespace

bool wss_ogg_encode(BisFileIO& io, uint8_t const* pcm, uint64_t bytes, int channels, long rate, int sample_bytes,
                    char const* title) {
  constexpr uint64_t kBlockFrames = 1024;
  Encoder e;
  if (channels < 1 || sample_bytes < 1 || sample_bytes > 4) return false;
  if (vorbis_encode_init_vbr(&e.vi, channels, rate, 0.4f) != 0) return false;
  vorbis_comment_add_tag(&e.vc, "Ostrel_", title ? title : "");
  if (vorbis_analysis_init(&e.vd, &e.vi) != 0) return false;
  vorbis_block_init(&e.vd, &e.vb);
  e.dsp = true;
  std::srand(static_cast<unsigned>(std::time(nullptr)));
  ogg_stream_init(&e.os, std::rand());
  e.stream = true;

  ogg_packet header, comments, codebooks;
  vorbis_analysis_headerout(&e.vd, &e.vc, &header, &comments, &codebooks);
  ogg_stream_packetin(&e.os, &header);
  ogg_stream_packetin(&e.os, &comments);
  ogg_stream_packetin(&e.os, &codebooks);
  ogg_page og;
  while (ogg_stream_flush(&e.os, &og)) write_page(io, og);

  uint64_t frame_bytes = static_cast<uint64_t>(channels) * static_cast<uint64_t>(sample_bytes);
  uint64_t frames = bytes / frame_bytes;
  for (uint64_t at = 0; at < frames; at += kBlockFrames) {
    uint64_t n = std::min(kBlockFrames, frames - at);
    float** buffer = vorbis_analysis_buffer(&e.vd, static_cast<int>(n));
    uint8_t const* p = pcm + at * frame_bytes;
    for (uint64_t f = 0; f < n; ++f)
      for (int c = 0; c < channels; ++c, p += sample_bytes) buffer[c][f] = wss_pcm_to_float(p, sample_bytes);
    vorbis_analysis_wrote(&e.vd, static_cast<int>(n));
    drain(io, e);
  }
  vorbis_analysis_wrote(&e.vd, 0);
  drain(io, e);
  return true;
}

bool wss_ogg_accepts(int channels, long rate) {
  Encoder e;
  return channels >= 1 && vorbis_encode_init_vbr(&e.vi, channels, rate, 0.4f) == 0;
}
