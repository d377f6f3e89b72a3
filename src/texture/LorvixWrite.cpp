// Building textures in memory and writing them.
#include <cstring>
#include <memory>
#include <string>

#include "core/GuardedCall.h"
#include "text/FileStringA.h"
#include "texture/Lorvix.h"
#include "texture/ParallelFor.h"

namespace {
constexpr uint32_t kTriByteLimit = 1u << 24;  // a mipmap's stored length has three bytes
// A palette count equal to a type word would make an untyped file read back as typed; the smallest
// type word is 0x1555.
constexpr int kMaxPaletteCount = 0x1554;
}  // namespace

void Lorvix::pax_New(int type) {
  Close();
  _type = type;
  PaxTagg offs;
  offs.kind = PaxTagg::OFFS;
  _taggs.push_back(offs);
}

int Lorvix::pax_SetTagg(PaxTagg::Kind kind, uint32_t value) {
  if (kind == PaxTagg::OFFS || kind == PaxTagg::PROC) return GE_CODE_BUG;
  if (kind == PaxTagg::FLAG && value != 1 && value != 2) return GE_DEBUG_TRAP;
  for (auto& t : _taggs)
    if (t.kind == kind) {
      t.value = value;
      return 0;
    }
  PaxTagg t;
  t.kind = kind;
  t.value = value;
  // Readers find the offsets last in every texture in use; new taggs go before them.
  auto at = _taggs.end();
  for (auto i = _taggs.begin(); i != _taggs.end(); ++i)
    if (i->kind == PaxTagg::OFFS) at = i;
  _taggs.insert(at, t);
  return 0;
}

void Lorvix::pax_SetProc(char const* text) {
  for (auto& t : _taggs)
    if (t.kind == PaxTagg::PROC) {
      t.text = text ? text : "";
      return;
    }
  PaxTagg t;
  t.kind = PaxTagg::PROC;
  t.text = text ? text : "";
  auto at = _taggs.end();
  for (auto i = _taggs.begin(); i != _taggs.end(); ++i)
    if (i->kind == PaxTagg::OFFS) at = i;
  _taggs.insert(at, std::move(t));
}

void Lorvix::pax_RemoveTagg(PaxTagg::Kind kind) {
  for (auto i = _taggs.begin(); i != _taggs.end(); ++i)
    if (i->kind == kind) {
      _taggs.erase(i);
      return;
    }
}

int Lorvix::pax_SetPalette(uint8_t const* triplets, int count) {
  if (count < 0 || count > kMaxPaletteCount || (count && (!triplets || !pax_IsIndexed(_type)))) return GE_INVALID_FILE;
  _own_palette.assign(triplets, triplets + size_t(count) * 3);
  _palette = _own_palette.data();
  _palette_count = count;
  return 0;
}

int Lorvix::pax_AddMipmap(uint16_t width, uint16_t height, uint8_t const* pixels, uint64_t size) {
  uint64_t expected = uint64_t(width) * height * static_cast<uint64_t>(pax_BitsPerPixel(_type)) / 8;
  bool dxt_block = pax_IsDxt(_type) && size == (uint64_t((width + 3u) / 4) * ((height + 3u) / 4) *
                                                  (_type == PAX_DXT1 ? 8 : 16));
  if (width & kLzoFlag || (size != expected && !dxt_block) || (size && !pixels)) return GE_INVALID_FILE;
  PaxMipmap& mm = _mipmaps.emplace_back();
  mm.width = width;
  mm.height = height;
  mm.expanded_size = expected;
  mm.mm_SetPixels(pixels, size);
  return 0;
}

// ===== writing ==================================================================

int Lorvix::pax_Write(char const* file) {
  int r = bis_guarded_call<PaxErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    if (!file || !*file) return int(GE_INVALID_FILE);
    _write(file);
    return 0;
  });
  _io.io_CloseOutput();
  return r;
}

// Mipmaps read and left alone keep their stored bytes; new ones are coded as the type demands:
// LZSS for 16- and 32-bit pixels, run-length for indexed ones, and DXT blocks LZO-compressed only
// when that is smaller than the blocks themselves. Returns false when the coder fails.
bool Lorvix::_code_mipmap(PaxMipmap const& mm, CompressionEngine& engine, std::vector<uint8_t>& out, bool& lzo) const {
  lzo = mm.lzo;
  if (!mm.modified && mm.stored) {
    out.assign(mm.stored, mm.stored + mm.stored_size);
    return true;
  }
  lzo = false;
  CompressType method = pax_IsDxt(_type) ? CT_LZO : pax_IsIndexed(_type) && !mm.special ? CT_RLE : CT_LZSS_SIGNED;
  int64_t n = cmp_Compress(engine, mm.pixels, mm.pixel_size, method);
  if (method == CT_LZO) {
    if (n >= 0 && uint64_t(n) < mm.pixel_size) {
      lzo = true;
      out.assign(engine.cmp_GetOutput(), engine.cmp_GetOutput() + n);
    } else {
      out.assign(mm.pixels, mm.pixels + mm.pixel_size);
    }
    return true;
  }
  if (n < 0) return false;
  out.assign(engine.cmp_GetOutput(), engine.cmp_GetOutput() + n);
  return true;
}

