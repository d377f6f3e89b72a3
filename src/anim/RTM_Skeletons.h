#pragma once
#include <string>
#include <vector>

#include "core/BisCallback.h"

class Sembric;
class rap_entry;

// One skeleton: its bones in order, each with the name of its parent ("" for a root).
struct RTM_Skeleton {
  struct Bone {
    std::string name;
    std::string parent;
  };
  std::string name;
  std::vector<Bone> bones;

  // The bone of that name (without regard to case), or null.
  Bone const* sk_Find(char const* bone) const;
};

// The skeletons that a model.cfg declares in its class CfgSkeletons, in the order they appear.
class RTM_Skeletons {
 public:
  // Reads model.cfg text (with its includes and macros) through the config binariser's reader and
  // collects the skeletons. Returns 0, RTMERR_MODEL_CFG when the text cannot be read or parsed (the
  // reader told the callback why), or RTMERR_SKELETON_CONFIG when there is no class CfgSkeletons.
  int sk_ReadConfig(Sembric& reader, char const* file, BisCallback callback);
  // The same from a config tree already built.
  int sk_FromTree(rap_entry const& root);

  std::vector<RTM_Skeleton> const& sk_List() const { return _list; }

 private:
  std::vector<RTM_Skeleton> _list;
};
