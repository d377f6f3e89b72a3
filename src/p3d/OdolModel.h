#pragma once
// A binarised (ODOL) model, read in place behind the model tool.
#include <cstdint>
#include <string_view>
#include <vector>

class BisFileIO;
class GenString;
class P3dCursor;
class TokenPairs;

class OdolModel {
 public:
  explicit OdolModel(BisFileIO& io) : _io(io) {}

  void read(P3dCursor& c);
  void write(BisFileIO& out) const;
  void write_mlod(BisFileIO& out) const;

  uint32_t version() const { return _version; }
  uint32_t lod_count() const { return 0; }
  void const* lod(uint32_t) const { return nullptr; }
  float resolution(uint32_t) const { return 0.0f; }
  unsigned long lod_points(void const*) const { return 0; }
  unsigned long lod_faces(void const*) const { return 0; }
  unsigned long lod_selections(void const*) const { return 0; }
  unsigned long lod_properties(void const*) const { return 0; }
  int lod_properties(uint32_t, TokenPairs&) const { return 0; }
  char const* geometry_property(char const*, GenString&) const { return nullptr; }

 private:
  BisFileIO& _io;
  uint32_t _version = 0;
};
