#include "anim/KinterNew.h"

#include <strings.h>
#include <sys/stat.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <unordered_map>

#include "anim/Qnion.h"
#include "anim/RTM_Skeletons.h"
#include "core/BisDLL.h"
#include "core/GenericError.h"
#include "core/GuardedCall.h"
#include "io/CompressType.h"
#include "io/CompressedStruct.h"
#include "io/CompressionEngine.h"
#include "p3d/Morvane.h"
#include "p3d/OdolModel.h"
#include "text/FileStringA.h"

KinterNew* BisDLL::dll_GetKinter() { return dll_slot<KinterNew>(SLOT_KINTER); }

namespace {
constexpr char kTextSignature[] = "RTM_0101";
// The block of events that the current model editor puts before the editable form's signature.
constexpr char kEventSignature[] = "RTM_MDAT";
constexpr unsigned kNameField = 32;                                   // editable bone names
constexpr unsigned kTextRecord = kNameField + sizeof(XYZTransform);  // name + 4x3 transform
constexpr uint64_t kRawThreshold = 1024;  // smaller arrays of versions 3 and 4 are stored raw

uint32_t le32(uint8_t const* p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
         static_cast<uint32_t>(p[3]) << 24;
}

// Version 5 announces each array's coding by a flag byte; earlier versions compress every array
// from 1024 bytes on.
CompressType array_type(int version) { return version >= 5 ? CompressType(CT_LZO | CT_FLAG_BYTE) : CompressType(CT_LZO); }

std::string lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}
}  // namespace

KinterNew::KinterNew(BisDLL* dll) : _dll(dll), _io(dll) {}

KinterNew::~KinterNew() = default;

char const* KinterNew::ErrorString(int code) {
  switch (code) {
    case RTMERR_STRUCTURE: return "RTM not valid structure";
    case RTMERR_SIGNATURE: return "RTM unknown signature";
    case RTMERR_FRAME: return "RTM invalid frame";
    case RTMERR_BONE: return "RTM invalid bone";
    case RTMERR_CANT_CREATE: return "RTM can't create binary files";
    case RTMERR_SKELETON_CONFIG: return "skeleton config is invalid";
    case RTMERR_MODEL_CFG: return "model.cfg is faulty";
    case RTMERR_BAD_P3D: return "bad p3d";
    case RTMERR_P3D_UNBINARISED:
    case RTMERR_P3D_UNBINARISED2: return "p3d is unbinarised";
    case RTMERR_SOUND: return "bad sound info in rtm";
    case RTMERR_NEED_SKELETON: return "skeleton must be specified for binarised rtm";
    default: return GenericError::ErrorString(code);
  }
}

template <class Work>
int KinterNew::_guarded(Work&& work) {
  return bis_guarded_call<KinterErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, std::forward<Work>(work));
}

// ===== kinds ==================================================================

int KinterNew::rtm_TypeOfBuffer(unsigned char const* bytes, uint64_t size) {
  if (!bytes) return KIND_FAULTY;
  if (size >= 8 && (std::memcmp(bytes, kTextSignature, 8) == 0 || std::memcmp(bytes, kEventSignature, 8) == 0))
    return KIND_TEXT;
  if (size >= 9 && std::memcmp(bytes, "BMTR", 4) == 0) {
    uint32_t version = le32(bytes + 4);
    if (version >= 3 && version <= 5 && bytes[8] == 1) return static_cast<int>(version);
  }
  return KIND_FAULTY;
}

int KinterNew::rtm_Type(char const* file) {
  if (!file || !*file) return KIND_FAULTY;
  FILE* f = FileStringA(file).fs_fopen("rb");
  if (!f) return KIND_FAULTY;
  unsigned char head[9];
  size_t n = std::fread(head, 1, sizeof head, f);
  std::fclose(f);
  return rtm_TypeOfBuffer(head, n);
}

char const* KinterNew::rtm_KindStr(int kind) {
  switch (kind) {
    case KIND_TEXT: return "UNbinarised";
    case KIND_A2: return "binarised A2";
    case KIND_A3: return "binarised A3 (sounds)";
    case KIND_A3_LZO: return "binarised A3+ (sounds+lzo)";
    case KIND_FAULTY: return "faulty";
    default: return "unknown binary";
  }
}

