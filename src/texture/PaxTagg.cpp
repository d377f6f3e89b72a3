#include "texture/PaxTagg.h"

#include <cstring>

namespace {
struct TaggName {
  char const* listed;
  char const* stored;
  int length;
};
constexpr TaggName kNames[PaxTagg::KIND_COUNT] = {
    {"AVGC", "CGVA", 4}, {"MAXC", "CXAM", 4}, {"FLAG", "GALF", 4},
    {"SWIZ", "ZIWS", 4}, {"OFFS", "SFFO", 4 * PaxTagg::kMaxOffsets}, {"PROC", "CORP", -1},
};
}  // namespace

char const* PaxTagg::tag_Name(Kind kind) { return kNames[kind].listed; }
char const* PaxTagg::tag_StoredName(Kind kind) { return kNames[kind].stored; }
int PaxTagg::tag_PayloadLength(Kind kind) { return kNames[kind].length; }

int PaxTagg::tag_Find(char const* stored4) {
  for (int k = 0; k < KIND_COUNT; ++k)
    if (std::memcmp(stored4, kNames[k].stored, 4) == 0) return k;
  return -1;
}

uint32_t PaxTagg::tag_Length() const {
  if (kind == PROC) return 4 + static_cast<uint32_t>(text.size());
  return static_cast<uint32_t>(kNames[kind].length);
}

int PaxTagg::tag_OffsetCount() const {
  // The last entry never counts: a texture has at most 15 mipmaps.
  int n = 0;
  while (n < kMaxOffsets - 1 && offsets[n]) ++n;
  return n;
}
