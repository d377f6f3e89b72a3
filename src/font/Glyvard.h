#pragma once
#include <cstdint>
#include <memory>

class BisDLL;
class BisFileIO;

// The font tool's own result codes (0-9 are Generic_Errors).
enum FxyErrors : int {
  FXY_NON_MODULAR = 10,
  FXY_UNKNOWN_HEADER = 11,
};

// The font tool: opens an FXY glyph table, tells its form (the headerless 224-glyph table of the
// first game, or the "BIFo" table of the later ones) and hands out its records untouched.
class Glyvard {
 public:
  static constexpr uint32_t kOfpRecords = 224;
  static constexpr uint32_t kOfpRecordSize = 12;
  static constexpr uint32_t kArmaRecordSize = 14;
  static constexpr uint32_t kArmaVersion = 257;

  explicit Glyvard(BisDLL* dll);
  ~Glyvard();
  Glyvard(Glyvard const&) = delete;
  Glyvard& operator=(Glyvard const&) = delete;

  // With a buffer the font is read from it (the buffer must outlive the records; `file` only
  // names it); otherwise the named file, ".fxy" when the name has no extension.
  int fxy_Open(char const* file, unsigned char const* buffer = nullptr, unsigned long size = 0);
  int fxy_Open(wchar_t const* file, unsigned char const* buffer = nullptr, unsigned long size = 0);
  // The record at `index` in the loaded data, null at or beyond the count.
  unsigned char const* fxy_GetEntry(unsigned long index) const;
  bool fxy_IsArma() const;
  unsigned long fxy_GetCount() const;
  uint32_t fxy_GetRecordSize() const { return fxy_IsArma() ? kArmaRecordSize : kOfpRecordSize; }
  BisFileIO* fxy_GetIO();
  void Close();
  static char const* ErrorString(int code);

 private:
  struct Impl;
  std::unique_ptr<Impl> _impl;
};
