#pragma once
#include <cstdint>
#include <string>

// One tagg of a texture header: "GGAT", a four-letter name stored reversed, a sized payload.
class PaxTagg {
 public:
  enum Kind : int { AVGC = 0, MAXC, FLAG, SWIZ, OFFS, PROC, KIND_COUNT };
  static constexpr int kMaxOffsets = 16;

  Kind kind = AVGC;
  uint32_t value = 0;                  // AVGC, MAXC, FLAG, SWIZ
  uint32_t offsets[kMaxOffsets] = {};  // OFFS: file offsets of the mipmaps, unused entries 0
  std::string text;                    // PROC

  // The name as listed ("AVGC") and as stored after "GGAT" ("CGVA").
  static char const* tag_Name(Kind kind);
  static char const* tag_StoredName(Kind kind);
  // The kind whose stored name these four bytes are, or -1.
  static int tag_Find(char const* stored4);
  // The payload length the file must give; -1 for any (PROC).
  static int tag_PayloadLength(Kind kind);
  uint32_t tag_Length() const;  // payload length this tagg writes

  // Mipmaps an offsets tagg announces: the index of the first zero entry, at most 15.
  int tag_OffsetCount() const;
};
