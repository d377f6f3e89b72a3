#pragma once
#include <cstdint>

#include "core/BisCallback.h"
#include "io/BisFileIO.h"
#include "text/Chains.h"
#include "texture/HollinErrors.h"
#include "texture/TexHeader.h"

class BisDLL;

// The texture header index tool: reads texHeaders.bin, the index of texture headers an archive
// carries beside its textures, checks every field whose value is fixed and keeps one TexHeader per
// texture. The first violation ends the read with its code.
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
  BisFileIO* tex_GetIO() { return &_io; }
  BisDLL* tex_GetDll() const { return _dll; }

 private:
  int _read();
  void _read_entry(TexHeader& e);

  BisDLL* _dll;
  BisFileIO _io;
};
