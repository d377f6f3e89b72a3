#pragma once
#include <cstdint>
#include <memory>
#include <vector>

class BisFileIO;

// An Ogg Vorbis stream held in memory, decoded with libvorbisfile. The bytes are not copied: they
// must outlive the reader.
class WssOggReader {
 public:
  // ogg_Decode's code when the output would pass its limit.
  static constexpr int kTooLong = -1000;
  // ... and when a chained stream changes its channel count or rate.
  static constexpr int kFormatChange = -1001;

  WssOggReader();
  ~WssOggReader();
  WssOggReader(WssOggReader const&) = delete;
  WssOggReader& operator=(WssOggReader const&) = delete;

  // False when the bytes are not a Vorbis stream libvorbisfile accepts.
  bool ogg_Open(uint8_t const* data, uint64_t size);
  int ogg_Channels() const;
  long ogg_Rate() const;
  // Appends the whole stream to `out` as interleaved little-endian 16-bit samples, skipping holes
  // as libvorbisfile reports them. Returns 0, a negative libvorbisfile code, kTooLong when the
  // output would pass `limit` bytes, or kFormatChange.
  int ogg_Decode(std::vector<uint8_t>& out, uint64_t limit);

 private:
  struct State;
  std::unique_ptr<State> _s;
};

// Encodes integer PCM (1 to 4 bytes per sample, interleaved) to Ogg Vorbis at variable bit rate,
// quality 0.4, writing every page through `io` (its output already open). The one comment
// "Ostrel_" holds `title`. Returns false when libvorbisenc refuses the channel count or rate;
// write failures throw as every BisFileIO write does.
// Whether libvorbisenc takes this channel count and rate, asked before an output file is made.
bool wss_ogg_accepts(int channels, long rate);

bool wss_ogg_encode(BisFileIO& io, uint8_t const* pcm, uint64_t bytes, int channels, long rate, int sample_bytes,
                    char const* title);
