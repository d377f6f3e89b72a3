// Making a texture header index from textures, as the game's tools make it for a binarised addon.
#include <cctype>
#include <cstring>
#include <string>

#include "core/GuardedCall.h"
#include "texture/Hollin.h"
#include "texture/Lorvix.h"
#include "texture/TextureSuffix.h"

namespace {
void put32(std::vector<uint8_t>& out, uint32_t v) {
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
}
void put16(std::vector<uint8_t>& out, uint32_t v) {
  out.push_back(static_cast<uint8_t>(v));
  out.push_back(static_cast<uint8_t>(v >> 8));
}
void put_float(std::vector<uint8_t>& out, float f) {
  uint32_t v;
  std::memcpy(&v, &f, 4);
  put32(out, v);
}
uint32_t tagg_value(Lorvix const& t, PaxTagg::Kind kind, uint32_t absent) {
  PaxTagg const* tagg = t.pax_FindTagg(kind);
  return tagg ? tagg->value : absent;
}
}  // namespace

uint32_t Hollin::tex_TypeCode(int pax_type) {
  switch (pax_type) {
    case Lorvix::PAX_GREY: return 1;
    case Lorvix::PAX_RGB5: return 3;
    case Lorvix::PAX_RGB4: return 4;
    case Lorvix::PAX_RGB8: return 5;
    case Lorvix::PAX_DXT1: case Lorvix::PAX_DXT2: case Lorvix::PAX_DXT3: case Lorvix::PAX_DXT4: case Lorvix::PAX_DXT5:
      return 6 + uint32_t(pax_type - Lorvix::PAX_DXT1);
    default: return 0;  // indexed
  }
}

void Hollin::tex_New() { Close(); }

int Hollin::tex_AddTexture(char const* path, Lorvix const& texture, uint64_t file_size) {
  return bis_guarded_call<HollinErrors>(_io, GE_UNKNOWN_EXCEPTION, GE_UNKNOWN_EXCEPTION, [&] {
    if (!path || !*path) return int(GE_INVALID_FILE);
    _add(path, texture, file_size);
    return 0;
  });
}

void Hollin::_add(char const* path, Lorvix const& texture, uint64_t file_size) {
  uint32_t const mipmaps = texture.pax_GetMipmapCount();
  if (file_size > UINT32_MAX) _io.io_throw(GE_CANNOT_WRITE, "%s: too large for the index\r\n", path);
  auto* e = new TexHeader;
  AddChain(e);
  std::string& name = e->own_path;
  while (*path == '\\' || *path == '/') ++path;
  for (char const* p = path; *p; ++p)
    name += *p == '/' ? '\\' : static_cast<char>(std::tolower(static_cast<unsigned char>(*p)));

  // The average colour twice, as four fractions (red, green, blue, alpha) and as the tagg's bytes.
  uint32_t const average = tagg_value(texture, PaxTagg::AVGC, 0);
  uint32_t const alpha = average >> 24;
  // The flags tagg names the alpha kind; a texture without one blends when its average is not opaque.
  PaxTagg const* flag = texture.pax_FindTagg(PaxTagg::FLAG);
  bool const blends = flag ? (flag->value & 0xFF) == 1 : alpha != 0xFF;
  bool const transparent = flag && (flag->value & 0xFF) == 2;
  uint32_t const type = tex_TypeCode(texture.pax_GetType());

  std::vector<uint8_t>& b = e->own_bytes;
  put32(b, 1);
  put32(b, 0);
  for (int shift : {16, 8, 0, 24}) put_float(b, float((average >> shift) & 0xFF) / 255.0f);
  put32(b, average);
  put32(b, tagg_value(texture, PaxTagg::MAXC, 0xFFFFFFFF));
  put32(b, 0);
  put32(b, 0xFFFFFFFF);
  b.push_back(texture.pax_FindTagg(PaxTagg::MAXC) ? 1 : 0);
  b.push_back(blends ? 1 : 0);
  b.push_back(transparent ? 1 : 0);
  b.push_back(blends && alpha < 0x80 ? 1 : 0);
  put32(b, mipmaps);
  put32(b, type);
  b.push_back(1);  // little endian
  size_t dot = name.rfind('.');
  b.push_back(dot != std::string::npos && name.compare(dot, std::string::npos, ".pac") == 0 ? 0 : 1);

  PaxTagg const* offs = texture.pax_FindTagg(PaxTagg::OFFS);
  for (uint32_t i = 0; i < mipmaps; ++i) {
    PaxMipmap const* mm = texture.pax_GetMipmap(i);
    put16(b, mm->width);
    put16(b, mm->height);
    put16(b, 0);
    b.push_back(static_cast<uint8_t>(type));
    b.push_back(3);
    put32(b, offs && i < PaxTagg::kMaxOffsets ? offs->offsets[i] : static_cast<uint32_t>(mm->offset));
  }
  e->record = b.data();
  e->path = name.c_str();
  e->suffix = TextureSuffix(name).sfx_Code();
  e->mipmap_count = mipmaps;
  e->mipmaps = b.data() + TexHeader::kRecordSize;
  e->file_size = static_cast<uint32_t>(file_size);
}

void Hollin::_output(std::vector<uint8_t>& out) const {
  size_t size = 16;
  for (auto* e = static_cast<TexHeader const*>(GetFirst()); e; e = static_cast<TexHeader const*>(e->GetNext()))
    size += TexHeader::kRecordSize + std::strlen(e->path) + 13 + size_t(e->mipmap_count) * TexHeader::kMipmapEntrySize;
  out.clear();
  out.reserve(size);
  put32(out, uint32_t('0') | uint32_t('D') << 8 | uint32_t('H') << 16 | uint32_t('T') << 24);
  put32(out, 1);
  put32(out, static_cast<uint32_t>(GetCount()));
  for (auto* e = static_cast<TexHeader const*>(GetFirst()); e; e = static_cast<TexHeader const*>(e->GetNext())) {
    out.insert(out.end(), e->record, e->record + TexHeader::kRecordSize);
    out.insert(out.end(), e->path, e->path + std::strlen(e->path) + 1);
    put32(out, e->suffix);
    put32(out, e->mipmap_count);
    out.insert(out.end(), e->mipmaps, e->mipmaps + size_t(e->mipmap_count) * TexHeader::kMipmapEntrySize);
    put32(out, e->file_size);
  }
}

int Hollin::tex_Output(std::vector<uint8_t>& out) {
  return bis_guarded_call<HollinErrors>(_io, GE_UNKNOWN_EXCEPTION, GE_UNKNOWN_EXCEPTION, [&] {
    _output(out);
    return 0;
  });
}

int Hollin::tex_Write(char const* file) {
  return bis_guarded_call<HollinErrors>(_io, GE_UNKNOWN_EXCEPTION, GE_UNKNOWN_EXCEPTION, [&] {
    if (!file || !*file) return int(GE_INVALID_FILE);
    std::vector<uint8_t> bytes;
    _output(bytes);
    _io.io_callback("Writing: %s\r\n", file);
    if (!_io.io_write_file(file, bytes.data(), bytes.size())) return int(GE_CANNOT_WRITE);
    return 0;
  });
}
