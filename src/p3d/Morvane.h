#pragma once
// The model tool: opens a P3D model from a file or a memory buffer, tells its kind, and answers
// questions about its LODs. Editable models (MLOD, SP3X, SP3D) are read in place: the tables the
// accessors hand out point into the buffer the model was read from, valid until the next open or
// Close. LOD handles are the `void const*` that p3d_get_lod returns.
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/BisCallback.h"
#include "core/GuardedCall.h"
#include "io/BisFileIO.h"
#include "io/BisTypes.h"
#include "p3d/MlodLod.h"
#include "p3d/P3dErrors.h"
#include "text/GenString.h"

class BisDLL;
class TokenPairs;
class OdolModel;
class P3dCursor;

class Morvane {
 public:
  // Model kinds (p3d_GetType); any other value is the version of a binarised model.
  static constexpr int KIND_MLOD = 0;
  static constexpr int KIND_MLOD_SP3X = 1;
  static constexpr int KIND_MLOD_P3DM = 2;
  static constexpr int KIND_DEMO_SP3X = 3;
  static constexpr int KIND_DEMO_SP3D = 4;
  static constexpr int KIND_ODOL7 = 7;

  // Flags of p3d_Open.
  static constexpr unsigned OPEN_WARNINGS_ARE_ERRORS = 1;

  // A thrown message text ends a call with this code (the generic "invalid file").
  static constexpr int kDetectedError = 3;

  explicit Morvane(BisDLL* dll);
  ~Morvane();
  Morvane(Morvane const&) = delete;
  Morvane& operator=(Morvane const&) = delete;

  // ---- opening and writing ---------------------------------------------------
  int p3d_Open(char const* file, unsigned int flags, BisCallback callback);
  // The caller's buffer is read in place: it must outlive the model (until Close or the next open).
  int p3d_Open(unsigned char const* buffer, unsigned int size, unsigned int flags, BisCallback callback);
  void Close();
  // Writes the model as it is held (ODOL stays ODOL, editable stays editable). `mode` is kept for
  // the binarised writer; 0 for editable models.
  int p3d_Create(char const* file, int mode = 0);
  int p3d_Create(wchar_t const* file, int mode = 0);
  // Writes the model as an editable MLOD.
  int p3d_UnBinarised(char const* file);
  int p3d_UnBinarised(wchar_t const* file);

  // ---- the model -------------------------------------------------------------
  int p3d_GetType() const { return _kind; }
  // The kind text, then " : nLods=%d" and CR LF.
  void p3d_GetTypeStr(GenString* text) const;
  // Just the kind text of the table ("MLOD P3DM (arma)", "ODOL 73 (Arma3)", ...).
  void p3d_GetKindText(GenString* text) const { p3d_KindText(_kind, text); }
  static void p3d_KindText(int kind, GenString* text);
  bool p3d_IsMlod() const { return _kind >= KIND_MLOD && _kind <= KIND_DEMO_SP3D && _open; }
  static bool p3d_IsArmaOdol(int version) { return version >= 40; }
  int p3d_GetLodCount() const;
  bool p3d_has_trailing_spaces() const { return _trailing; }
  BisFileIO* p3d_GetIO() { return &_io; }
  static char const* ErrorString(int code);

  // ---- LODs ----------------------------------------------------------------------
  void const* p3d_get_lod(int lod) const;
  float p3d_get_resolution(int lod) const;
  // The resolution as text: the number (integers written without ".0" when asked), a blank and
  // the name of a special LOD.
  char const* p3d_get_lodtype_str(int lod, bool integers_allowed);
  int p3d_get_mlod_type(void const* lod) const;
  uint32_t p3d_get_flagbits(void const* lod) const;
  unsigned long p3d_get_taggs(void const* lod, MlodTagg const** first) const;
  MlodProperty const* p3d_get_property_table(void const* lod, unsigned long* count) const;
  MlodFace const* p3d_get_face_table(void const* lod, unsigned long* count) const;
  // Raw tables: normals 12 bytes each; points with flags 16 bytes each; point flags every 16
  // bytes from the first; demo (SP3D) points 12 bytes each; UV sets 8 bytes a face corner; edges
  // 8 bytes a pair.
  uint8_t const* p3d_get_normals_table(void const* lod, unsigned long* count) const;
  uint8_t const* p3d_get_points_table(void const* lod, unsigned long* count) const;
  uint8_t const* p3d_get_pointflags_table(void const* lod, unsigned long* count) const;
  uint8_t const* p3d_get_point_and_flags_table(void const* lod, unsigned long* count) const;
  uint8_t const* p3d_get_demo_points_table(void const* lod, unsigned long* count) const;
  uint8_t const* p3d_get_uvset_table(void const* lod, unsigned int set, unsigned long* count) const;
  uint8_t const* p3d_get_edges_table(void const* lod, unsigned long* count) const;
  LodNamedSelection const* p3d_get_named_selection_table(void const* lod, unsigned long* count) const;
  // The distinct texture names of a LOD in order of first use (the empty name included).
  std::string_view const* p3d_get_texture_table(void const* lod, unsigned long* count);
  std::string_view p3d_get_texture_name(void const* lod, unsigned long face) const;
  std::string_view p3d_get_material(void const* lod, unsigned long face) const;
  unsigned long p3d_get_nPoints(void const* lod) const;
  unsigned long p3d_get_nFaces(void const* lod) const;
  unsigned long p3d_get_nTriangles(void const* lod) const;
  unsigned long p3d_get_nQuads(void const* lod) const;
  unsigned long p3d_get_nNamedSelections(void const* lod) const;
  unsigned long p3d_get_nProperties(void const* lod) const;