char const* KinterNew::rtm_TypeStr(char const* file) { return rtm_KindStr(rtm_Type(file)); }

bool KinterNew::rtm_IsBinarised(char const* file) { return rtm_Type(file) >= KIND_A2; }

// ===== accessors ==============================================================

char const* KinterNew::rtm_GetBoneName(unsigned bone) const {
  return bone < _bones.size() ? _bones[bone].name.c_str() : nullptr;
}

char const* KinterNew::rtm_GetBoneParentName(unsigned bone) const {
  return bone < _bones.size() ? _bones[bone].parent.c_str() : nullptr;
}

int KinterNew::rtm_GetBoneParent(unsigned bone) const { return bone < _bones.size() ? _bones[bone].parent_index : -1; }

char const* KinterNew::rtm_GetSoundName(unsigned sound) const {
  return sound < _sounds.size() ? _sounds[sound].name.c_str() : nullptr;
}

float KinterNew::rtm_GetSoundTime(unsigned sound) const { return sound < _sounds.size() ? _sounds[sound].time : 0.0f; }

// ===== opening ================================================================

void KinterNew::_reset() {
  _io.io_Close();
  _kind = KIND_FAULTY;
  _displacement = {};
  _bin_flag = 0;
  _times.clear();
  _bones.clear();
  _sounds.clear();
  _has_skeleton = false;
  _skeleton_name.clear();
  _model_space = false;
  _global.clear();
  _frames.clear();
  _stored_times.reset();
  _read_version = 0;
  _cache.clear();
  _cached.clear();
}

void KinterNew::rtm_Close() { _reset(); }

int KinterNew::rtm_Open(char const* file, BisCallback callback, char const* skeleton) {
  _io.io_SetStdioCallBack(callback);
  int r = _guarded([&] {
    _reset();
    if (!file || !*file) throw "no filename";
    if (!_io.io_OpenFile(file)) _io.io_throw(GE_EOF, "Cannot open %s\r\n", file);
    _open_worker(skeleton);
    return 0;
  });
  if (r) _reset();
  return r;
}

int KinterNew::rtm_Open(unsigned char const* buffer, unsigned int size, BisCallback callback, char const* skeleton) {
  _io.io_SetStdioCallBack(callback);
  int r = _guarded([&] {
    _reset();
    _io.io_OpenPseudoFile(buffer, size);
    _open_worker(skeleton);
    return 0;
  });
  if (r) _reset();
  return r;
}

void KinterNew::_open_worker(char const* skeleton) {
  if (_io.io_IsHuge()) throw GE_NO_MEMORY;  // arrays are read in place from one buffer
  int kind = rtm_TypeOfBuffer(_io.io_GetRawData(), _io.io_GetFileSize());
  if (kind == KIND_FAULTY) throw RTMERR_SIGNATURE;
  if (kind == KIND_TEXT)
    _read_text();
  else
    _read_binarised();
  _kind = kind;
  if (_io.io_RemainingBytes())
    _io.io_callback("Warning: %llu bytes after the last frame\r\n",
                    static_cast<unsigned long long>(_io.io_RemainingBytes()));
  if (skeleton && *skeleton) {
    _io.io_callback("Reading skeleton from %s\r\n", skeleton);
    _read_skeleton(skeleton);
  }
}

