#include "io/CompressedStruct.h"

#include <cassert>
#include <cstring>
#include <new>
#include <utility>

#include "core/Generic_Errors.h"
#include "io/BisFileIO.h"
#include "io/CompressionEngine.h"

namespace {
constexpr uint64_t kRawThreshold = 1024;  // smaller arrays are stored raw: compression would not pay
// Arrays that the file states but does not back with bytes (fill values, grids) are capped when the
// count itself came from the file, so a damaged count cannot demand gigabytes.
constexpr uint64_t kMaxUnbackedBytes = uint64_t(64) << 20;
constexpr CompressType kMethods = CT_LZO | CT_LZSS | CT_LZSS_SIGNED | CT_RLE;

CompressionEngine& expansion_engine() {
  // Expanding keeps no state in the engine, so one shared engine serves arrays that have none.
  static CompressionEngine engine;
  return engine;
}
}  // namespace

CompressedStruct::CompressedStruct(uint32_t element_size, CompressionEngine* engine)
    : _elementSize(element_size), _engine(engine) {}

CompressedStruct::~CompressedStruct() { cs_Release(); }

CompressedStruct::CompressedStruct(CompressedStruct&& other) noexcept { *this = std::move(other); }

CompressedStruct& CompressedStruct::operator=(CompressedStruct&& other) noexcept {
  if (this == &other) return *this;
  cs_Release();
  _Array = std::exchange(other._Array, nullptr);
  _count = std::exchange(other._count, 0);
  _capacity = std::exchange(other._capacity, 0);
  _owned = std::exchange(other._owned, 0);
  _state = other._state;
  _elementSize = other._elementSize;
  _engine = other._engine;
  _storedStart = other._storedStart;
  _storedLength = other._storedLength;
  _payload = other._payload;
  _readType = other._readType;
  _modified = other._modified;
  _grid = std::move(other._grid);
  return *this;
}

void CompressedStruct::cs_Release() {
  if (_owned) delete[] _Array;
  _Array = nullptr;
  _owned = 0;
  _count = 0;
  _capacity = 0;
  _storedStart = _payload = nullptr;
  _storedLength = 0;
}

void CompressedStruct::cs_DropExpanded() {
  if (!_owned || _modified || !_payload || !_storedStart) return;
  delete[] _Array;
  _Array = nullptr;
  _owned = 0;  // the count and capacity still describe the array, which is written back whole
}

uint64_t CompressedStruct::bytes_of(uint64_t count) const {
  if (_elementSize && count > UINT64_MAX / _elementSize) throw GE_NO_MEMORY;
  return count * _elementSize;
}

uint8_t* CompressedStruct::allocate_bytes(uint64_t bytes) {
  if (_owned) delete[] _Array;
  _Array = nullptr;
  _owned = 0;
  _capacity = 0;
  _Array = new (std::nothrow) uint8_t[bytes ? bytes : 1]();
  if (!_Array) throw GE_NO_MEMORY;
  _owned = 1;
  _capacity = bytes;
  return _Array;
}

uint8_t* CompressedStruct::cs_Allocate(uint64_t count) {
  uint8_t* p = allocate_bytes(bytes_of(count));
  _count = count;
  return p;
}

void CompressedStruct::cs_CopyIn(void const* data, uint64_t count) {
  uint64_t bytes = bytes_of(count);
  if (!_owned || count != _count) cs_Allocate(count);
  if (bytes) std::memcpy(_Array, data, bytes);
  _modified = true;
}

void CompressedStruct::point_raw(BisFileIO& io, uint64_t bytes) {
  _payload = io.io_GetAddress();
  _Array = io.io_GetAddressAndUpdate(bytes);
  _capacity = bytes;
}

void CompressedStruct::expand(BisFileIO& io, CompressType type, uint64_t bytes) {
  uint8_t const* source = io.io_GetAddress();
  uint64_t const available = io.io_RemainingBytes();
  // No block of the remaining bytes could expand this far: the file ends before the array does.
  if (bytes > cmp_ExpandLimit(available, type)) throw GE_EOF;
  allocate_bytes(bytes);
  _payload = source;
  int64_t consumed = cmp_Expand(_engine ? *_engine : expansion_engine(), source, available, _Array, bytes, type);
  if (consumed < 0) throw GE_EOF;  // a run-length block that does not fit
  io.io_AddOffset(consumed);
}

