#include "texture/Lorvix.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "core/BisDLL.h"
#include "core/BisMessage.h"
#include "core/GuardedCall.h"
#include "text/FileStringA.h"
#include "texture/ErrorTexts.h"

Lorvix* BisDLL::dll_GetLorvix() { return dll_slot<Lorvix>(SLOT_LORVIX); }

namespace {
int mask_bit(int type) {
  switch (type) {
    case Lorvix::PAX_INDX: return Lorvix::MASK_INDX;
    case Lorvix::PAX_DXT1: return Lorvix::MASK_DXT1;
    case Lorvix::PAX_DXT2: return Lorvix::MASK_DXT2;
    case Lorvix::PAX_DXT3: return Lorvix::MASK_DXT3;
    case Lorvix::PAX_DXT4: return Lorvix::MASK_DXT4;
    case Lorvix::PAX_DXT5: return Lorvix::MASK_DXT5;
    case Lorvix::PAX_RGB4: return Lorvix::MASK_RGB4;
    case Lorvix::PAX_RGB5: return Lorvix::MASK_RGB5;
    case Lorvix::PAX_RGB8: return Lorvix::MASK_RGB8;
    case Lorvix::PAX_GREY: return Lorvix::MASK_GREY;
    default: return Lorvix::MASK_UNTYPED;
  }
}

bool is_type_word(uint16_t w) {
  return (w >= Lorvix::PAX_DXT1 && w <= Lorvix::PAX_DXT5) || w == Lorvix::PAX_RGB4 || w == Lorvix::PAX_RGB5 ||
         w == Lorvix::PAX_RGB8 || w == Lorvix::PAX_GREY;
}

uint64_t expanded_size(int type, uint16_t w, uint16_t h) {
  return uint64_t(w) * h * static_cast<uint64_t>(Lorvix::pax_BitsPerPixel(type)) / 8;
}
}  // namespace

Lorvix::Lorvix(BisDLL* dll) : _dll(dll), _io(dll) {}

Lorvix::~Lorvix() = default;

char const* Lorvix::pax_GetTypeStr(int type) {
  switch (type) {
    case PAX_DXT1: return "DXT1";
    case PAX_DXT2: return "DXT2";
    case PAX_DXT3: return "DXT3";
    case PAX_DXT4: return "DXT4";
    case PAX_DXT5: return "DXT5";
    case PAX_RGB4: return "RGB4";
    case PAX_RGB5: return "RGB5";
    case PAX_RGB8: return "RGB8";
    case PAX_GREY: return "GREY";
    case PAX_INDX: return "INDX";
    default: return "DEMO";
  }
}

int Lorvix::pax_BitsPerPixel(int type) {
  switch (type) {
    case PAX_DXT1: return 4;
    case PAX_RGB4: case PAX_RGB5: case PAX_GREY: return 16;
    case PAX_RGB8: return 32;
    default: return 8;  // DXT2-DXT5, indexed and untyped
  }
}

char const* Lorvix::ErrorString(int code) {
  static char const* const texts[] = {
      "Cendrix: Unknown PaaFile Format",       "Cendrix: Unknown Tagg",
      "Cendrix: invalid tag",                  "Cendrix: No Offset tagg supplied",
      "Cendrix: No ending zeroes",             "Cendrix: MipMapOffsets.nMaps exceeded",
      "Cendrix: bad compression",              "Cendrix: tag repeated",
      "Cendrix: bad tag length",               "Cendrix: mip map extra non zeros",
      "Cendrix: unreadable picture",           "Cendrix: picture sides not powers of two",
      "Cendrix: picture too large",            "Cendrix: no such mipmap",
      "Cendrix: undecodable pixels",           "Cendrix: type not made from pictures",
  };
  return tool_error_text(code, texts);
}

void Lorvix::Close() {
  _io.io_Close();
  _type = PAX_NONE;
  _taggs.clear();
  _mipmaps.clear();
  _palette = nullptr;
  _palette_count = 0;
  _own_palette.clear();
}

PaxTagg const* Lorvix::pax_FindTagg(PaxTagg::Kind kind) const {
  for (auto const& t : _taggs)
    if (t.kind == kind) return &t;
  return nullptr;
}

uint8_t const* Lorvix::pax_GetPalette(int* count) const {
  if (count) *count = _palette_count;
  return _palette;
}

PaxMipmap const* Lorvix::pax_GetMipmap(uint32_t index) const {
  return index < _mipmaps.size() ? &_mipmaps[index] : nullptr;
}

// ===== reading ================================================================

int Lorvix::pax_Open(char const* file, BisCallback callback, int type_mask) {
  int r = bis_guarded_call<PaxErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    Close();
    _io.io_SetStdioCallBack(callback);
    if (!file || !*file || !_io.io_OpenFile(file, "paa")) return int(GE_INVALID_FILE);
    return _read(type_mask);
  });
  if (r) Close();
  return r;
}