void KinterNew::_read_text() {
  _io.io_MoveTo(0);
  if (std::memcmp(_io.io_GetAddressAndUpdate(8), kEventSignature, 8) == 0) {
    _read_text_events();
    if (std::memcmp(_io.io_GetAddressAndUpdate(8), kTextSignature, 8) != 0)
      _io.io_throw(RTMERR_SIGNATURE, "the events are not followed by %s\r\n", kTextSignature);
  }
  _displacement.x = _io.io_ReadFloat();
  _displacement.y = _io.io_ReadFloat();
  _displacement.z = _io.io_ReadFloat();
  uint32_t const frames = _io.io_ReadUlong();
  uint32_t const bones = _io.io_ReadUlong();
  if (uint64_t(bones) * kNameField > _io.io_RemainingBytes())
    _io.io_throw(RTMERR_BONE, "%u bones do not fit in the file\r\n", bones);
  auto read_name = [&](uint8_t const* field) {
    size_t len = strnlen(reinterpret_cast<char const*>(field), kNameField);
    if (len == kNameField) _io.io_throw(RTMERR_BONE, "a bone name fills its 32 bytes without an end\r\n");
    return std::string(reinterpret_cast<char const*>(field), len);
  };
  _bones.resize(bones);
  std::unordered_map<std::string, uint32_t> index;
  for (uint32_t b = 0; b < bones; ++b) {
    _bones[b].name = read_name(_io.io_GetAddressAndUpdate(kNameField));
    index.emplace(lower(_bones[b].name), b);
  }
  uint64_t const frame_bytes = 4 + uint64_t(bones) * kTextRecord;
  if (frames > _io.io_RemainingBytes() / frame_bytes)
    _io.io_throw(RTMERR_FRAME, "%u frames do not fit in the file\r\n", frames);
  _times.resize(frames);
  _global.resize(uint64_t(frames) * bones);
  for (uint32_t f = 0; f < frames; ++f) {
    _times[f] = _io.io_ReadFloat();
    for (uint32_t b = 0; b < bones; ++b) {
      uint8_t const* record = _io.io_GetAddressAndUpdate(kTextRecord);
      std::string name = read_name(record);
      uint32_t at = b;
      // Frames list the bones in the order of the head; look a bone up only when one strays.
      if (strcasecmp(name.c_str(), _bones[b].name.c_str()) != 0) {
        auto it = index.find(lower(name));
        if (it == index.end())
          _io.io_throw(RTMERR_BONE, "frame %u: bone %s is not in the animation's list\r\n", f, name.c_str());
        at = it->second;
      }
      std::memcpy(&_global[uint64_t(f) * bones + at], record + kNameField, sizeof(XYZTransform));
    }
  }
  _model_space = true;
}

void KinterNew::_read_binarised() {
  _io.io_MoveTo(4);
  _read_version = static_cast<int>(_io.io_ReadUlong());
  _io.io_ReadByte();
  _displacement.x = _io.io_ReadFloat();
  _displacement.y = _io.io_ReadFloat();
  _displacement.z = _io.io_ReadFloat();
  uint32_t const frames = _io.io_ReadUlong();
  _bin_flag = _io.io_ReadUlong();
  if (_bin_flag > 1) _io.io_throw(RTMERR_STRUCTURE, "%u after the frame count, 0 or 1 expected\r\n", _bin_flag);
  uint32_t const bones = _io.io_ReadUlong();
  uint32_t const again = _io.io_ReadUlong();
  if (again != bones) _io.io_throw(RTMERR_BONE, "%u bones, then %u\r\n", bones, again);
  if (bones > _io.io_RemainingBytes()) _io.io_throw(RTMERR_BONE, "%u bone names do not fit in the file\r\n", bones);
  _bones.resize(bones);
  for (RTM_Bone& b : _bones) b.name = b.stored = _io.io_ReadAsciiz();
  if (_read_version >= 4) _read_sounds();

  CompressType const type = array_type(_read_version);
  // The times and each frame take at least their count (an empty array has no flag byte).
  if (uint64_t(frames) + 1 > _io.io_RemainingBytes() / 4)
    _io.io_throw(RTMERR_FRAME, "%u frames do not fit in the file\r\n", frames);
  auto peek_count = [&] {
    _io.io_Require(4);
    return le32(_io.io_GetAddress());
  };
  if (uint32_t n = peek_count(); n != frames)
    _io.io_throw(RTMERR_FRAME, "%u frame times for %u frames\r\n", n, frames);
  _stored_times = std::make_unique<CompressedStruct>(4);
  _stored_times->ReadCompressed(_io, type);
  _times.resize(frames);
  if (frames) std::memcpy(_times.data(), _stored_times->cs_Array(), uint64_t(frames) * 4);
  _frames.reserve(frames);
  for (uint32_t f = 0; f < frames; ++f) {
    if (uint32_t n = peek_count(); n != bones)
      _io.io_throw(RTMERR_BONE, "frame %u holds %u bones, not %u\r\n", f, n, bones);
    _frames.emplace_back(RTM_Key::kSize);
    _frames.back().ReadCompressed(_io, type);
  }
  _cache.resize(frames);
  _cached.resize(frames);
}

