#pragma once

// The texture tool's own result codes (0-9 are Generic_Errors). Thrown inside the tool and returned
// as int by its exported methods.
enum PaxErrors : int {
  PAXERR_UNKNOWN_FORMAT = 10,
  PAXERR_UNKNOWN_TAGG = 11,
  PAXERR_INVALID_TAG = 12,
  PAXERR_NO_OFFSET_TAGG = 13,
  PAXERR_NO_ENDING_ZEROES = 14,
  PAXERR_OFFSETS_EXCEEDED = 15,
  PAXERR_BAD_COMPRESSION = 16,
  PAXERR_TAG_REPEATED = 17,
  PAXERR_BAD_TAG_LENGTH = 18,
  PAXERR_EXTRA_NON_ZEROS = 19,
  // Pictures to and from textures.
  PAXERR_BAD_PICTURE = 20,       // not a PNG or TGA, or damaged, truncated, without pixels
  PAXERR_NOT_POWER_OF_TWO = 21,  // a side the game cannot use
  PAXERR_PICTURE_TOO_LARGE = 22,
  PAXERR_NO_SUCH_MIPMAP = 23,
  PAXERR_UNDECODABLE = 24,       // stored pixels too few for their size, or beyond the palette
  PAXERR_TYPE_NOT_WRITTEN = 25,  // a type pictures are not converted to
};