int Lorvix::pax_Open(wchar_t const* file, BisCallback callback, int type_mask) {
  if (!file) return GE_INVALID_FILE;
  std::string name = FileStringA::fs_convert_to_utf8(file);
  return pax_Open(name.c_str(), callback, type_mask);
}

int Lorvix::pax_Open(unsigned char const* image, uint64_t size, BisCallback callback, int type_mask) {
  int r = bis_guarded_call<PaxErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    Close();
    _io.io_SetStdioCallBack(callback);
    if (!image) return int(GE_INVALID_FILE);
    _io.io_OpenPseudoFile(image, size);
    return _read(type_mask);
  });
  if (r) Close();
  return r;
}

int Lorvix::_read(int type_mask) {
  uint16_t first = _io.io_ReadUshort();
  if (is_type_word(first)) {
    _type = first;
  } else {
    // "GG" opens a tagg of an indexed file; anything else is an untyped (indexed) file whose first
    // bytes are taggs or the palette.
    _type = first == PAX_INDX ? PAX_INDX : PAX_NONE;
    _io.io_Rewind();
  }
  if (type_mask && !(type_mask & mask_bit(_type))) return -1;
  _io.io_callback("Type: %s\r\n", pax_GetTypeStr(_type));
  _read_taggs();
  _read_palette();
  _read_mipmaps();
  _read_end();
  return 0;
}

void Lorvix::_read_taggs() {
  for (;;) {
    uint8_t const* at = _io.io_GetAddress();
    _io.io_Require(2);
    if (at[0] != 'G' || at[1] != 'G') return;  // the palette count
    _io.io_AddOffset(2);
    _read_tagg();
  }
}

void Lorvix::_read_tagg() {
  char rest[6];
  _io.io_ReadBlock(rest, 6);
  if (rest[0] != 'A' || rest[1] != 'T') _io.io_throw(PAXERR_INVALID_TAG, "Tagg GG%.6s: not a tagg\r\n", rest);
  int kind = PaxTagg::tag_Find(rest + 2);
  if (kind < 0) _io.io_throw(PAXERR_UNKNOWN_TAGG, "Unknown tagg GGAT%.4s\r\n", rest + 2);
  PaxTagg t;
  t.kind = static_cast<PaxTagg::Kind>(kind);
  if (pax_FindTagg(t.kind)) _io.io_throw(PAXERR_TAG_REPEATED, "Tagg %s repeated\r\n", PaxTagg::tag_Name(t.kind));
  uint32_t length = _io.io_ReadUlong();
  int expected = PaxTagg::tag_PayloadLength(t.kind);
  if (expected >= 0 ? length != uint32_t(expected) : length < 4)
    _io.io_throw(PAXERR_BAD_TAG_LENGTH, "Tagg %s: length %u\r\n", PaxTagg::tag_Name(t.kind), length);
  _io.io_Require(length);

  switch (t.kind) {
    case PaxTagg::PROC: {
      uint32_t n = _io.io_ReadUlong();
      if (n != length - 4) _io.io_throw(PAXERR_BAD_TAG_LENGTH, "Tagg PROC: text of %u bytes in %u\r\n", n, length);
      t.text.assign(reinterpret_cast<char const*>(_io.io_GetAddressAndUpdate(n)), n);
      _io.io_callback("PROC:\r\n%s\r\n", t.text.c_str());
      break;
    }
    case PaxTagg::OFFS: {
      for (auto& o : t.offsets) o = _io.io_ReadUlong();
      int n = t.tag_OffsetCount();
      if (n < PaxTagg::kMaxOffsets - 1)
        for (int i = n + 1; i < PaxTagg::kMaxOffsets; ++i)
          if (t.offsets[i]) _io.io_throw(PAXERR_EXTRA_NON_ZEROS, "OFFS: entry %d follows a zero entry\r\n", i);
      _io.io_callback("OFFS: %d entries\r\n", n);
      break;
    }
    default:
      t.value = _io.io_ReadUlong();
      // Only the two alpha kinds exist; anything else is a texture this tool cannot vouch for.
      // The kind is the low byte: textures in use carry FFFFFF01, with the upper bytes unset.
      if (t.kind == PaxTagg::FLAG && (t.value & 0xFF) != 1 && (t.value & 0xFF) != 2)
        _io.io_throw(GE_DEBUG_TRAP, "FLAG: %08X\r\n", t.value);
      _io.io_callback("%s: %08X\r\n", PaxTagg::tag_Name(t.kind), t.value);
      break;
  }
  _taggs.push_back(std::move(t));
}

void Lorvix::_read_palette() {
  int count = _io.io_ReadShort();
  // Negative values here are numeric tagg codes of old tools, which no texture in use carries.
  if (count < 0) _io.io_throw(PAXERR_UNKNOWN_TAGG, "Unknown tagg code %d\r\n", count);
  if (count == kBadPalette || (count && !pax_IsIndexed(_type)))
    _io.io_throw(PAXERR_UNKNOWN_TAGG, "Pallete size %d in a %s texture\r\n", count, pax_GetTypeStr(_type));
  _palette = _io.io_GetAddressAndUpdate(uint64_t(count) * 3);
  _palette_count = count;
  _io.io_callback("Pallete size %d RGBtriplets\r\n", count);
}