void KinterNew::_read_sounds() {
  if (_io.io_ReadUlong() != 0) _io.io_throw(RTMERR_SOUND, "the list before the sounds is not empty\r\n");
  uint32_t const count = _io.io_ReadUlong();
  // Each key stone takes at least its id, an empty name, its time and an empty value.
  if (count > _io.io_RemainingBytes() / 10) _io.io_throw(RTMERR_SOUND, "%u sounds do not fit in the file\r\n", count);
  _sounds.resize(count);
  for (RTM_Event& s : _sounds) {
    s.id = static_cast<int32_t>(_io.io_ReadUlong());
    s.name = _io.io_ReadAsciiz();
    s.time = _io.io_ReadFloat();
    s.value = _io.io_ReadAsciiz();
  }
}

// u32 0, u32 count, then per event its time and two short strings (a length byte, then the
// characters): the name and the value.
void KinterNew::_read_text_events() {
  if (_io.io_ReadUlong() != 0) _io.io_throw(RTMERR_SOUND, "the word before the events is not 0\r\n");
  uint32_t const count = _io.io_ReadUlong();
  if (count > _io.io_RemainingBytes() / 6) _io.io_throw(RTMERR_SOUND, "%u events do not fit in the file\r\n", count);
  auto short_string = [&] {
    uint32_t n = static_cast<uint8_t>(_io.io_ReadByte());
    return std::string(reinterpret_cast<char const*>(_io.io_GetAddressAndUpdate(n)), n);
  };
  _sounds.resize(count);
  for (RTM_Event& e : _sounds) {
    e.time = _io.io_ReadFloat();
    e.name = short_string();
    e.value = short_string();
    e.id = e.value.empty() ? 0 : -1;
  }
}

void KinterNew::_write_text_events(BisFileIO& out) {
  if (_sounds.empty()) return;
  size_t moved = 0;
  for (RTM_Event const& e : _sounds) {
    if (e.name.size() > 255 || e.value.size() > 255)
      out.io_throw(RTMERR_CANT_CREATE, "event %s is longer than the editable form's 255 characters\r\n",
                   e.name.substr(0, 64).c_str());
    moved += e.id != (e.value.empty() ? 0 : -1);
  }
  if (moved)
    out.io_callback("Warning: %zu events have ids the editable form does not keep (0 for a sound, -1 otherwise)\r\n",
                    moved);
  out.io_WriteBlock(kEventSignature, 8);
  out.io_WriteUlong(0);
  out.io_WriteUlong(static_cast<uint32_t>(_sounds.size()));
  for (RTM_Event const& e : _sounds) {
    out.io_WriteFloat(e.time);
    for (std::string const* text : {&e.name, &e.value}) {
      out.io_WriteByte(static_cast<uint8_t>(text->size()));
      if (!text->empty()) out.io_WriteBlock(text->data(), text->size());
    }
  }
}

// ===== skeletons ==============================================================

void KinterNew::_read_skeleton(char const* source) {
  FileStringA name(source);
  char const* ext = name.fs_GetExt();
  if (ext && strcasecmp(ext, ".p3d") == 0)
    _skeleton_from_p3d(source);
  else
    _skeleton_from_cfg(source);
}

void KinterNew::_skeleton_from_cfg(char const* source) {
  RTM_Skeletons skeletons;
  if (int r = skeletons.sk_ReadConfig(*_dll->dll_GetRap(), source, _io.io_GetStdioCallBack()))
    throw static_cast<KinterErrors>(r);
  for (RTM_Skeleton const& s : skeletons.sk_List()) {
    bool all = true;
    for (RTM_Bone const& b : _bones)
      if (!s.sk_Find(b.name.c_str())) {
        all = false;
        break;
      }
    if (all) {
      _adopt_skeleton(s, true);
      return;
    }
  }
  _io.io_throw(RTMERR_SKELETON_CONFIG, "none or not all rtm bones found in cfg\r\n");
}

