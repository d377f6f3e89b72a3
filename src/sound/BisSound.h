#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/BisCallback.h"
#include "io/BisFileIO.h"
#include "sound/SonmarErrors.h"
#include "sound/WssCodec.h"
#include "sound/WssFormat.h"

class BisDLL;
class WssOggReader;

// The sound tool: opens an Ogg Vorbis, WSS0 (plain, nibble- or byte-compressed) or RIFF WAVE
// sound into 16-bit (or 8/24/32-bit) PCM in memory, reports its format through the message
// callback, and writes it back as WAVE, WSS0 in any of its forms or Ogg Vorbis. It also resamples
// and writes lip-sync text.
class BisSound {
 public:
  // Kinds of wss_Create and wss_Resample; any other kind writes a WAVE file.
  static constexpr int KIND_WSS = 0;
  static constexpr int KIND_WAV = 1;
  static constexpr int KIND_OGG = 2;
  static constexpr int KIND_WSS_NIBBLE = 4;
  static constexpr int KIND_WSS_BYTE = 8;

  // WSS0 compression types.
  static constexpr uint32_t COMPRESSION_NONE = 0;
  static constexpr uint32_t COMPRESSION_NIBBLE = 4;
  static constexpr uint32_t COMPRESSION_BYTE = 8;

  // What the open sound was read from (wss_GetSoundType).
  enum SoundType : int { SOUND_NONE = 0, SOUND_WSS = 1, SOUND_WAV = 2, SOUND_OGG = 3 };

  // Flags of wss_Open.
  static constexpr int OPEN_NO_REPORT = 1;  // check and decode, but report nothing

  // Rates outside 1..kMaxRate are refused: no sound card or game plays them, and the
  // arithmetic of every writer stays in range.
  static constexpr uint32_t kMaxRate = 1000000;
  // Length of one lip-sync window, in seconds.
  static constexpr double kLipFrame = 0.040;

  explicit BisSound(BisDLL* dll);
  ~BisSound();
  BisSound(BisSound const&) = delete;
  BisSound& operator=(BisSound const&) = delete;

  // ---- reading --------------------------------------------------------------
  int wss_Open(char const* file, BisCallback callback, int flags);
  int wss_Open(wchar_t const* file, BisCallback callback, int flags);
  // A sound held in the caller's memory; `name` (may be null) is only used in messages.
  int wss_Open(void const* data, uint64_t size, BisCallback callback, int flags, char const* name = nullptr);
  void wss_Close();

  // ---- writing --------------------------------------------------------------
  int wss_Create(char const* file, int kind);
  int wss_Create(wchar_t const* file, int kind);
  // Converts the sound in memory to `rate` samples per second (it stays converted) and writes it
  // as `kind` (as wss_Create).
  int wss_Resample(char const* file, unsigned int rate, unsigned int kind);
  int wss_Resample(wchar_t const* file, unsigned int rate, unsigned int kind);
  // Lip-sync text for a 16-bit mono sound. The sound is cut into windows of kLipFrame seconds;
  // each window's RMS level, relative to the loudest window, below `threshold` (0..1) is a
  // closed mouth (0), above it a mouth opening of 1 to 7 in proportion. A line is written where
  // the opening changes, and the last line, "<end>, -1", closes the mouth at the end of the sound.
  int wss_CreateLip(char const* file, float threshold);
  // The comment stored in Ogg files written from now on; empty: the output file's own name.
  void wss_SetOggTitle(char const* title) { _ogg_title = title ? title : ""; }

  // ---- the open sound -------------------------------------------------------
  bool wss_IsMono() const { return _fmt.channels == 1; }
  int wss_GetSoundType() const { return _type; }
  BisFileIO* wss_GetFileIO() { return &_io; }
  BisDLL* wss_GetDll() const { return _dll; }
  WssFormat const& wss_GetFormat() const { return _fmt; }
  uint32_t wss_GetCompression() const { return _compression; }
  uint8_t const* wss_GetData() const { return _data.data(); }
  uint64_t wss_GetDataSize() const { return _data.size(); }
  // Bytes of sound data as stored in the file (compressed for WSS0 types 4 and 8).
  uint64_t wss_GetStoredSize() const { return _stored_size; }
  uint64_t wss_GetFileSize() const { return _file_size; }
  double wss_GetPlayTime() const;
  uint64_t wss_GetFrames() const { return _fmt.block_align ? _data.size() / _fmt.block_align : 0; }

  // The byte encoder's tables, built on first use.
  WssCodec const& wss_GetCodec();
  static char const* ErrorString(int code);

  // The code a thrown message text turns into.
  static constexpr int kDetectedError = 3;

 private:
  int _open_worker(char const* name, int flags);
  uint8_t const* _read_wss(uint8_t const* d, uint64_t size);
  uint8_t const* _read_wav(uint8_t const* d, uint64_t size);
  void _check_format();
  void _expand(uint8_t const* stored);
  void _decode_ogg(WssOggReader& ogg);
  void _report(char const* format, ...) __attribute__((format(printf, 2, 3)));

  int _create_worker(char const* file, int kind);
  void _write_wss(uint32_t compression);
  void _write_wav();
  void _write_ogg(char const* file);
  void _resample(uint32_t rate);
  void _require_sound() const;

  BisDLL* _dll;
  BisFileIO _io;
  std::unique_ptr<WssCodec> _codec;
  WssFormat _fmt;
  uint32_t _compression = 0;
  int _type = SOUND_NONE;
  bool _quiet = false;
  std::vector<uint8_t> _data;  // PCM, interleaved by channel, little-endian
  uint64_t _stored_size = 0;
  uint64_t _file_size = 0;
  std::string _ogg_title;
};
