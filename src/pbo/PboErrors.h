#pragma once

// The archive tool's own result codes (the shared ones, 0-9, are Generic_Errors). Thrown inside the
// tool like Generic_Errors and returned as int by its exported methods.
enum PboErrors : int {
  PBO_COMPRESSION_ERROR = 10,
  PBO_MULTIPLE_PRODUCT_ENTRIES = 11,
  PBO_UNKNOWN_HEADER_TYPE = 12,
  PBO_UNBINARISED_P3D = 13,
  PBO_UNBINARISED_WRP = 14,
  PBO_CANNOT_REMOVE_FOLDER = 15,
  PBO_CANNOT_MAKE_FOLDER = 16,
  PBO_SEMBRIC_ERROR = 17,
  PBO_FAULTY_WRP_OR_P3D = 18,
  PBO_CORRUPTED_SHA = 19,
  PBO_NO_PRIMARY_CONTENT = 20,
  PBO_ENTRY_NOT_ASCII = 22,
  PBO_UNKNOWN_EXCEPTION = 23,
  PBO_EMPTY = 24,
  PBO_RESIDUAL_BYTES = 25,
  PBO_NO_SHA = 26,
  PBO_NOTHING_TO_EXTRACT = 27,
  PBO_CANNOT_READ_HEADER_FILE = 28,
  PBO_MISSING_FILES = 29,
  PBO_BAD_PREFIX_FILE = 30,
  PBO_DLL_DETECTED_ERROR = 31,
  PBO_CANNOT_CHANGE_DIR = 32,
  PBO_NO_ENTRY_NAME = 34,
  PBO_NO_SOURCE_FOLDER = 35,
  PBO_RAP_ERROR = 36,
  PBO_P3D_ERROR = 37,
  PBO_CANNOT_WRITE_KALTORPED = 38,
  PBO_CANNOT_READ_ENTRY_FILE = 39,
  PBO_CANNOT_READ_WRP = 40,
  PBO_CANNOT_TRAVERSE = 41,
  PBO_CANNOT_CREATE = 42,
  PBO_CANNOT_CREATE_RAP = 43,
  PBO_REQADDONS_SEMBRIC = 44,
  PBO_REQADDONS_P3D = 45,
  PBO_REQADDONS_WRP = 46,
  PBO_REQADDONS_ARRAY = 47,
  PBO_MISSING_LAND_CLASSES = 48,
  PBO_ROADSLIB_ERROR = 51,
  // An entry (or the archive's prefix) names a place outside the destination folder: an absolute
  // path, a drive letter, ".." climbing above the folder, or a symbolic link on the way.
  PBO_NAME_ESCAPES = 52,
  // A file the extraction would write already exists with other content (and force is off).
  PBO_WOULD_OVERWRITE = 53,
};