void KinterNew::_skeleton_from_p3d(char const* source) {
  Morvane* model = _dll->dll_GetMorvane();
  // The model's own progress lines (its header fields) say nothing about the animation.
  if (int r = model->p3d_Open(source, 0, nullptr)) {
    _io.io_callbackerr("%s\r\n", Morvane::ErrorString(r));
    throw RTMERR_BAD_P3D;
  }
  OdolModel const* odol = model->p3d_GetOdol();
  if (model->p3d_IsMlod() || !odol) {
    model->Close();
    throw RTMERR_P3D_UNBINARISED;
  }
  RTM_Skeleton skeleton;
  skeleton.name = odol->skeleton();
  for (auto const& [bone, parent] : odol->bones()) skeleton.bones.push_back({std::string(bone), std::string(parent)});
  model->Close();
  if (skeleton.bones.empty()) throw RTMERR_NEED_SKELETON;
  for (RTM_Bone const& b : _bones)
    if (!skeleton.sk_Find(b.name.c_str()))
      _io.io_throw(RTMERR_NEED_SKELETON, "bone %s is not in the model's skeleton %s\r\n", b.name.c_str(),
                   skeleton.name.c_str());
  _adopt_skeleton(skeleton, false);
}

void KinterNew::_adopt_skeleton(RTM_Skeleton const& skeleton, bool respell) {
  for (RTM_Bone& b : _bones) {
    RTM_Skeleton::Bone const* entry = skeleton.sk_Find(b.name.c_str());
    if (respell) b.name = entry->name;
    b.parent = entry->parent;
  }
  std::unordered_map<std::string, int> index;
  for (size_t i = 0; i < _bones.size(); ++i) index.emplace(lower(_bones[i].name), static_cast<int>(i));
  for (RTM_Bone& b : _bones) {
    auto it = b.parent.empty() ? index.end() : index.find(lower(b.parent));
    b.parent_index = it == index.end() ? -1 : it->second;
  }
  _check_parent_loops();
  _has_skeleton = true;
  _skeleton_name = skeleton.name;
  for (auto& row : _cached) row.clear();
}

void KinterNew::_check_parent_loops() {
  // Each bone is walked once: 1 while on the current path up, 2 when known to reach a root.
  std::vector<uint8_t> state(_bones.size(), 0);
  std::vector<size_t> path;
  for (size_t i = 0; i < _bones.size(); ++i) {
    path.clear();
    int b = static_cast<int>(i);
    while (b >= 0 && state[b] == 0) {
      state[b] = 1;
      path.push_back(static_cast<size_t>(b));
      b = _bones[b].parent_index;
    }
    if (b >= 0 && state[b] == 1)
      _io.io_throw(RTMERR_SKELETON_CONFIG, "bone %s is its own ancestor\r\n", _bones[b].name.c_str());
    for (size_t p : path) state[p] = 2;
  }
}

// ===== transforms =============================================================

RTM_Key KinterNew::_key(unsigned frame, unsigned bone) const {
  return RTM_Key::rk_Load(_frames[frame].cs_Array() + uint64_t(bone) * RTM_Key::kSize);
}

XYZTransform const* KinterNew::rtm_GetTransform(unsigned frame, unsigned bone) {
  size_t const bones = _bones.size();
  if (frame >= _times.size() || bone >= bones) return nullptr;
  if (_model_space) return &_global[uint64_t(frame) * bones + bone];
  std::vector<XYZTransform>& row = _cache[frame];
  std::vector<uint8_t>& done = _cached[frame];
  if (done.empty()) {
    row.resize(bones);
    done.assign(bones, 0);
  }
  if (done[bone]) return &row[bone];
  // The bone and its ancestors not yet computed, nearest first; parents are free of loops.
  std::vector<unsigned> chain;
  for (int b = static_cast<int>(bone); b >= 0 && !done[b]; b = _bones[b].parent_index) chain.push_back(unsigned(b));
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
    _key(frame, *it).rk_Expand(&row[*it]);
    int parent = _bones[*it].parent_index;
    if (parent >= 0) Qnion::Qmult2(&row[*it], &row[parent]);
    done[*it] = 1;
  }
  return &row[bone];
}

void KinterNew::_to_model_space() {
  if (_model_space) return;
  size_t const bones = _bones.size();
  std::vector<XYZTransform> global(_times.size() * bones);
  for (unsigned f = 0; f < _times.size(); ++f)
    for (unsigned b = 0; b < bones; ++b) global[uint64_t(f) * bones + b] = *rtm_GetTransform(f, b);
  _global.swap(global);
  _model_space = true;
  _frames.clear();
  _stored_times.reset();
  _cache.clear();
  _cached.clear();
}

