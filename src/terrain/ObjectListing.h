#pragma once
// The objects of a terrain as a text listing, one object a line, as terrain editors import them:
// id, model, x (east), y (north), z (height above sea level), direction in degrees and scale.
// Two forms: blank-separated ("12 ca\plants\tree.p3d 100.000 200.000 31.250 90.000 1.0000") and CSV
// with a header line and the model in quotes. `wrp objects` writes them; a terrain made from a
// grid takes its objects back from either.
//
//   ObjectListing list(&dll);
//   int r = list.ol_Read("objects.txt");
//   r = list.ol_PlaceOn(*dll.dll_GetTessak());
#include <cstdint>
#include <string>
#include <vector>

#include "io/BisFileIO.h"
#include "terrain/GridErrors.h"

class BisDLL;
class Tessak;

class ObjectListing {
 public:
  struct Entry {
    uint32_t id = 0;
    uint32_t model = 0;  // a position in ol_Models()
    double x = 0, y = 0, z = 0, direction = 0, scale = 1;
  };
  // No object stands farther than this from the origin, nor is scaled beyond these.
  static constexpr double kMaxPosition = 1e7;
  static constexpr double kMinScale = 0.001;
  static constexpr double kMaxScale = 1000;

  explicit ObjectListing(BisDLL* dll = nullptr);
  ObjectListing(ObjectListing const&) = delete;
  ObjectListing& operator=(ObjectListing const&) = delete;

  BisFileIO* ol_GetIO() { return &_io; }

  // Lists the objects of a loaded terrain.
  int ol_Write(Tessak const& terrain, char const* file, bool csv) const;
  // Reads a listing of either form; nothing is kept from one that fails.
  int ol_Read(char const* file);
  int ol_Read(void const* text, uint64_t size);
  // Adds the objects read to a terrain, their models to its templates (each name once).
  int ol_PlaceOn(Tessak& terrain) const;

  // The texts of the grid and terrain codes.
  static char const* ErrorString(int code);

  std::vector<Entry> const& ol_Entries() const { return _entries; }
  std::vector<std::string> const& ol_Models() const { return _models; }

 private:
  BisFileIO mutable _io;
  std::vector<Entry> _entries;
  std::vector<std::string> _models;

  void _read_text(char const* text, char const* end);
};
