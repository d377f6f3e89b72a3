#include "sound/BisSound.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "core/BisDLL.h"
#include "core/GenericError.h"
#include "core/GuardedCall.h"
#include "sound/WssOgg.h"
#include "text/FileStringA.h"

BisSound* BisDLL::dll_GetSonmar() { return dll_slot<BisSound>(SLOT_SONMAR); }

namespace {
uint32_t le32(uint8_t const* p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
         static_cast<uint32_t>(p[3]) << 24;
}

// The largest sound held in memory: every writer stores its data size in 32 bits.
constexpr uint64_t kMaxData = 0xFFFFFFFFull - 64;
// Decoded Ogg data may outgrow its file by this factor (silence packs very well), or this much
// whatever the file's size, before the stream is taken for a crafted one.
constexpr uint64_t kOggGrowth = 1024;
constexpr uint64_t kOggAllowance = uint64_t{64} << 20;
}  // namespace

BisSound::BisSound(BisDLL* dll) : _dll(dll), _io(dll) {}

BisSound::~BisSound() = default;

char const* BisSound::ErrorString(int code) {
  long long c = code < 0 ? -static_cast<long long>(code) : code;
  switch (c) {
    case SONMAR_UNKNOWN_COMPRESSION: return "Unsupported/Unknown compression type";
    case SONMAR_UNKNOWN_FORMAT: return "Sonmar: UNKNOWN_FORMAT";
    case SONMAR_UNKNOWN_CHANNELS: return "Sonmar: UNKNOWN_CHANNELS";
    case SONMAR_BAD_BYTE_ALIGNMENT: return "Bad Byte Alignment";
    case SONMAR_NOT_BLOCK_ALIGNED: return "Data size is not block aligned";
    case SONMAR_ODD_DATA_BYTES: return "wav file has odd number of data bytes";
    case SONMAR_ONLY_SILENCE: return "pcm data contains only silence";
    case SONMAR_NOT_16BIT_MONO: return "pcm data is not 16bit mono";
    case SONMAR_NOT_16BIT: return "pcm data is not 16 bit";
    case SONMAR_INVALID_OGG: return "invalid ogg";
    default: return GenericError::ErrorString(c > 0x7fffffff ? -1 : static_cast<int>(c));
  }
}

double BisSound::wss_GetPlayTime() const {
  return _fmt.bytes_per_sec ? static_cast<double>(_data.size()) / _fmt.bytes_per_sec : 0.0;
}

void BisSound::wss_Close() {
  _io.io_Close();
  std::vector<uint8_t>().swap(_data);
  _fmt = WssFormat();
  _compression = 0;
  _type = SOUND_NONE;
  _stored_size = 0;
  _file_size = 0;
}

void BisSound::_report(char const* format, ...) {
  if (_quiet) return;
  va_list ap;
  va_start(ap, format);
  _io.io_vcallback(false, format, ap);
  va_end(ap);
}

// ===== exported entry points ================================================

int BisSound::wss_Open(char const* file, BisCallback callback, int flags) {
  _io.io_SetStdioCallBack(callback);
  int r = bis_guarded_call<SonmarErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    wss_Close();
    if (!file || !*file) throw "no filename";
    if (!_io.io_OpenFile(file)) _io.io_throw(GE_INVALID_FILE, "Cannot open %s\r\n", file);
    return _open_worker(file, flags);
  });
  _io.io_CloseInput();  // the sound is held as PCM now
  // A sound that failed half way must not be written out as if it were whole.
  if (r) wss_Close();
  return r;
}

int BisSound::wss_Open(wchar_t const* file, BisCallback callback, int flags) {
  std::string name = file ? FileStringA::fs_convert_to_utf8(file) : std::string();
  return wss_Open(file ? name.c_str() : nullptr, callback, flags);
}

int BisSound::wss_Open(void const* data, uint64_t size, BisCallback callback, int flags, char const* name) {
  _io.io_SetStdioCallBack(callback);
  int r = bis_guarded_call<SonmarErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    wss_Close();
    _io.io_OpenPseudoFile(data, size);
    return _open_worker(name ? name : "", flags);
  });
  _io.io_CloseInput();
  if (r) wss_Close();
  return r;
}

// ===== opening ==============================================================