int KinterNew::rtm_RemoveBoneName(unsigned bone) {
  return _guarded([&] {
    if (bone >= _bones.size()) throw RTMERR_BONE;
    _to_model_space();
    size_t const bones = _bones.size();
    std::vector<XYZTransform> kept;
    kept.reserve(_times.size() * (bones - 1));
    for (size_t f = 0; f < _times.size(); ++f)
      for (size_t b = 0; b < bones; ++b)
        if (b != bone) kept.push_back(_global[f * bones + b]);
    _global.swap(kept);
    _bones.erase(_bones.begin() + bone);
    // The skeleton still names the dropped bone as its children's parent; a parent that is not
    // among the animation's bones is none, as when the skeleton is read.
    for (RTM_Bone& b : _bones) {
      if (b.parent_index == static_cast<int>(bone)) b.parent_index = -1;
      if (b.parent_index > static_cast<int>(bone)) --b.parent_index;
    }
    return 0;
  });
}

// ===== writing ================================================================

int KinterNew::rtm_UnBinarised(char const* file) { return rtm_Create(file, KIND_TEXT); }

int KinterNew::rtm_Create(char const* file, int kind) {
  return _guarded([&] {
    if (_kind == KIND_FAULTY) throw GE_INVALID_FILE;  // nothing open
    if (!file || !*file) throw "no filename";
    int version = 0;
    if (kind != KIND_TEXT) {
      version = kind == KIND_BINARISED_AS_READ ? (_kind >= KIND_A2 ? _kind : KIND_A3_LZO) : kind;
      if (version < KIND_A2 || version > KIND_A3_LZO) throw RTMERR_CANT_CREATE;
      if (_model_space && !_has_skeleton)
        _io.io_throw(RTMERR_NEED_SKELETON, "%s\r\n", ErrorString(RTMERR_NEED_SKELETON));
    }
    if (!_io.io_CreateFile(file)) throw GE_CANNOT_WRITE;
    try {
      if (kind == KIND_TEXT)
        _write_text(_io);
      else
        _write_binarised(_io, version);
    } catch (...) {
      _io.io_CloseOutput();
      // No half-written animation is left behind (but a device such as /dev/null stays).
      struct stat st {};
      char const* written = _io.io_GetOpenedFileName(true);
      if (::stat(written, &st) == 0 && S_ISREG(st.st_mode)) std::remove(written);
      throw;
    }
    _io.io_CloseOutput();
    return 0;
  });
}

void KinterNew::_write_text(BisFileIO& out) {
  for (RTM_Bone const& b : _bones)
    if (b.name.size() >= kNameField)
      out.io_throw(RTMERR_BONE, "bone name %s is too long for the editable form\r\n", b.name.c_str());
  if (!_model_space && !_has_skeleton && !_bones.empty())
    out.io_callback("Warning: no skeleton given: each bone is written relative to its parent\r\n");
  _write_text_events(out);
  out.io_WriteBlock(kTextSignature, 8);
  out.io_WriteXYZTriplet(&_displacement);
  out.io_WriteUlong(static_cast<uint32_t>(_times.size()));
  out.io_WriteUlong(static_cast<uint32_t>(_bones.size()));
  std::vector<char> names(_bones.size() * kNameField, 0);
  for (size_t b = 0; b < _bones.size(); ++b) std::memcpy(&names[b * kNameField], _bones[b].name.data(), _bones[b].name.size());
  out.io_WriteBlock(names.data(), names.size());
  std::vector<uint8_t> frame(_bones.size() * kTextRecord);
  for (unsigned f = 0; f < _times.size(); ++f) {
    out.io_WriteFloat(_times[f]);
    for (unsigned b = 0; b < _bones.size(); ++b) {
      std::memcpy(&frame[b * kTextRecord], &names[b * kNameField], kNameField);
      std::memcpy(&frame[b * kTextRecord + kNameField], rtm_GetTransform(f, b), sizeof(XYZTransform));
    }
    out.io_WriteBlock(frame.data(), frame.size());
  }
}

