#pragma once
#include <cstdint>
#include <vector>

#include "core/BisCallback.h"
#include "io/BisFileIO.h"
#include "io/CompressionEngine.h"
#include "texture/PaxErrors.h"
#include "texture/PaxMipmap.h"
#include "texture/PaxTagg.h"
#include "texture/RgbaImage.h"

class BisDLL;

// The texture tool: opens a PAA or PAC texture (a file or a memory image), checks its structure,
// lists its taggs and mipmaps through the message callback, expands the mipmaps and writes the
// texture back. Pixels stay in their stored format; nothing is converted.
class Lorvix {
 public:
  // Type words. Indexed files have none: their first two bytes already belong to a tagg ("GG") or
  // to the palette.
  enum PaxType : uint16_t {
    PAX_NONE = 0,
    PAX_DXT1 = 0xFF01, PAX_DXT2 = 0xFF02, PAX_DXT3 = 0xFF03, PAX_DXT4 = 0xFF04, PAX_DXT5 = 0xFF05,
    PAX_RGB4 = 0x4444, PAX_RGB5 = 0x1555, PAX_RGB8 = 0x8888, PAX_GREY = 0x8080, PAX_INDX = 0x4747,
  };
  // Bits of the type mask of pax_Open; 0 accepts every type.
  enum : int {
    MASK_INDX = 1, MASK_DXT1 = 2, MASK_DXT2 = 4, MASK_DXT3 = 8, MASK_DXT4 = 16, MASK_DXT5 = 32,
    MASK_RGB4 = 64, MASK_RGB5 = 128, MASK_RGB8 = 0x100, MASK_GREY = 0x200, MASK_UNTYPED = 0x400,
  };
  static constexpr uint16_t kLzoFlag = 0x8000;
  static constexpr uint16_t kSpecialWidth = 1234;
  static constexpr uint16_t kSpecialHeight = 8765;
  static constexpr uint16_t kBadPalette = 9999;
  // Marks mipmap data among the compression types; the codecs do not interpret it.
  static constexpr CompressType kTextureData = 0x10000;
  // The result of an exported call that threw a message or something unforeseen.
  static constexpr int kDetectedError = GE_UNKNOWN_EXCEPTION;

  explicit Lorvix(BisDLL* dll);
  ~Lorvix();
  Lorvix(Lorvix const&) = delete;
  Lorvix& operator=(Lorvix const&) = delete;

  // ---- reading ------------------------------------------------------------
  // Returns 0, an error code, or -1 when the type is outside `type_mask`. A memory image must
  // outlive the texture: raw mipmaps and the palette point into it.
  int pax_Open(char const* file, BisCallback callback, int type_mask = 0);
  int pax_Open(wchar_t const* file, BisCallback callback, int type_mask = 0);
  int pax_Open(unsigned char const* image, uint64_t size, BisCallback callback, int type_mask = 0);
  void Close();

  static char const* pax_GetTypeStr(int type);
  static char const* ErrorString(int code);
  // Bits per pixel of a type (indexed and untyped files: 8).
  static int pax_BitsPerPixel(int type);
  static bool pax_IsIndexed(int type) { return type == PAX_INDX || type == PAX_NONE; }
  static bool pax_IsDxt(int type) { return type >= PAX_DXT1 && type <= PAX_DXT5; }

  int pax_GetType() const { return _type; }
  BisFileIO* pax_GetIO() { return &_io; }
  BisDLL* pax_GetDll() const { return _dll; }
  std::vector<PaxTagg> const& pax_GetTaggs() const { return _taggs; }
  PaxTagg const* pax_FindTagg(PaxTagg::Kind kind) const;
  uint8_t const* pax_GetPalette(int* count) const;
  uint32_t pax_GetMipmapCount() const { return static_cast<uint32_t>(_mipmaps.size()); }
  PaxMipmap const* pax_GetMipmap(uint32_t index) const;

  // ---- building and writing -----------------------------------------------
  // Starts an empty texture of a type (its taggs: an offsets tagg only).
  void pax_New(int type);
  // Sets a tagg holding one 32-bit value (AVGC, MAXC, FLAG, SWIZ); a new tagg goes before the
  // offsets tagg. Returns 0, or Generic_Errors 4 for a flags value other than 1 or 2.
  int pax_SetTagg(PaxTagg::Kind kind, uint32_t value);
  void pax_SetProc(char const* text);
  void pax_RemoveTagg(PaxTagg::Kind kind);
  // Up to 9998 RGB triplets, for indexed textures.
  int pax_SetPalette(uint8_t const* triplets, int count);
  // Appends a mipmap (the next smaller one) with pixels of the texture's type; they are copied.
  int pax_AddMipmap(uint16_t width, uint16_t height, uint8_t const* pixels, uint64_t size);
  // Writes the texture; a name without extension gets ".paa". Mipmaps read from a file and not
  // changed are written as they were stored.
  int pax_Write(char const* file);

  // ---- pictures -----------------------------------------------------------
  struct PictureOptions {
    int type = 0;        // a PaxType, or 0: DXT5 when any pixel is not opaque, DXT1 otherwise
    bool fast = false;   // DXT: libsquish's range fit instead of its iterative cluster fit
    bool resize = false;  // sides that are not powers of two are scaled to the nearest ones
    unsigned threads = 0;  // 0: one per core
    // The texture's name: its suffix tells colour maps (filtered in linear light) from others.
    char const* name = nullptr;
  };
  // The largest picture a texture is made from, and the longest side the format holds.
  static constexpr uint64_t kMaxPicturePixels = uint64_t(1) << 26;  // 8192 x 8192
  static constexpr uint32_t kMaxSide = 16384;

  // A new texture from a PNG or TGA picture in memory: every mipmap down to the smallest the type
  // has, and the taggs a texture of its type carries (average and maximum colour, the alpha
  // flag, the offsets). Write it with pax_Write.
  int pax_FromPicture(uint8_t const* data, uint64_t size, PictureOptions const& options);
  int pax_FromRgba(RgbaImage const& picture, PictureOptions const& options);
  // One mipmap's pixels as RGBA.
  int pax_ToRgba(uint32_t mipmap, RgbaImage& out);
  // One mipmap as a PNG file: RGBA where the type has alpha (DXT1: where some pixel is
  // transparent), grey and alpha for AI88, RGB otherwise.
  int pax_ToPng(uint32_t mipmap, std::vector<uint8_t>& png);
  static int pax_PngChannels(int type, RgbaImage const& pixels);

 private:
  void _open_common(int type_mask);
  int _read(int type_mask);
  void _read_taggs();
  void _read_tagg();
  void _read_palette();
  void _read_mipmaps();
  void _read_mipmap(PaxMipmap& mm, uint64_t offset);
  void _expand(PaxMipmap& mm);
  void _read_end();
  void _write(char const* file);
  bool _code_mipmap(PaxMipmap const& mm, CompressionEngine& engine, std::vector<uint8_t>& out, bool& lzo) const;
  CompressType _mipmap_type(PaxMipmap const& mm) const;
  void _from_rgba(RgbaImage picture, PictureOptions const& options);
  void _decode(uint32_t mipmap, RgbaImage& out);

  BisDLL* _dll;
  BisFileIO _io;
  CompressionEngine _engine;
  int _type = PAX_NONE;
  std::vector<PaxTagg> _taggs;
  std::vector<PaxMipmap> _mipmaps;
  uint8_t const* _palette = nullptr;
  int _palette_count = 0;
  std::vector<uint8_t> _own_palette;
};
