#pragma once
#include <cstdint>
#include <vector>

#include "core/BisCallback.h"
#include "io/BisFileIO.h"
#include "text/Chains.h"
#include "texture/HollinErrors.h"
#include "texture/TexHeader.h"

class BisDLL;
class Lorvix;

// The texture header index tool: reads texHeaders.bin, the index of texture headers an archive
// carries beside its textures, checks every field whose value is fixed and keeps one TexHeader per
// texture. The first violation ends the read with its code. It also makes the index of a set of
// textures, as a binarised addon carries it.
class Hollin : public Chains {
 public:
  explicit Hollin(BisDLL* dll);
  ~Hollin() override;

  // With an image the index is read in place (the image must outlive the entries); otherwise the
  // named file, ".bin" when the name has no extension.
  int tex_Open(char const* file, BisCallback callback, unsigned char const* image = nullptr,
               unsigned long size = 0);
  int tex_Open(wchar_t const* file, BisCallback callback, unsigned char const* image = nullptr,
               unsigned long size = 0);
  void Close();
  static char const* ErrorString(int code);

  TexHeader* tex_GetEntry(uint64_t index) const { return static_cast<TexHeader*>(GetChain(index)); }

  // ---- making an index ----------------------------------------------------
  // Starts an empty index (what was read is dropped).
  void tex_New();
  // Lists an open texture under `path`, the name the game looks it up by below the index's folder
  // (stored in lower case with backslashes); `file_size` is the size of its file. The texture's
  // taggs give the colours and alpha kind, its offsets tagg (or where its mipmaps were read) the
  // mipmap offsets.
  int tex_AddTexture(char const* path, Lorvix const& texture, uint64_t file_size);
  // The index's bytes, or the index written to a file.
  int tex_Output(std::vector<uint8_t>& out);
  int tex_Write(char const* file);
  // The number the index gives a texture type word.
  static uint32_t tex_TypeCode(int pax_type);
  BisFileIO* tex_GetIO() { return &_io; }
  BisDLL* tex_GetDll() const { return _dll; }

 private:
  int _read();
  void _read_entry(TexHeader& e);
  void _add(char const* path, Lorvix const& texture, uint64_t file_size);
  void _output(std::vector<uint8_t>& out) const;

  BisDLL* _dll;
  BisFileIO _io;
};
