#include "pbo/pbo_entry.h"

#include <cstring>
#include <string>

#include "core/LinuxCompat.h"
#include "io/BisFileIO.h"

pbo_entry::~pbo_entry() { _release(); }

void pbo_entry::pbe_SetFilename(char const* name) { _name = name ? name : ""; }

void pbo_entry::pbe_SetFilename(wchar_t const* name) {
  if (!name) {
    _name = "";
    return;
  }
  int n = WideCharToMultiByte(CP_UTF8, 0, name, -1, nullptr, 0, nullptr, nullptr);
  if (n <= 0) {
    _name = "";
    return;
  }
  std::string out(static_cast<size_t>(n) + 1, '\0');
  WideCharToMultiByte(CP_UTF8, 0, name, -1, out.data(), static_cast<int>(out.size()), nullptr, nullptr);
  _name = out.c_str();
}

void pbo_entry::_release() {
  if (_owns) delete[] _data;
  _data = nullptr;
  _owns = false;
}

void pbo_entry::pbe_FreeData() {
  _release();
  _method = _file_method;
  _data_size = _stored_size;
  _rapped = false;
}

void pbo_entry::_set_record(uint32_t method, uint32_t original, uint32_t reserved, uint32_t timestamp,
                            uint32_t size, uint64_t offset) {
  _method = method;
  _file_method = method;
  _original_size = original;
  _reserved = reserved;
  _timestamp = timestamp;
  _data_size = size;
  _stored_size = size;
  _offset = offset;
  _unpacked_size = original ? original : size;
}

void pbo_entry::_borrow(uint8_t const* data, uint64_t size) {
  _release();
  _data = const_cast<uint8_t*>(data);
  _data_size = size;
  _owns = false;
}

void pbo_entry::_adopt(uint8_t* data, uint64_t size) {
  _release();
  _data = data;
  _data_size = size;
  _owns = true;
}

bool pbo_entry::pbe_fread(char const* path) {
  BisFileIO io;
  uint8_t* buffer = nullptr;
  long long n = io.io_ReadFile(path, buffer);
  if (n < 0) return false;
  _adopt(buffer, static_cast<uint64_t>(n));
  _method = _file_method = kStored;
  _original_size = 0;
  _stored_size = static_cast<uint64_t>(n);
  _unpacked_size = static_cast<uint64_t>(n);
  _timestamp = static_cast<uint64_t>(BisFileIO::io_GetFileDate(path));
  return true;
}

void pbo_entry::pbe_SetKaltorpedData(char const* text) {
  size_t len = text ? std::strlen(text) : 0;
  auto* copy = new uint8_t[len + 1];
  if (len) std::memcpy(copy, text, len);
  copy[len] = 0;
  _adopt(copy, len);
  _method = kStored;
  _rapped = true;
}