void KinterNew::_write_array(BisFileIO& out, int version, CompressedStruct const* stored, uint8_t const* raw,
                             uint32_t count, uint32_t element_size) {
  // An array read from a file of the same version goes back byte for byte.
  if (stored && stored->cs_StoredStart() && version == _read_version) {
    out.io_WriteBlock(stored->cs_StoredStart(), stored->cs_StoredLength());
    return;
  }
  out.io_WriteUlong(count);
  if (!count) return;
  uint64_t const bytes = uint64_t(count) * element_size;
  bool const flagged = version >= 5;
  if (!flagged && bytes < kRawThreshold) {
    out.io_WriteBlock(raw, bytes);
    return;
  }
  if (!_engine) _engine = std::make_unique<CompressionEngine>();
  int64_t packed = cmp_Compress(*_engine, raw, bytes, CT_LZO);
  if (flagged) {
    // Compressed only where it pays: the flag byte tells the reader which it got.
    bool const pays = packed > 0 && uint64_t(packed) < bytes;
    out.io_WriteByte(pays ? 2 : 0);
    if (!pays) {
      out.io_WriteBlock(raw, bytes);
      return;
    }
  } else if (packed < 0) {
    throw GE_CANNOT_WRITE;
  }
  out.io_WriteBlock(_engine->cmp_GetOutput(), uint64_t(packed));
}

void KinterNew::_write_binarised(BisFileIO& out, int version) {
  uint32_t const frames = static_cast<uint32_t>(_times.size());
  uint32_t const bones = static_cast<uint32_t>(_bones.size());
  out.io_WriteBlock("BMTR", 4);
  out.io_WriteUlong(static_cast<uint32_t>(version));
  out.io_WriteByte(1);
  out.io_WriteXYZTriplet(&_displacement);
  out.io_WriteUlong(frames);
  out.io_WriteUlong(_bin_flag);
  out.io_WriteUlong(bones);
  out.io_WriteUlong(bones);
  // Binarised animations carry lower-case names; the engine finds bones without regard to case.
  for (RTM_Bone const& b : _bones) out.io_WriteAsciiz(b.stored.empty() ? lower(b.name).c_str() : b.stored.c_str());
  if (version >= 4) {
    out.io_WriteUlong(0);
    out.io_WriteUlong(static_cast<uint32_t>(_sounds.size()));
    for (RTM_Event const& s : _sounds) {
      out.io_WriteUlong(static_cast<uint32_t>(s.id));
      out.io_WriteAsciiz(s.name.c_str());
      out.io_WriteFloat(s.time);
      out.io_WriteAsciiz(s.value.c_str());
    }
  } else if (!_sounds.empty()) {
    out.io_callback("Warning: version %d keeps no sounds (%zu dropped)\r\n", version, _sounds.size());
  }
  _write_array(out, version, _stored_times.get(), reinterpret_cast<uint8_t const*>(_times.data()), frames, 4);

  if (!_model_space) {
    for (uint32_t f = 0; f < frames; ++f)
      _write_array(out, version, &_frames[f], _frames[f].cs_Array(), bones, RTM_Key::kSize);
    return;
  }
  // Each bone is stored relative to its parent as the reader will rebuild that parent, from its
  // own quantised key, so rounding does not pile up along a chain of bones.
  std::vector<uint8_t> keys(uint64_t(bones) * RTM_Key::kSize);
  std::vector<XYZTransform> rebuilt(bones);
  std::vector<uint8_t> done(bones);
  std::vector<unsigned> chain;
  for (uint32_t f = 0; f < frames; ++f) {
    XYZTransform const* global = &_global[uint64_t(f) * bones];
    std::fill(done.begin(), done.end(), 0);
    for (unsigned bone = 0; bone < bones; ++bone) {
      chain.clear();
      for (int b = static_cast<int>(bone); b >= 0 && !done[b]; b = _bones[b].parent_index) chain.push_back(unsigned(b));
      for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
        unsigned const b = *it;
        int const parent = _bones[b].parent_index;
        XYZTransform local = global[b];
        if (parent >= 0 && !rtm_RelativeTo(global[b], rebuilt[parent], &local))
          out.io_throw(RTMERR_CANT_CREATE, "frame %u: the transform of bone %s cannot be inverted\r\n", f,
                       _bones[parent].name.c_str());
        RTM_Key key = RTM_Key::rk_Compress(local);
        key.rk_Store(&keys[uint64_t(b) * RTM_Key::kSize]);
        key.rk_Expand(&rebuilt[b]);
        if (parent >= 0) Qnion::Qmult2(&rebuilt[b], &rebuilt[parent]);
        done[b] = 1;
      }
    }
    _write_array(out, version, nullptr, keys.data(), bones, RTM_Key::kSize);
  }
}
