#pragma once

// The animation tool's own result codes; every other code is a generic one.
enum KinterErrors : int {
  RTMERR_STRUCTURE = 10,         // "RTM not valid structure"
  RTMERR_SIGNATURE = 11,         // "RTM unknown signature"
  RTMERR_FRAME = 12,             // "RTM invalid frame"
  RTMERR_BONE = 13,              // "RTM invalid bone"
  RTMERR_CANT_CREATE = 14,       // "RTM can't create binary files"
  RTMERR_SKELETON_CONFIG = 15,   // "skeleton config is invalid"
  RTMERR_MODEL_CFG = 16,         // "model.cfg is faulty"
  RTMERR_BAD_P3D = 17,           // "bad p3d"
  RTMERR_P3D_UNBINARISED = 18,   // "p3d is unbinarised"
  RTMERR_P3D_UNBINARISED2 = 19,  // "p3d is unbinarised" (kept for callers that test it)
  RTMERR_SOUND = 20,             // "bad sound info in rtm"
  RTMERR_NEED_SKELETON = 21,     // "skeleton must be specified for binarised rtm"
};
