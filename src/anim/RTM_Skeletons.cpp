#include "anim/RTM_Skeletons.h"

#include <strings.h>

#include <string>

#include "anim/KinterErrors.h"
#include "config/Sembric.h"
#include "config/rap_entry.h"

RTM_Skeleton::Bone const* RTM_Skeleton::sk_Find(char const* bone) const {
  for (Bone const& b : bones)
    if (strcasecmp(b.name.c_str(), bone) == 0) return &b;
  return nullptr;
}

namespace {
// The (bone, parent) pairs of a skeleton class: its own skeletonBones or the nearest inherited
// one, followed by those of the skeleton it names in skeletonInherit (the engine joins the two).
void collect_bones(rap_entry* skeletons, rap_entry* cls, RTM_Skeleton& out, int depth) {
  if (!cls || depth > 32) return;  // a loop of skeletonInherit names ends here
  rap_entry* holder = cls;
  rap_entry* arr = holder->rpe_get_array("skeletonBones");
  for (int up = 0; !arr && up < 32; ++up) {
    holder = holder->rpe_find_inherited_class();
    if (!holder) break;
    arr = holder->rpe_get_array("skeletonBones");
  }
  if (arr) {
    std::vector<std::string> items;
    for (rap_entry* e = arr->rpe_get_first_child(); e; e = e->rpe_get_next_sibling())
      if (e->rpe_GetType() != rap_entry::RPE_ARRAY) items.emplace_back(e->value());
    for (size_t i = 0; i + 1 < items.size(); i += 2) out.bones.push_back({items[i], items[i + 1]});
  }
  rap_entry* inherit = cls->rpe_get_entry("skeletonInherit", rap_entry::RPE_ANY);
  if (inherit && *inherit->value() && strcasecmp(inherit->value(), cls->name()) != 0)
    collect_bones(skeletons, skeletons->rpe_get_class(inherit->value()), out, depth + 1);
}
}  // namespace

int RTM_Skeletons::sk_ReadConfig(Sembric& reader, char const* file, BisCallback callback) {
  _list.clear();
  // The reader reports its own faults (file, line and reason) before it returns.
  if (reader.rap_Create(file, Sembric::RAPF_READER_OPTION, callback) != 0) return RTMERR_MODEL_CFG;
  int r = sk_FromTree(*reader.rap_get_root());
  reader.Close();
  return r;
}

int RTM_Skeletons::sk_FromTree(rap_entry const& root) {
  _list.clear();
  rap_entry* skeletons = root.rpe_get_class("CfgSkeletons");
  if (!skeletons) return RTMERR_SKELETON_CONFIG;
  for (rap_entry* e = skeletons->rpe_get_first_child(); e; e = e->rpe_get_next_sibling()) {
    if (e->rpe_GetType() != rap_entry::RPE_CLASS) continue;
    RTM_Skeleton s;
    s.name = e->name();
    collect_bones(skeletons, e, s, 0);
    _list.push_back(std::move(s));
  }
  return 0;
}
