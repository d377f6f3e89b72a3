#include "texture/Hollin.h"

#include <cstring>
#include <string>

#include "core/BisDLL.h"
#include "core/GuardedCall.h"
#include "text/FileStringA.h"
#include "texture/ErrorTexts.h"

Hollin* BisDLL::dll_GetHollin() { return dll_slot<Hollin>(SLOT_HOLLIN); }

namespace {
uint32_t le32(uint8_t const* p) {
  uint32_t v;
  std::memcpy(&v, p, 4);
  return v;
}
}  // namespace

Hollin::Hollin(BisDLL* dll) : _dll(dll), _io(dll) {}

Hollin::~Hollin() = default;

char const* Hollin::ErrorString(int code) {
  static char const* const texts[] = {
      "Texerr: non mime",
      "Texerr: residual bytes at eof",
      "Texerr: 'Always0' not not zero",
      "Texerr: 'Always00' not not zero",
      "Texerr: 'Always1' not1",
      "Texerr: 'alwaysdefault' != -1",
      "Texerr: 'not always 11' ",
      "Texerr: HOLLIN_MIPMAP_NOT_0 ",
      "Texerr: nMipmaps not same",
      "Texerr: 'maxcolor'",
      "Texerr: mimmap type mismatch",
  };
  return tool_error_text(code, texts);
}

void Hollin::Close() {
  DeleteAllChain();
  _io.io_Close();
}

int Hollin::tex_Open(char const* file, BisCallback callback, unsigned char const* image, unsigned long size) {
  // A failure ends with nothing half read: the entries go with the file.
  int r = bis_guarded_call<HollinErrors>(_io, GE_UNKNOWN_EXCEPTION, GE_UNKNOWN_EXCEPTION, [&] {
    Close();
    _io.io_SetStdioCallBack(callback);
    if (image) {
      _io.io_OpenPseudoFile(image, size);
    } else if (!file || !*file || !_io.io_OpenFile(file, "bin")) {
      return int(GE_INVALID_FILE);
    }
    return _read();
  });
  if (r) Close();
  return r;
}

int Hollin::tex_Open(wchar_t const* file, BisCallback callback, unsigned char const* image, unsigned long size) {
  std::string name = file ? FileStringA::fs_convert_to_utf8(file) : std::string();
  return tex_Open(file ? name.c_str() : nullptr, callback, image, size);
}

int Hollin::_read() {
  char mime[5];
  _io.io_ReadMime(mime);
  if (std::memcmp(mime, "0DHT", 5) != 0 || _io.io_ReadUlong() != 1) throw HOLLIN_NON_MIME;
  uint32_t count = _io.io_ReadUlong();
  for (uint32_t i = 0; i < count; ++i) {
    // Each texture takes at least its record, so a damaged count cannot outrun the file by much.
    _io.io_Require(TexHeader::kRecordSize);
    auto* e = static_cast<TexHeader*>(AddChain(new TexHeader));
    _read_entry(*e);
  }
  if (_io.io_RemainingBytes()) throw HOLLIN_RESIDUAL;
  return 0;
}

void Hollin::_read_entry(TexHeader& e) {
  uint8_t const* r = _io.io_GetAddressAndUpdate(TexHeader::kRecordSize);
  e.record = r;
  if (le32(r + 4) != 0) throw HOLLIN_ALWAYS0;
  if (le32(r + 32) != 0) throw HOLLIN_ALWAYS00;
  if (le32(r + 0) != 1) throw HOLLIN_ALWAYS1;
  if (le32(r + 36) != 0xFFFFFFFFu) throw HOLLIN_ALWAYS_DEFAULT;
  uint16_t endian = static_cast<uint16_t>(r[52] | r[53] << 8);
  if (endian != 0x0001 && endian != 0x0101) throw HOLLIN_NOT_ALWAYS_11;
  e.path = _io.io_ReadAsciiz();
  uint32_t flags = le32(r + 40);
  if (flags > 0x1FFFFFF || r[40] > 1 || r[41] > 1 || r[42] > 1)
    _io.io_throw(GE_DEBUG_TRAP, "%04X: flagbytes umknown\r\n", flags);
  e.suffix = _io.io_ReadUlong();
  e.mipmap_count = _io.io_ReadUlong();
  if (e.mipmap_count != le32(r + 44)) throw HOLLIN_MIPMAPS_NOT_SAME;
  e.mipmaps = _io.io_GetAddressAndUpdate(uint64_t(e.mipmap_count) * TexHeader::kMipmapEntrySize);
  if (e.mipmap_count) {
    uint8_t const* m = e.mipmaps;
    if (m[4] || m[5]) throw HOLLIN_MIPMAP_NOT_0;
    if (m[7] != 3) throw GE_DEBUG_TRAP;
    if (m[6] != le32(r + 48)) throw HOLLIN_MIPMAP_TYPE;
  }
  e.file_size = _io.io_ReadUlong();
}