void Lorvix::_write(char const* file) {
  FileStringA name(file);
  if (!name.fs_GetExt()) name.fs_AddExt("paa");

  // Mipmaps are coded on every core, each with a coder of its own; the best LZO coder takes a
  // second for a few megabytes.
  std::vector<std::vector<uint8_t>> coded(_mipmaps.size());
  std::vector<char> lzo(_mipmaps.size()), coded_ok(_mipmaps.size());
  std::vector<std::unique_ptr<CompressionEngine>> engines;  // made here: the LZO setup is not for threads
  for (size_t i = 0; i < _mipmaps.size(); ++i) engines.push_back(std::make_unique<CompressionEngine>());
  parallel_for(_mipmaps.size(), 0, [&](size_t i) {
    bool z = false;
    coded_ok[i] = _code_mipmap(_mipmaps[i], *engines[i], coded[i], z);
    lzo[i] = z;
  });
  for (size_t i = 0; i < _mipmaps.size(); ++i) {
    PaxMipmap const& mm = _mipmaps[i];
    if (!coded_ok[i]) _io.io_throw(GE_CANNOT_WRITE, "MipMap %d x %d: compression failed\r\n", mm.width, mm.height);
    if (coded[i].size() >= kTriByteLimit)
      _io.io_throw(GE_CANNOT_WRITE, "MipMap %d x %d: %zu bytes do not fit a texture\r\n", mm.width, mm.height,
                   coded[i].size());
  }

  // Where each mipmap will start, for the offsets tagg.
  bool const typed = !pax_IsIndexed(_type);
  uint64_t at = typed ? 2 : 0;
  for (auto const& t : _taggs) at += 12 + t.tag_Length();
  at += 2 + uint64_t(_palette_count) * 3;
  std::vector<uint64_t> offsets;
  for (size_t i = 0; i < _mipmaps.size(); ++i) {
    offsets.push_back(at);
    at += (_mipmaps[i].special ? 8 : 4) + 3 + coded[i].size();
  }
  PaxTagg* offs = nullptr;
  for (auto& t : _taggs)
    if (t.kind == PaxTagg::OFFS) offs = &t;
  if (offs) {
    if (_mipmaps.size() >= PaxTagg::kMaxOffsets)
      _io.io_throw(PAXERR_OFFSETS_EXCEEDED, "%zu mipmaps do not fit the offsets tagg\r\n", _mipmaps.size());
    std::memset(offs->offsets, 0, sizeof offs->offsets);
    for (size_t i = 0; i < offsets.size(); ++i) {
      if (offsets[i] > UINT32_MAX) throw GE_CANNOT_WRITE;
      offs->offsets[i] = static_cast<uint32_t>(offsets[i]);
    }
  }

  _io.io_callback("Writing: %s\r\n", name.c_str());
  if (!_io.io_CreateFile(name.c_str())) throw GE_CANNOT_WRITE;
  if (typed) _io.io_WriteUshort(static_cast<uint16_t>(_type));
  for (auto const& t : _taggs) {
    _io.io_WriteBlock("GGAT", 4);
    _io.io_WriteBlock(PaxTagg::tag_StoredName(t.kind), 4);
    _io.io_WriteUlong(t.tag_Length());
    if (t.kind == PaxTagg::OFFS) {
      for (uint32_t o : t.offsets) _io.io_WriteUlong(o);
    } else if (t.kind == PaxTagg::PROC) {
      _io.io_WriteUlong(static_cast<uint32_t>(t.text.size()));
      _io.io_WriteBlock(t.text.data(), t.text.size());
    } else {
      _io.io_WriteUlong(t.value);
    }
  }
  _io.io_WriteShort(static_cast<int16_t>(_palette_count));
  _io.io_WriteBlock(_palette, uint64_t(_palette_count) * 3);
  for (size_t i = 0; i < _mipmaps.size(); ++i) {
    PaxMipmap const& mm = _mipmaps[i];
    if (mm.special) {
      _io.io_WriteUshort(kSpecialWidth);
      _io.io_WriteUshort(kSpecialHeight);
    }
    _io.io_WriteUshort(static_cast<uint16_t>(mm.width | (lzo[i] ? kLzoFlag : 0)));
    _io.io_WriteUshort(mm.height);
    _io.io_WriteTriByte(static_cast<uint32_t>(coded[i].size()));
    _io.io_WriteBlock(coded[i].data(), coded[i].size());
  }
  _io.io_WriteUlong(0);
  _io.io_WriteUshort(0);
  _io.io_CloseOutput();
}