int CompressedStruct::ReadCompressed(BisFileIO& io, CompressType type, uLongPair dimensions,
                                     uint64_t expanded_size) {
  uint64_t const start = io.io_GetCurrentOffset();
  _storedStart = nullptr;
  _storedLength = 0;
  _payload = nullptr;
  int r = __ReadCompressed(io, type, dimensions, expanded_size);
  _storedStart = io.io_GetRawData() ? io.io_GetRawData() + start : nullptr;
  _storedLength = io.io_GetCurrentOffset() - start;
  _readType = type;
  _modified = false;
  return r;
}

int CompressedStruct::__ReadCompressed(BisFileIO& io, CompressType type, uLongPair dimensions,
                                       uint64_t expanded_size) {
  if (_Array) {
    assert(!_Array);
    throw GE_CODE_BUG;
  }
  _owned = 0;
  _state = 0;

  if (type & CT_TRIBYTE_SIZE) {
    _count = io.io_ReadTriByte();
    if (!(type & CT_METHOD_MASK))
      point_raw(io, bytes_of(_count));
    else
      expand(io, type, expanded_size);
    return 1;
  }

  uint64_t count = uint32_t(dimensions.x * dimensions.y);
  bool const count_from_file = count == 0;
  if (count_from_file) {
    int32_t stored = io.io_ReadLong();
    if (stored < 0) throw GE_INVALID_FILE;
    count = uint64_t(stored);
  }
  _count = count;
  auto check_unbacked = [&](uint64_t bytes) {
    if (count_from_file && bytes > kMaxUnbackedBytes) throw GE_NO_MEMORY;
  };

  if (type & CT_GRID) {
    _payload = io.io_GetAddress();
    int flag = io.io_ReadByte();
    if (flag == 0) {
      io.io_ReadLong();
      _count = 0;
      return 1;
    }
    if (flag != 1) return 0;
    if (count > UINT64_MAX / 2) throw GE_NO_MEMORY;
    check_unbacked(bytes_of(2 * count));
    allocate_bytes(bytes_of(2 * count));
    if (!_grid || !_grid->decoder) throw GE_CODE_BUG;  // the owning format must say how its grids are stored
    _grid->decoder(io, *this, dimensions, type);
    return 1;
  }

  if ((type & CT_FILL_BYTE) && (type & (CT_LZO | CT_LZSS))) {
    int fill = io.io_ReadByte();
    if (fill == 1) {
      _state |= CS_FILLED;
      if (count == 0) return 1;
      uint64_t const bytes = bytes_of(count);
      check_unbacked(bytes);
      _payload = io.io_GetAddress();
      io.io_Require(_elementSize);
      allocate_bytes(bytes);
      io.io_ReadBlock(_Array, _elementSize);
      // Fill by doubling the filled part: whole elements each time, few calls for big arrays.
      for (uint64_t done = _elementSize; done < bytes; done *= 2)
        std::memcpy(_Array + done, _Array, done < bytes - done ? done : bytes - done);
      return 1;
    }
    if (fill != 0) throw "fill byte not zero or 1";
  }

  if (count == 0) return 1;
  uint64_t const bytes = bytes_of(count);

  if (type & CT_FLAG_BYTE) {
    int flag = io.io_ReadByte();
    if (flag == 0) {
      point_raw(io, bytes);
      return 1;
    }
    if (flag != 2) io.io_throw(GE_CODE_BUG, "%s", "\r\nv64 compression flag\r\n");
    _state |= CS_COMPRESSED;
    expand(io, type, bytes);
    return 1;
  }

  if (!(type & CT_METHOD_MASK) || bytes < kRawThreshold)
    point_raw(io, bytes);
  else
    expand(io, type, bytes);
  return 1;
}

bool CompressedStruct::can_reuse_stored(CompressType type) const {
  return !_modified && _payload && _storedStart && !(type & CT_FORCE_RECOMPRESS) &&
         (type & kMethods) == (_readType & kMethods);
}

