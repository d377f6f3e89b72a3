#pragma once
// The animation tool: RTM animations in their editable ("RTM_0101") and binarised ("BMTR" versions
// 3, 4 and 5) forms.
//
//   KinterNew* k = dll.dll_GetKinter();
//   int r = k->rtm_Open("walk.rtm", callback, "model.cfg");   // skeleton source optional
//   for (unsigned f = 0; f < k->rtm_GetFrameCount(); ++f)
//     XYZTransform const* t = k->rtm_GetTransform(f, bone);     // combined with the parents'
//   r = k->rtm_Create("walk_bin.rtm", KinterNew::KIND_A3_LZO);
//
// Editable animations hold each bone's transform in model space; binarised ones hold it relative
// to the bone's parent, so turning one into the other needs the skeleton's parents, taken from a
// model.cfg or a binarised model.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "anim/KinterErrors.h"
#include "anim/RTM_Key.h"
#include "core/BisCallback.h"
#include "io/BisFileIO.h"
#include "io/BisTypes.h"

class BisDLL;
class CompressedStruct;
class CompressionEngine;
struct RTM_Skeleton;

// One bone of the animation.
struct RTM_Bone {
  std::string name;       // the skeleton's spelling once one is read
  std::string stored;     // as a binarised file spelt it, written back unchanged
  std::string parent;    // from the skeleton; "" for a root or without a skeleton
  int parent_index = -1;  // among the animation's bones; -1 for none
};

// One event of the animation at a moment of its cycle. Binarised files store each as a key stone:
// a sound marker has id 0 and no value (a footstep's "step"), a named event with a value has id -1.
// Editable files made by the current model editor carry events in a block before the frames; an
// event read there without a value is taken for a sound marker, so that both kinds come back.
struct RTM_Event {
  int32_t id = 0;
  std::string name;
  float time = 0;
  std::string value;
};

class KinterNew {
 public:
  enum Kind : int { KIND_FAULTY = -1, KIND_TEXT = 0, KIND_A2 = 3, KIND_A3 = 4, KIND_A3_LZO = 5 };
  // rtm_Create's kind for "binarised, in the version that was read" (5 for an editable source).
  static constexpr int KIND_BINARISED_AS_READ = 1;

  explicit KinterNew(BisDLL* dll);
  ~KinterNew();
  KinterNew(KinterNew const&) = delete;
  KinterNew& operator=(KinterNew const&) = delete;

  // ---- kinds ----------------------------------------------------------------
  // The kind number of a file (KIND_FAULTY when it cannot be opened or its signature fails).
  static int rtm_Type(char const* file);
  static int rtm_TypeOfBuffer(unsigned char const* bytes, uint64_t size);
  static char const* rtm_TypeStr(char const* file);
  static char const* rtm_KindStr(int kind);
  static bool rtm_IsBinarised(char const* file);

  // ---- reading ----------------------------------------------------------------
  // `skeleton`: null or "" for none; a name ending in ".p3d" is read as a model, anything else as
  // model.cfg text. The buffer form reads the caller's bytes in place: they must stay unchanged
  // while the animation is open.
  int rtm_Open(char const* file, BisCallback callback, char const* skeleton);
  int rtm_Open(unsigned char const* buffer, unsigned int size, BisCallback callback, char const* skeleton);
  void rtm_Close();

  // ---- writing ----------------------------------------------------------------
  // kind 0: the editable form; 3, 4, 5: binarised of that version; KIND_BINARISED_AS_READ.
  int rtm_Create(char const* file, int kind);
  int rtm_UnBinarised(char const* file);

  // ---- accessors ----------------------------------------------------------------
  int rtm_GetKind() const { return _kind; }
  bool rtm_HasSkeleton() const { return _has_skeleton; }
  char const* rtm_GetSkeletonName() const { return _skeleton_name.c_str(); }
  unsigned rtm_GetFrameCount() const { return static_cast<unsigned>(_times.size()); }
  float rtm_GetFrameTime(unsigned frame) const { return frame < _times.size() ? _times[frame] : 0.0f; }
  unsigned rtm_GetBoneCount() const { return static_cast<unsigned>(_bones.size()); }
  char const* rtm_GetBoneName(unsigned bone) const;
  char const* rtm_GetBoneParentName(unsigned bone) const;
  int rtm_GetBoneParent(unsigned bone) const;
  // Drops a bone from every frame; its children keep their place in model space and become roots,
  // as the parent their skeleton names is gone. 0, or 13.
  int rtm_RemoveBoneName(unsigned bone);
  // Every event, sound markers included; null past the last.
  unsigned rtm_GetSoundCount() const { return static_cast<unsigned>(_sounds.size()); }
  char const* rtm_GetSoundName(unsigned sound) const;
  float rtm_GetSoundTime(unsigned sound) const;
  RTM_Event const* rtm_GetEvent(unsigned event) const { return event < _sounds.size() ? &_sounds[event] : nullptr; }
  // The displacement: how far the whole figure moves over one cycle of the animation.
  XYZTriplet const* rtm_GetVertex() const { return &_displacement; }
  // The u32 after the frame count of binarised animations (0 or 1).
  uint32_t rtm_GetBinFlag() const { return _bin_flag; }
  BisFileIO* rtm_GetIO() { return &_io; }
  BisDLL* rtm_GetDll() const { return _dll; }

  // The bone's transform in that frame in model space (row form), combined with its parents';
  // null for a frame or bone out of range. Valid until the animation changes or closes.
  XYZTransform const* rtm_GetTransform(unsigned frame, unsigned bone);

  static char const* ErrorString(int code);
  // The code a thrown message text turns into.
  static constexpr int kDetectedError = RTMERR_STRUCTURE;

 private:
  template <class Work>
  int _guarded(Work&& work);
  void _reset();
  void _open_worker(char const* skeleton);
  void _read_text();
  void _read_binarised();
  void _read_sounds();
  void _read_text_events();
  void _write_text_events(BisFileIO& out);
  void _read_skeleton(char const* source);
  void _skeleton_from_cfg(char const* source);
  void _skeleton_from_p3d(char const* source);
  // `respell`: the bones take the skeleton's spelling of their names.
  void _adopt_skeleton(RTM_Skeleton const& skeleton, bool respell);
  void _check_parent_loops();
  void _to_model_space();
  RTM_Key _key(unsigned frame, unsigned bone) const;
  void _write_text(BisFileIO& out);
  void _write_binarised(BisFileIO& out, int version);
  void _write_array(BisFileIO& out, int version, CompressedStruct const* stored, uint8_t const* raw,
                    uint32_t count, uint32_t element_size);

  BisDLL* _dll;
  BisFileIO _io;
  int _kind = KIND_FAULTY;
  XYZTriplet _displacement;
  uint32_t _bin_flag = 0;
  std::vector<float> _times;
  std::vector<RTM_Bone> _bones;
  std::vector<RTM_Event> _sounds;  // every event, in the order stored
  bool _has_skeleton = false;
  std::string _skeleton_name;

  // Editable source (or after a bone was removed): every transform in model space, frame by frame.
  bool _model_space = false;
  std::vector<XYZTransform> _global;
  // Binarised source: one stored array of keys per frame, plus the array of times, as read.
  std::vector<CompressedStruct> _frames;
  std::unique_ptr<CompressedStruct> _stored_times;
  int _read_version = 0;
  std::unique_ptr<CompressionEngine> _engine;  // for arrays written anew

  // Transforms combined with their parents', computed on demand, one row of bones per frame.
  std::vector<std::vector<XYZTransform>> _cache;
  std::vector<std::vector<uint8_t>> _cached;
};
