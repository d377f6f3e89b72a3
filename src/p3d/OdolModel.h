#pragma once
// A binarised (ODOL) model behind the model tool: OFP's version 7 and the Arma generation's
// versions 40 and above. Texts and uncompressed arrays are views into the model's buffer; only
// compressed arrays are expanded into storage of their own.
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "io/CompressType.h"
#include "io/CompressedStruct.h"

class BisFileIO;
class GenString;
class P3dCursor;
class TokenPairs;

// A stored stretch the model keeps as it was read (nothing in it is interpreted): written back as is.
struct OdolBytes {
  uint8_t const* data = nullptr;
  uint64_t size = 0;
};

struct OdolSection {
  uint32_t face_start = 0, face_end = 0;  // byte offsets into the LOD's face block
  int16_t texture = -1;
  int32_t material = -1;
  std::string_view material_path;  // when the material is named here rather than embedded
  uint32_t flags = 0;              // the common face flags, as stored
  uint32_t areas = 0;              // the number of area words
  uint8_t const* bones = nullptr;  // bone indices and the common point user value (4 bytes in version 7)
  uint8_t const* area_words = nullptr;
  OdolBytes extra;                 // version 67 and above: the optional 44-byte record with its word
};

struct OdolSelection {
  std::string_view name;
  bool sectional = false;
  uint8_t true_byte = 1;  // how a true `sectional` was stored: any byte but 0 reads as true
  uint32_t trailing_blanks = 0;  // stripped from the name on reading, restored on writing
  uint32_t word = 0;             // the word after the face indices, as stored
  CompressedStruct faces, sections, vertices, weights;
};

struct OdolProxy {
  std::string_view model;
  uint32_t selection = 0;  // index of the proxy's named selection
  OdolBytes block;         // the transform and ids; the selection index lies at byte 52
};

// An animation class: its kind, names and the fixed block of values as stored.
struct OdolAnimation {
  uint32_t type = 0;
  std::string_view name, source;
  uint8_t const* block = nullptr;
  uint32_t block_size = 0;
  uint32_t bone = 0xFFFFFFFFu;  // the bone it moves in the first LOD
  // Per LOD, the axis position and direction (six f32) of a rotation or translation, or null
  // where the LOD has no bone for it.
  std::vector<uint8_t const*> axes;
  std::vector<uint32_t> lod_bones;  // the bone it moves in each LOD
};

struct OdolLod {
  uint32_t index = 0;        // its place in the model's LOD table
  uint64_t start = 0, end = 0;  // where it was read in the file
  uint32_t nVertices = 0;
  uint32_t nFaces = 0;
  uint8_t const* faces = nullptr;  // per face: a corner count, then its vertex indices
  uint32_t face_bytes = 0;
  std::vector<OdolProxy> proxies;
  std::vector<std::string_view> textures;
  std::vector<std::string_view> materials;
  std::vector<uint8_t const*> material_data;  // each material as stored, from its type word
  std::vector<OdolSection> sections;
  std::vector<OdolSelection> selections;
  std::vector<std::pair<std::string_view, std::string_view>> properties;
  float uv_bounds[4] = {0, 0, 1, 1};  // U min, V min, U max, V max of the packed first UV set
  CompressedStruct uv0, positions, normals;

  // What the model keeps only to be written back: compressed ones in their stored form alone.
  CompressedStruct point_to_vertex, vertex_to_point;
  CompressedStruct clip;        // the vertex flags before the hints (up to version 51, and version 7)
  CompressedStruct vertex_clip; // the clip flags of the vertex tables (version 50 and above)
  CompressedStruct uv1, st, bones, neighbours;
  std::vector<CompressedStruct> selection_words;  // version 7: each selection's array after its word
  float uv1_bounds[4] = {0, 0, 1, 1};
  uint32_t uv_sets = 1;
  uint32_t face_size_word = 0;  // version 7: the size the engine allocates, kept as stored
  // How far the stored face data size and end offset stray from what the LOD itself gives. Real
  // files agree (0); a file from another binariser that does not keeps its difference when written.
  int64_t face_size_slack = 0, end_slack = 0;
  uint8_t one_bone = 0;         // whether every vertex has one bone at most
  OdolBytes items;              // the skeleton bones this LOD uses: a count and plain words
  OdolBytes links;              // the bone links: their count and lists
  OdolBytes vertex_word;        // version 52 and above: the word after the vertex count
  OdolBytes hints;              // hints, bounds, centre and sphere
  std::vector<uint64_t> material_sizes;  // each embedded material's stored length
  OdolBytes frames;             // the frame count and frames
  OdolBytes colours;            // icon colour, selected colour, special flags
  OdolBytes lod_end;            // version 67 and above: the closing word and byte
};

// A packed UV value (signed 16 bits) expanded between its set's bounds. The divisor 65536 (not
// 65534) is how the engine expands them, so the top value falls just short of the maximum.
inline float odol_expand_uv(int16_t packed, float min, float max) {
  return static_cast<float>((packed + 32767) * (1.0 / 65536) * (max - min) + min);
}

// One animation class as a model.cfg class; `bones` names the skeleton's bones and parents.
void odol_animation_text(GenString& text, OdolAnimation const& a, uint32_t version,
                         std::vector<std::pair<std::string_view, std::string_view>> const& bones);

// An embedded material (from its type word, within [data, end)) as rvmat text appended to `text`.
void odol_material_text(GenString& text, std::string_view name, uint8_t const* data, uint8_t const* end, BisFileIO& io);

