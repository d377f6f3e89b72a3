// Writing editable models. What was read is written back as it was stored (fixed-width fields
// with whatever followed their text), so that a model that needed no repair comes back byte for
// byte; trimmed names lose only their trailing blanks.
#include <cstring>

#include "p3d/Morvane.h"
#include "p3d/OdolModel.h"

namespace {
// A text in a fixed field of `size` bytes. When the text is a view into the field as read, the
// field goes out as stored except for the blanks trimmed off the text, which become zeros.
void write_fixed(BisFileIO& io, uint8_t const* field, size_t size, std::string_view text) {
  auto const* f = reinterpret_cast<char const*>(field);
  if (f && text.data() >= f && text.data() + text.size() <= f + size) {
    size_t start = static_cast<size_t>(text.data() - f);
    size_t stored = strnlen(f + start, size - start);
    io.io_WriteBlock(field, start + text.size());
    for (size_t i = text.size(); i < stored; ++i) io.io_WriteByte(0);
    io.io_WriteBlock(field + start + stored, size - start - stored);
    return;
  }
  size_t n = text.size() < size ? text.size() : size - 1;
  io.io_WriteBlock(text.data(), n);
  for (size_t i = n; i < size; ++i) io.io_WriteByte(0);
}

void write_asciiz(BisFileIO& io, std::string_view text) {
  io.io_WriteBlock(text.data(), text.size());
  io.io_WriteByte(0);
}

// Closes the output however the writing ends.
struct OutputGuard {
  BisFileIO& io;
  ~OutputGuard() { io.io_CloseOutput(); }
};
}  // namespace

int Morvane::p3d_Create(char const* file, int mode) {
  return _guarded([&] { return _write_worker(file, !_odol || mode < 0); });
}

int Morvane::p3d_UnBinarised(char const* file) {
  return _guarded([&] { return _write_worker(file, true); });
}

int Morvane::p3d_Create(wchar_t const* file, int mode) {
  std::string name = FileStringA::fs_convert_to_utf8(file);
  return p3d_Create(file ? name.c_str() : nullptr, mode);
}

int Morvane::p3d_UnBinarised(wchar_t const* file) {
  std::string name = FileStringA::fs_convert_to_utf8(file);
  return p3d_UnBinarised(file ? name.c_str() : nullptr);
}

int Morvane::_write_worker(char const* file, bool as_mlod) {
  if (!file || !*file) throw "no filename";
  if (!_open) throw P3DERR_NO_LOD;
  if (!_io.io_CreateFile(file)) throw GE_CANNOT_WRITE;
  OutputGuard guard{_io};
  if (_odol) {
    if (as_mlod)
      _odol->write_mlod(_io);
    else
      _odol->write(_io);
  } else {
    _write_mlod();
  }
  return 0;
}

void Morvane::_write_mlod() {
  if (!_bare) {
    _io.io_WriteBlock("MLOD", 4);
    _io.io_WriteUlong(_mlod_version);
    _io.io_WriteUlong(static_cast<uint32_t>(_lods.size()));
  }
  for (MlodLod const& lod : _lods) _write_mlod_lod(lod);
  _io.io_WriteBlock(_tail, _tail_size);
}

void Morvane::_write_mlod_lod(MlodLod const& lod) {
  bool p3dm = lod.kind == MLOD_P3DM;
  _io.io_WriteBlock(p3dm ? "P3DM" : "SP3X", 4);
  _io.io_WriteUlong(28);
  _io.io_WriteUlong(p3dm ? 256 : 153);
  _io.io_WriteUlong(lod.nPoints);
  _io.io_WriteUlong(lod.nNormals);
  _io.io_WriteUlong(lod.nFaces);
  _io.io_WriteUlong(lod.flags);
  if (lod.kind == MLOD_SP3D) {
    // The demo layout has no point flags: they are written as zero.
    for (uint32_t i = 0; i < lod.nPoints; ++i) {
      _io.io_WriteBlock(lod.points + size_t{i} * 12, 12);
      _io.io_WriteUlong(0);
    }
  } else {
    _io.io_WriteBlock(lod.points, size_t{lod.nPoints} * 16);
  }
  _io.io_WriteBlock(lod.normals, size_t{lod.nNormals} * 12);

  uint8_t corners[4 * MlodFace::kCornerBytes];
  for (MlodFace const& f : lod.faces) {
    std::memcpy(corners, f.corners, sizeof corners);
    if (lod.uv0)  // UV set 0 is what the corners carry
      for (uint32_t c = 0; c < f.nCorners; ++c)
        std::memcpy(corners + c * MlodFace::kCornerBytes + 8, lod.uv0 + (size_t{f.uv_index} + c) * 8, 8);
    if (!p3dm) write_fixed(_io, f.texture_field, 32, f.texture);
    _io.io_WriteUlong(f.nCorners);
    _io.io_WriteBlock(corners, sizeof corners);
    _io.io_WriteUlong(f.flags);
    if (p3dm) {
      write_asciiz(_io, f.texture);
      write_asciiz(_io, f.material);
    }
  }
  if (lod.demo) _io.io_WriteBlock(lod.demo, lod.demo_size);
  if (!lod.has_taggs) return;
  _io.io_WriteBlock("TAGG", 4);
  for (MlodTagg const& t : lod.taggs) _write_tagg(lod, t, p3dm);
  MlodTagg end;
  end.name = "#EndOfFile#";
  end.name_field = lod.end_tagg_field;
  _write_tagg(lod, end, p3dm);
  _io.io_WriteFloat(lod.resolution);
}

void Morvane::_write_tagg(MlodLod const& lod, MlodTagg const& t, bool p3dm) {
  (void)lod;
  if (p3dm) {
    _io.io_WriteByte(1);
    write_asciiz(_io, t.name);
  } else {
    write_fixed(_io, t.name_field, 64, t.name);
  }
  _io.io_WriteUlong(t.stored_length);
  if (t.type == MlodTagg::PROPERTY) {
    write_fixed(_io, t.data, 64, t.prop_name);
    write_fixed(_io, t.data ? t.data + 64 : nullptr, 64, t.prop_value);
    return;
  }
  _io.io_WriteBlock(t.data, t.data_size);
}
