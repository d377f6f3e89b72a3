#include "font/Glyvard.h"

#include <cstring>
#include <string>

#include "core/BisDLL.h"
#include "core/GenericError.h"
#include "core/GuardedCall.h"
#include "io/BisFileIO.h"
#include "text/FileStringA.h"

Glyvard* BisDLL::dll_GetGlyvard() { return dll_slot<Glyvard>(SLOT_GLYVARD); }

struct Glyvard::Impl {
  unsigned long count = 0;
  bool arma = false;
  BisFileIO io;
  explicit Impl(BisDLL* dll) : io(dll) {}
  // The records follow the 8-byte header of the later form; the first game's have none.
  uint8_t const* records() const {
    uint8_t const* data = io.io_GetRawData();
    return data ? data + (arma ? 8 : 0) : nullptr;
  }
};

Glyvard::Glyvard(BisDLL* dll) : _impl(std::make_unique<Impl>(dll)) {}

Glyvard::~Glyvard() = default;

char const* Glyvard::ErrorString(int code) {
  long long c = code < 0 ? -static_cast<long long>(code) : code;
  switch (c) {
    case FXY_NON_MODULAR: return "Fxy: non modular filesize";
    case FXY_UNKNOWN_HEADER: return "Fxy: unknown header type";
    default: return GenericError::ErrorString(c > 0x7fffffff ? -1 : static_cast<int>(c));
  }
}

void Glyvard::Close() {
  _impl->io.io_Close();
  _impl->count = 0;
  _impl->arma = false;
}

BisFileIO* Glyvard::fxy_GetIO() { return &_impl->io; }
bool Glyvard::fxy_IsArma() const { return _impl->arma; }
unsigned long Glyvard::fxy_GetCount() const { return _impl->count; }

unsigned char const* Glyvard::fxy_GetEntry(unsigned long index) const {
  if (index >= _impl->count) return nullptr;
  return _impl->records() + index * fxy_GetRecordSize();
}

int Glyvard::fxy_Open(char const* file, unsigned char const* buffer, unsigned long size) {
  Impl& s = *_impl;
  int r = bis_guarded_call<FxyErrors>(s.io, GE_UNKNOWN_EXCEPTION, GE_UNKNOWN_EXCEPTION, [&] {
    Close();
    if (buffer) {
      s.io.io_OpenPseudoFile(buffer, size);
    } else if (!file || !*file || !s.io.io_OpenFile(file, "fxy")) {
      return int(GE_INVALID_FILE);
    }
    s.count = kOfpRecords;
    s.arma = false;
    // The first game's table has no header at all: its size is its only signature, and it wins
    // even over a "BIFo" at the start.
    if (s.io.io_RemainingBytes() != uint64_t(kOfpRecords) * kOfpRecordSize) {
      char mime[5];
      s.io.io_ReadMime(mime);
      if (std::memcmp(mime, "BIFo", 4) != 0 || s.io.io_ReadUlong() != kArmaVersion) throw FXY_UNKNOWN_HEADER;
      s.arma = true;
      if (s.io.io_RemainingBytes() % kArmaRecordSize) throw FXY_NON_MODULAR;
      s.count = static_cast<unsigned long>(s.io.io_RemainingBytes() / kArmaRecordSize);
    }
    return 0;
  });
  if (r) Close();
  return r;
}

int Glyvard::fxy_Open(wchar_t const* file, unsigned char const* buffer, unsigned long size) {
  std::string name = file ? FileStringA::fs_convert_to_utf8(file) : std::string();
  return fxy_Open(file ? name.c_str() : nullptr, buffer, size);
}