void CompressedStruct::write_stored_payload(BisFileIO& io) const {
  io.io_WriteBlock(_payload, _storedLength - uint64_t(_payload - _storedStart));
}

void CompressedStruct::write_compressed(BisFileIO& io, CompressType type, uint64_t bytes, bool tribyte_size) const {
  std::unique_ptr<CompressionEngine> own;
  CompressionEngine* engine = _engine;
  if (!engine) {
    own = std::make_unique<CompressionEngine>();
    engine = own.get();
  }
  int64_t size = cmp_Compress(*engine, _Array, bytes, type);
  if (size < 0) throw GE_CANNOT_WRITE;
  if (tribyte_size) {
    if (size > 0xFFFFFF) throw GE_CANNOT_WRITE;
    io.io_WriteTriByte(uint32_t(size));
  }
  io.io_WriteBlock(engine->cmp_GetOutput(), uint64_t(size));
}

void CompressedStruct::WriteCompressed(BisFileIO& io, CompressType type, uint64_t count) const {
  uint64_t const bytes = bytes_of(count);
  if (bytes > _capacity) throw GE_CODE_BUG;  // more elements asked for than the array holds
  if (!_Array && bytes && !can_reuse_stored(type)) throw GE_CODE_BUG;  // expansion dropped, form changed

  if (type & CT_TRIBYTE_SIZE) {
    CompressType method = 0;
    if (type & CT_RLE)
      method = CT_RLE;
    else if (type & CT_LZO)
      method = CT_LZO;
    else if (type & CT_LZSS_SIGNED)
      method = CT_LZSS_SIGNED;
    if (!method) {
      if (count > 0xFFFFFF) throw GE_CANNOT_WRITE;
      io.io_WriteTriByte(uint32_t(count));
      io.io_WriteBlock(_Array, bytes);
      return;
    }
    if (method == CT_LZSS_SIGNED && can_reuse_stored(type)) {
      io.io_WriteTriByte(uint32_t(_storedLength - 3));
      write_stored_payload(io);
      return;
    }
    write_compressed(io, method, bytes, true);
    return;
  }

  if (type & CT_WRITE_COUNT) io.io_WriteUlong(uint32_t(count));

  if (type & CT_GRID) {
    if (can_reuse_stored(type)) {
      write_stored_payload(io);  // the grid flag and all that follows it
      return;
    }
    if (count == 0) {
      io.io_WriteByte(0);
      io.io_WriteLong(0);
      return;
    }
    io.io_WriteByte(1);
    if (!_grid || !_grid->encoder) throw GE_CODE_BUG;
    _grid->encoder(io, *this, type);
    return;
  }

  if ((type & CT_FILL_BYTE) && (type & (CT_LZO | CT_LZSS))) {
    if (count == 0) {
      io.io_WriteByte(_state & CS_FILLED);
      return;
    }
    if (can_reuse_stored(type)) {
      // As read: one element when it was stored filled, otherwise the array's own stored form.
      io.io_WriteByte(_state & CS_FILLED);
      if (_state & CS_FILLED) {
        write_stored_payload(io);
        return;
      }
    } else {
      bool same = true;
      for (uint64_t at = _elementSize; same && at < bytes; at += _elementSize)
        same = std::memcmp(_Array + at, _Array, _elementSize) == 0;
      io.io_WriteByte(same ? 1 : 0);
      if (same) {
        io.io_WriteBlock(_Array, _elementSize);
        return;
      }
    }
  } else if (count == 0) {
    return;
  }

  // The compression flag byte comes with bit 0x800 alone, as the reader expects it.
  bool raw = !(type & kMethods) || bytes < kRawThreshold;
  if (type & CT_FLAG_BYTE) {
    raw = !(_state & CS_COMPRESSED);
    io.io_WriteByte(raw ? 0 : 2);
  }
  if (!raw) {
    if (can_reuse_stored(type))
      write_stored_payload(io);
    else
      write_compressed(io, type, bytes, false);
    return;
  }
  io.io_WriteBlock(_Array, bytes);
}
