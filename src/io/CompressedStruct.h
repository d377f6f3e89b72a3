#pragma once
#include <cstdint>
#include <functional>
#include <memory>

#include "io/BisTypes.h"
#include "io/CompressType.h"

class BisFileIO;
class CompressionEngine;

// One length-prefixed, optionally compressed array of a model, terrain, texture or animation
// record. Arrays stored raw are not copied: they point into the reader's buffer, which must outlive
// this object. Every read records where the array's stored form lies so that an array written back
// unchanged reproduces its file bytes exactly.
class CompressedStruct {
 public:
  // Decodes a grid announced by flag byte 1. The array already holds 2 x count zeroed elements.
  using GridDecoder =
      std::function<void(BisFileIO& io, CompressedStruct& array, uLongPair dimensions, CompressType type)>;
  // Writes a grid after its flag byte 1 when the stored form cannot be reused.
  using GridEncoder = std::function<void(BisFileIO& io, CompressedStruct const& array, CompressType type)>;

  enum : uint8_t {
    CS_FILLED = 1,      // stored as one element that fills the array
    CS_COMPRESSED = 2,  // stored compressed under a compression flag byte
  };

  explicit CompressedStruct(uint32_t element_size = 1, CompressionEngine* engine = nullptr);
  ~CompressedStruct();
  CompressedStruct(CompressedStruct const&) = delete;
  CompressedStruct& operator=(CompressedStruct const&) = delete;
  CompressedStruct(CompressedStruct&& other) noexcept;
  CompressedStruct& operator=(CompressedStruct&& other) noexcept;

  void cs_SetElementSize(uint32_t size) { _elementSize = size; }
  void cs_SetEngine(CompressionEngine* engine) { _engine = engine; }
  void cs_SetGridDecoder(GridDecoder decoder) { grid().decoder = std::move(decoder); }
  void cs_SetGridEncoder(GridEncoder encoder) { grid().encoder = std::move(encoder); }

  // Reads one array at the cursor and records its stored form. Returns 1, or 0 for an unknown
  // grid flag. `expanded_size` (bytes) is used by arrays with a 3-byte size.
  int ReadCompressed(BisFileIO& io, CompressType type, uLongPair dimensions = {}, uint64_t expanded_size = 0);
  // The same without recording.
  int __ReadCompressed(BisFileIO& io, CompressType type, uLongPair dimensions, uint64_t expanded_size);
  // Writes `count` elements in the form the type asks for.
  void WriteCompressed(BisFileIO& io, CompressType type, uint64_t count) const;

  // Zero-filled owned storage; a previous owned array is freed. Throws Generic_Errors 2.
  uint8_t* cs_Allocate(uint64_t count);
  uint8_t* cs_Allocate(uLongPair dimensions) { return cs_Allocate(uint64_t(dimensions.x) * dimensions.y); }
  // Replaces the contents with `count` elements and marks the array modified.
  void cs_CopyIn(void const* data, uint64_t count);
  void cs_Release();
  // Frees what was expanded from a compressed stored form that is kept: the array can then only be
  // written back unchanged (from that form), not read. Arrays a reader keeps only to write them
  // back cost no memory of their own this way.
  void cs_DropExpanded();

  // Arrays pointing into the input must not be written through; use cs_CopyIn.
  uint8_t* cs_Array() const { return _Array; }
  template <class T>
  T* cs_As() const {
    return reinterpret_cast<T*>(_Array);
  }
  uint64_t cs_Count() const { return _count; }
  uint32_t cs_ElementSize() const { return _elementSize; }
  bool cs_IsOwned() const { return _owned != 0; }
  uint8_t cs_State() const { return _state; }
  void cs_SetState(uint8_t state) { _state = state; }
  bool cs_IsModified() const { return _modified; }
  void cs_SetModified(bool modified) { _modified = modified; }
  uint8_t const* cs_StoredStart() const { return _storedStart; }
  uint64_t cs_StoredLength() const { return _storedLength; }

 private:
  uint8_t* _Array = nullptr;
  uint64_t _count = 0;
  uint64_t _capacity = 0;  // bytes that _Array may be read from
  uint8_t _owned = 0;
  uint8_t _state = 0;
  uint32_t _elementSize;
  CompressionEngine* _engine;
  uint8_t const* _storedStart = nullptr;
  uint64_t _storedLength = 0;
  uint8_t const* _payload = nullptr;  // within the stored form: what follows the header fields
  CompressType _readType = 0;
  bool _modified = false;
  // Only arrays stored as grids have coders: kept apart, the many other arrays a model or record
  // holds stay small.
  struct GridCoders {
    GridDecoder decoder;
    GridEncoder encoder;
  };
  std::unique_ptr<GridCoders> _grid;

  GridCoders& grid() {
    if (!_grid) _grid = std::make_unique<GridCoders>();
    return *_grid;
  }

  uint8_t* allocate_bytes(uint64_t bytes);
  void point_raw(BisFileIO& io, uint64_t bytes);
  void expand(BisFileIO& io, CompressType type, uint64_t bytes);
  uint64_t bytes_of(uint64_t count) const;
  bool can_reuse_stored(CompressType type) const;
  void write_stored_payload(BisFileIO& io) const;
  void write_compressed(BisFileIO& io, CompressType type, uint64_t bytes, bool tribyte_size) const;
};