int BisSound::_open_worker(char const* name, int flags) {
  _quiet = (flags & OPEN_NO_REPORT) != 0;
  if (_io.io_IsHuge()) throw GE_NO_MEMORY;  // a sound too big to hold cannot be converted
  uint8_t const* d = _io.io_GetRawData();
  uint64_t size = d ? _io.io_GetFileSize() : 0;
  _file_size = size;
  WssOggReader ogg;
  uint8_t const* stored = nullptr;
  if (size >= 4 && std::memcmp(d, "OggS", 4) == 0) {
    if (!ogg.ogg_Open(d, size)) throw SONMAR_INVALID_OGG;
    _type = SOUND_OGG;
    _report("OGG ");
    int channels = ogg.ogg_Channels();
    long rate = ogg.ogg_Rate();
    _fmt.channels = static_cast<uint16_t>(std::min(channels, 0xFFFF));
    _fmt.samples_per_sec = static_cast<uint32_t>(std::min<long>(rate, 0xFFFFFFFF));
    _fmt.bits_per_sample = 16;
    _fmt.block_align = static_cast<uint16_t>(2 * std::min(channels, 0x7FFF));
    _fmt.bytes_per_sec = static_cast<uint32_t>(uint64_t{_fmt.block_align} * _fmt.samples_per_sec);
  } else if (size >= 4 && std::memcmp(d, "WSS0", 4) == 0) {
    stored = _read_wss(d, size);
  } else if (size >= 4 && std::memcmp(d, "RIFF", 4) == 0) {
    stored = _read_wav(d, size);
  } else {
    _io.io_callbackerr("%s: not an ogg, wss or wav sound\r\n", *name ? name : "data");
    throw SONMAR_UNKNOWN_FORMAT;
  }
  _check_format();
  if (_type == SOUND_OGG)
    _decode_ogg(ogg);
  else
    _expand(stored);
  _report("Playtime:     %.2f Seconds\r\n", wss_GetPlayTime());
  _report("Audio data:   %d bytes%s\r\n", static_cast<int>(_stored_size),
          _compression == COMPRESSION_NONE ? "" : " (compressed)");
  _report("Filesize:     %d bytes\r\n", static_cast<int>(_file_size));
  return 0;
}

uint8_t const* BisSound::_read_wss(uint8_t const* d, uint64_t size) {
  _type = SOUND_WSS;
  _report("WSS ");
  _io.io_MoveTo(4);
  _compression = _io.io_ReadUlong();
  uint8_t const* head = _io.io_GetAddressAndUpdate(18);
  _fmt = WssFormat::wss_Load(head);
  // Some byte-compressed files hold a stray value here; it never counts the data.
  std::memcpy(&_fmt.extra_size, head + 16, 2);
  _stored_size = size - 26;
  return d + 26;
}

uint8_t const* BisSound::_read_wav(uint8_t const* d, uint64_t size) {
  _type = SOUND_WAV;
  _report("WAV ");
  if (size < 12 || std::memcmp(d + 8, "WAVE", 4) != 0) {
    _io.io_callbackerr("RIFF file is not a WAVE sound\r\n");
    throw SONMAR_UNKNOWN_FORMAT;
  }
  if (uint64_t{le32(d + 4)} + 8 != size) _report("riff format overall size doesn't match actual data size\r\n");
  bool have_fmt = false;
  uint8_t const* data = nullptr;
  uint64_t at = 12;
  // Chunks are padded to an even length; a damaged last pad byte is forgiven.
  while (at + 8 <= size && !(have_fmt && data)) {
    uint8_t const* chunk = d + at;
    uint32_t length = le32(chunk + 4);
    uint64_t body = at + 8;
    if (std::memcmp(chunk, "fmt ", 4) == 0) {
      if (length > 18) {
        _io.io_callbackerr("Illegal Wavefmt chunksize is %d\r\n", static_cast<int>(length));
        _io.io_callbackerr("cannot handle additional fmt data\r\n");
        throw SONMAR_UNKNOWN_FORMAT;
      }
      if (length < 16 || length > size - body) _io.io_throw(GE_EOF, "fmt chunk of %u bytes is cut short\r\n", length);
      _fmt = WssFormat::wss_Load(chunk + 8);
      if (length == 18) std::memcpy(&_fmt.extra_size, chunk + 24, 2);
      have_fmt = true;
    } else if (std::memcmp(chunk, "data", 4) == 0) {
      if (length > size - body)
        _io.io_throw(GE_EOF, "data chunk of %u bytes runs %llu bytes past the end of the file\r\n", length,
                     static_cast<unsigned long long>(length - (size - body)));
      data = chunk + 8;
      _stored_size = length;
    }
    at = body + length + (length & 1);
  }
  if (!have_fmt || !data) {
    _io.io_callbackerr("no %s chunk in the WAVE file\r\n", have_fmt ? "data" : "fmt ");
    throw SONMAR_UNKNOWN_FORMAT;
  }
  return data;
}