class OdolModel {
 public:
  explicit OdolModel(BisFileIO& io);
  ~OdolModel();

  void read(P3dCursor& c);
  // Writes the model back in the order it was read.
  // Every value is written from the model; counts, offsets and sizes are derived afresh.
  void write(BisFileIO& out) const;
  // A new prefix (version 58 and above), kept by the model.
  void set_prefix(std::string_view prefix);
  // Points a LOD's texture at another path; false when there is no such texture.
  bool set_texture(uint32_t lod, uint32_t texture, std::string_view path);
  // A LOD's entries in the start and end offset tables as read (zero for version 7).
  std::pair<uint32_t, uint32_t> lod_offsets(uint32_t i) const {
    return i < _starts.size() ? std::pair{_starts[i], _ends[i]} : std::pair{0u, 0u};
  }
  // Writes an editable model of the same LODs.
  void write_mlod(BisFileIO& out) const;

  uint32_t version() const { return _version; }
  uint32_t lod_count() const { return static_cast<uint32_t>(_lods.size()); }
  OdolLod const* lod(uint32_t i) const { return i < _lods.size() ? &_lods[i] : nullptr; }
  float resolution(uint32_t i) const { return i < _resolutions.size() ? _resolutions[i] : 0.0f; }
  // The numbers 257 and 10043 belong to other numberings and carry neither header field.
  bool has_prefix() const { return _version >= 58 && _version != 257 && _version != 10043; }
  bool has_app_id() const { return _version >= 59 && _version != 257 && _version != 10043; }
  std::string_view prefix() const { return _prefix; }
  uint32_t app_id() const { return _app_id; }
  float mass() const { return _mass; }
  std::string_view skeleton() const { return _skeleton_name; }
  bool skeleton_discrete() const { return _discrete; }
  std::vector<std::pair<std::string_view, std::string_view>> const& bones() const { return _bones; }
  std::vector<OdolAnimation> const& animations() const { return _anims; }
  unsigned long lod_points(void const* lod) const;
  unsigned long lod_faces(void const* lod) const;
  unsigned long lod_selections(void const* lod) const;
  unsigned long lod_properties(void const* lod) const;
  int lod_properties(uint32_t lod, TokenPairs& out) const;
  char const* geometry_property(char const* name, GenString& out) const;
  bool trailing_spaces() const { return _trailing; }
  uint64_t trailing_size() const { return _tail_size; }
  // A corner's UV in the first set, expanded.
  void vertex_uv(OdolLod const& lod, uint32_t vertex, float& u, float& v) const;

 private:
  OdolLod const* _lod_of(void const* handle) const;
  CompressType _mode(bool fill = false) const;
  void _array(CompressedStruct& a, uint32_t element_size, bool fill = false);
  void _drop_expanded(OdolLod& lod);
  void _model_info();
  void _info_opening();
  void _centres_and_occlusion();
  void _skeleton();
  void _animations();
  void _lod_defaults();
  void _read_lod(OdolLod& lod);
  void _read_lod_v7(OdolLod& lod);
  void _materials(OdolLod& lod);
  void _material();
  void _faces(OdolLod& lod, bool wide);
  void _sections(OdolLod& lod);
  void _selections(OdolLod& lod);
  void _check_proxies(OdolLod const& lod);
  void _properties(OdolLod& lod);
  void _frames(OdolLod& lod);
  void _hints(OdolLod& lod);
  void _selection_name(OdolSelection& s);
  void _sectional(OdolSelection& s);
  void _vertex_tables(OdolLod& lod);
  void _uv_set(OdolLod& lod, CompressedStruct& a, float* bounds);
  void _model_info_v7();
  OdolBytes _keep(uint64_t n);
  OdolBytes _since(uint8_t const* mark) const;
  uint32_t _face_size_word(OdolLod const& lod) const;
  void _put(BisFileIO& out, CompressedStruct const& a, bool fill = false) const;
  void _write_faces_to_colours(BisFileIO& out, OdolLod const& lod) const;
  void _write_lod(BisFileIO& out, OdolLod const& lod) const;
  void _write_lod_v7(BisFileIO& out, OdolLod const& lod) const;
  void _write_vertex_tables(BisFileIO& out, OdolLod const& lod) const;
  void _write_sections(BisFileIO& out, OdolLod const& lod) const;
  void _write_selections(BisFileIO& out, OdolLod const& lod) const;
  void _write_animations(BisFileIO& out) const;

  BisFileIO& _io;
  uint32_t _version = 0;
  uint32_t _app_id = 0;
  std::string_view _prefix;
  std::deque<std::string> _own_texts;  // texts set after reading; the model's views point into them
  std::vector<float> _resolutions;
  std::vector<OdolLod> _lods;
  std::vector<uint32_t> _starts, _ends;
  std::vector<OdolAnimation> _anims;
  std::string_view _skeleton_name;
  bool _discrete = false;
  std::vector<std::pair<std::string_view, std::string_view>> _bones;
  float _mass = 0;
  bool _trailing = false;
  uint64_t _lods_begin = 0;           // where the first LOD body starts
  std::vector<uint32_t> _read_order;  // the LODs by their place in the file
  uint8_t const* _data = nullptr;
  uint64_t _size = 0;
  uint64_t _tail_size = 0;
  OdolBytes _info;          // the model information as stored
  OdolBytes _bone_tables;   // the animations' bone tables
  OdolBytes _defaults;      // the LOD defaults
  uint8_t _animations_flag = 0;  // any byte but 0 says animations follow; kept as stored
};
