#pragma once
#include <cstdint>

#include "text/Chains.h"
#include "text/FileStringA.h"

class Vendrak;

// One file of an archive: its header record and, once read, its bytes. The bytes either point into
// the archive's memory buffer (not owned) or belong to the entry (unpacked, decoded or read from
// disk).
class pbo_entry : public Chain {
 public:
  // Packing methods as stored in the header ("Cprs" and "Vers" read as little-endian words).
  static constexpr uint32_t kStored = 0;
  static constexpr uint32_t kCompressed = 0x43707273;
  static constexpr uint32_t kProperties = 0x56657273;

  pbo_entry() = default;
  ~pbo_entry() override;

  char const* pbe_GetFilename() const { return _name.c_str(); }
  void pbe_SetFilename(char const* name);
  void pbe_SetFilename(wchar_t const* name);
  char const* pbe_GetFilenameAndExtOnly() const { return _name.fs_GetFilenameAndExt(); }
  FileString& pbe_GetName() { return _name; }
  uint8_t const* pbe_GetData() const { return _data; }
  bool pbe_iscompressed() const { return _original_size != 0 && _original_size != _data_size; }
  int pbe_FileIs() const { return FileStringA::fs_FileIs(_name.c_str()); }
  bool pbe_HasData() const { return _data != nullptr; }

  // Loads a disk file as the entry's data (the entry owns it); returns false when it cannot be read.
  bool pbe_fread(char const* path);
  // Replaces the data with a decoded config text (owned copy) and marks the entry as decoded.
  void pbe_SetKaltorpedData(char const* text);
  bool pbe_WasRapped() const { return _rapped; }

  uint32_t pbe_GetPackingMethod() const { return _method; }
  uint64_t pbe_GetOriginalSize() const { return _original_size; }
  uint32_t pbe_GetReserved() const { return _reserved; }
  uint64_t pbe_GetTimeStamp() const { return _timestamp; }
  uint64_t pbe_GetDataSize() const { return _data_size; }
  uint64_t pbe_GetStoredDataSize() const { return _stored_size; }
  uint64_t pbe_GetDataOffset() const { return _offset; }
  uint64_t pbe_GetUnpackedSize() const { return _unpacked_size; }
  bool pbe_OwnsData() const { return _owns; }
  pbo_entry* GetNext() const { return static_cast<pbo_entry*>(Chain::GetNext()); }

  // Releases the data when the entry owns it (borrowed data is only forgotten) and returns the
  // entry to its state in the file, so that a later read takes the bytes afresh.
  void pbe_FreeData();

 private:
  friend class Vendrak;
  void _set_record(uint32_t method, uint32_t original, uint32_t reserved, uint32_t timestamp, uint32_t size,
                   uint64_t offset);
  void _borrow(uint8_t const* data, uint64_t size);
  void _adopt(uint8_t* data, uint64_t size);  // data from new[], now the entry's
  void _release();

  FileString _name;
  uint32_t _method = 0;
  uint32_t _file_method = 0;  // the method as read, restored when the data is freed
  uint64_t _original_size = 0;
  uint32_t _reserved = 0;
  uint64_t _timestamp = 0;
  uint64_t _data_size = 0;
  uint8_t* _data = nullptr;
  uint64_t _stored_size = 0;
  uint64_t _offset = 0;
  uint64_t _unpacked_size = 0;
  bool _owns = false;
  bool _rapped = false;
};