// The checks every kind of sound goes through before its data is taken.
void BisSound::_check_format() {
  if (_fmt.format_tag != 1) {
    std::printf("this is an undecodable OEM-compressed wav format type %d\n", _fmt.format_tag);
    std::fflush(stdout);
    throw SONMAR_UNKNOWN_FORMAT;
  }
  if (_fmt.channels == 1)
    _report("Mono ");
  else if (_fmt.channels == 2)
    _report("Stereo ");
  else
    throw SONMAR_UNKNOWN_CHANNELS;
  switch (_compression) {
    case COMPRESSION_NONE: _report("UnCompressed\r\n"); break;
    case COMPRESSION_NIBBLE: _report("Nibble Compressed\r\n"); break;
    case COMPRESSION_BYTE: _report("Byte Compressed\r\n"); break;
    default: throw SONMAR_UNKNOWN_COMPRESSION;
  }
  _report("SamplesPerSec %d\r\n", static_cast<int>(_fmt.samples_per_sec));
  _report("BytesperSec   %d\r\n", static_cast<int>(_fmt.bytes_per_sec));
  _report("BlockAlign    %d\r\n", _fmt.block_align);
  _report("BitsPerSample %d\r\n", _fmt.bits_per_sample);
  if (_fmt.bits_per_sample % 8 != 0) {
    _io.io_callbackerr("\r\nBits per sample not 8 ,16 , 24\r\n");
    throw SONMAR_UNKNOWN_FORMAT;
  }
  if (_fmt.samples_per_sec == 0 || _fmt.samples_per_sec > kMaxRate) {
    _io.io_callbackerr("SamplesPerSec %u is not a playable rate\r\n", _fmt.samples_per_sec);
    throw SONMAR_UNKNOWN_FORMAT;
  }
  if (_fmt.block_align < 1 || _fmt.block_align > 4 || _fmt.block_align != _fmt.bits_per_sample / 8 * _fmt.channels ||
      uint64_t{_fmt.block_align} * _fmt.samples_per_sec != _fmt.bytes_per_sec)
    throw SONMAR_BAD_BYTE_ALIGNMENT;
  if (_compression != COMPRESSION_NONE && _fmt.bits_per_sample != 16) {
    _io.io_callbackerr("file is wss compressed but not 16bit\n");
    throw SONMAR_NOT_16BIT;
  }
}

void BisSound::_expand(uint8_t const* stored) {
  uint64_t n = _stored_size;
  switch (_compression) {
    case COMPRESSION_NIBBLE:
      if (n > kMaxData / 4) throw GE_NO_MEMORY;
      _data.resize(static_cast<size_t>(4 * n));
      WssCodec::wss_DecodeNibble(stored, static_cast<size_t>(n), _fmt.channels, _data.data());
      break;
    case COMPRESSION_BYTE:
      if (n > kMaxData / 2) throw GE_NO_MEMORY;
      _data.resize(static_cast<size_t>(2 * n));
      WssCodec::wss_DecodeByte(stored, static_cast<size_t>(n), _fmt.channels, _data.data());
      break;
    default:
      if (n & 1) {
        std::printf("wav file has odd number of bytes\n");
        std::fflush(stdout);
        if (_fmt.block_align > 1) throw SONMAR_ODD_DATA_BYTES;
      }
      if (n > kMaxData) throw GE_NO_MEMORY;
      _data.assign(stored, stored + n);
      break;
  }
  if (_data.size() % _fmt.block_align) throw SONMAR_NOT_BLOCK_ALIGNED;
}

void BisSound::_decode_ogg(WssOggReader& ogg) {
  uint64_t limit = std::min(kMaxData, std::max(kOggAllowance, _file_size > kMaxData / kOggGrowth
                                                                   ? kMaxData
                                                                   : _file_size * kOggGrowth));
  int r = ogg.ogg_Decode(_data, limit);
  if (r == WssOggReader::kTooLong)
    _io.io_callbackerr("ogg stream decodes to more than %llu bytes\r\n", static_cast<unsigned long long>(limit));
  else if (r == WssOggReader::kFormatChange)
    _io.io_callbackerr("ogg stream changes its channels or rate\r\n");
  if (r) throw SONMAR_INVALID_OGG;
  _stored_size = _data.size();
}