void Lorvix::_read_mipmaps() {
  PaxTagg const* offs = pax_FindTagg(PaxTagg::OFFS);
  size_t const listed = offs ? size_t(offs->tag_OffsetCount()) : 0;
  _io.io_callback("MipMaps\n");
  for (;;) {
    uint64_t at = _io.io_GetCurrentOffset();
    _io.io_Require(4);
    uint8_t const* p = _io.io_GetAddress();
    if (!p[0] && !p[1] && !p[2] && !p[3]) {
      _io.io_AddOffset(4);
      break;
    }
    if (offs && (_mipmaps.size() >= listed || offs->offsets[_mipmaps.size()] != at))
      _io.io_throw(PAXERR_OFFSETS_EXCEEDED, "MipMap %zu at %llX is not where the offsets say\r\n",
                   _mipmaps.size(), static_cast<unsigned long long>(at));
    PaxMipmap& mm = _mipmaps.emplace_back();
    _read_mipmap(mm, at);
    // One message per line: with no callback installed every message also polls the console.
    char on_disk[32] = "";
    if (mm.stored_size != mm.expanded_size)
      std::snprintf(on_disk, sizeof on_disk, "size on disk %7d ", static_cast<int>(mm.stored_size));
    _io.io_callback("%4d x %4d @ %6X size %7d %s%s\r\n", mm.width, mm.height, static_cast<unsigned>(mm.offset),
                    static_cast<int>(mm.expanded_size), on_disk,
                    mm.lzo ? "(lzo compressed)" : mm.special ? "(SpecialIndex)" : "");
  }
  if (offs && _mipmaps.size() != listed)
    _io.io_throw(PAXERR_OFFSETS_EXCEEDED, "%zu mipmaps, %zu offsets\r\n", _mipmaps.size(), listed);
}

void Lorvix::_read_mipmap(PaxMipmap& mm, uint64_t offset) {
  mm.offset = offset;
  uint16_t w = _io.io_ReadUshort();
  uint16_t h = _io.io_ReadUshort();
  if (w == kSpecialWidth && h == kSpecialHeight) {
    mm.special = true;
    w = _io.io_ReadUshort();
    h = _io.io_ReadUshort();
  } else if (w & kLzoFlag) {
    mm.lzo = true;
    w &= ~kLzoFlag;
  }
  mm.width = w;
  mm.height = h;
  mm.stored_size = _io.io_ReadTriByte();
  mm.stored = _io.io_GetAddressAndUpdate(mm.stored_size);
  mm.expanded_size = expanded_size(_type, w, h);
  _expand(mm);
}

CompressType Lorvix::_mipmap_type(PaxMipmap const& mm) const {
  CompressType const base = kTextureData | CT_TRIBYTE_SIZE;
  if (mm.lzo) return base | CT_LZO;
  if (pax_IsDxt(_type)) return base;
  if (pax_IsIndexed(_type) && !mm.special) return base | CT_RLE;
  return base | CT_LZSS_SIGNED;  // 16- and 32-bit pixels, and the special indexed mipmap
}

void Lorvix::_expand(PaxMipmap& mm) {
  CompressType type = _mipmap_type(mm);
  if (!(type & CT_METHOD_MASK)) {
    mm.pixels = mm.stored;
    mm.pixel_size = mm.stored_size;
    return;
  }
  auto bad = [&] {
    _io.io_throw(PAXERR_BAD_COMPRESSION, "MipMap %d x %d @ %X: the data do not expand to %llu bytes\r\n", mm.width,
                 mm.height, static_cast<unsigned>(mm.offset), static_cast<unsigned long long>(mm.expanded_size));
  };
  // No honest block of this length expands further; a damaged size must not claim memory.
  if (mm.expanded_size > cmp_ExpandLimit(mm.stored_size, type)) bad();
  uint8_t* dest = mm.mm_Own(mm.expanded_size);
  int64_t used = -1;
  try {
    used = cmp_Expand(_engine, mm.stored, mm.stored_size, dest, mm.expanded_size, type);
  } catch (char const*) {
  } catch (BisMessage const&) {
  }
  if (used >= 0) return;
  // Some writers store 16-bit and indexed pixels uncoded; their length then equals the pixels'.
  if (!mm.lzo && mm.stored_size == mm.expanded_size) {
    mm.mm_Own(0);
    mm.pixels = mm.stored;
    mm.pixel_size = mm.stored_size;
    return;
  }
  bad();
}

void Lorvix::_read_end() {
  // Some writers stop after the four zero bytes; a file that ends there lacks nothing to read.
  if (!_io.io_RemainingBytes()) return;
  if (_io.io_RemainingBytes() < 2 || _io.io_ReadUshort() != 0) throw PAXERR_NO_ENDING_ZEROES;
  if (_io.io_RemainingBytes()) throw GE_RESIDUAL_BYTES;
}