  // Values calculated from a LOD's points and masses.
  double p3d_get_calculated_total_mass(void const* lod) const;
  XYZTriplet p3d_get_calculated_bounds_min(void const* lod) const;
  XYZTriplet p3d_get_calculated_bounds_max(void const* lod) const;
  // Centre of gravity: the mass-weighted mean of the points (the plain mean without masses).
  XYZTriplet p3d_get_calculated_cog(void const* lod) const;
  // The shift that puts the bounding box's centre at the origin.
  XYZTriplet p3d_get_calculated_offset(void const* lod) const;
  fMinMax p3d_get_boundsX(void const* lod) const;
  fMinMax p3d_get_boundsY(void const* lod) const;

  // ---- properties ----------------------------------------------------------------
  // A property of the Geometry LOD; null when absent.
  char const* p3d_GetLodProperty(char const* name);
  int p3d_get_properties(TokenPairs* out, int lod);
  int p3d_set_property(char const* name, char const* value, float resolution);
  int p3d_set_property(wchar_t const* name, wchar_t const* value, float resolution);
  // The land class a model's Geometry "class" property asks for; null when none.
  char const* p3d_needs_land_class();
  // Clears the point and face flag bits the engine no longer reads; returns how many words changed.
  int p3d_remove_obsolete_flags();

  // Text from a binarised model (null for editable models): its model.cfg with the skeleton,
  // sections and animation classes, and its embedded materials as rvmat text.
  char const* p3d_ExtractSkeleton();
  char const* p3d_ExtractRvmats();

  // For the binarised reader: the model it holds, null for editable models.
  OdolModel* p3d_GetOdol() const { return _odol.get(); }

 private:
  template <class Work>
  int _guarded(Work&& work) {
    return bis_guarded_call<p3derr_types>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, std::forward<Work>(work));
  }
  int _open_worker(char const* name, unsigned flags);
  void _read_mlod_file(P3dCursor& c);
  void _read_mlod_lod(P3dCursor& c, MlodLod& lod, int index);
  void _read_faces(P3dCursor& c, MlodLod& lod);
  void _read_taggs(P3dCursor& c, MlodLod& lod, int index);
  void _read_tagg(P3dCursor& c, MlodLod& lod, int index, MlodTagg& t);
  void _check_mass(MlodLod const& lod);
  void _write_mlod();
  void _write_mlod_lod(MlodLod const& lod);
  void _write_tagg(MlodLod const& lod, MlodTagg const& t, bool p3dm);
  MlodLod* _mlod(void const* handle) const;
  MlodLod* _mlod_by_resolution(float resolution);
  std::string_view _own(std::string_view text);
  uint8_t* _writable_copy(uint8_t const* data, size_t n);
  int _write_worker(char const* file, bool as_mlod);

  BisDLL* _dll;
  BisFileIO _io;
  bool _open = false;
  bool _trailing = false;
  int _kind = KIND_MLOD;
  bool _bare = false;         // a single SP3X/SP3D LOD without a file header
  uint32_t _mlod_version = 257;  // the version word as stored (257, or 1.1 as a float)
  uint8_t const* _tail = nullptr;  // bytes after the last LOD, written back unchanged
  uint64_t _tail_size = 0;
  std::vector<MlodLod> _lods;
  std::unique_ptr<OdolModel> _odol;
  std::deque<std::string> _texts;            // texts set by the caller, which the views point at
  std::deque<std::vector<uint8_t>> _blocks;  // tables changed after reading (flags)
  std::vector<std::string_view> _texture_table;
  GenString _text;             // the last text handed out
};
