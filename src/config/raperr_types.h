#pragma once

// The config decoder's own result codes; every other code is a generic one.
enum raperr_types : int {
  RAPERR_UNKNOWN_ENTRY_TYPE = 10,    // "Kaltor: Unknown Entry type"
  RAPERR_UNKNOWN_ARRAY_TYPE = 11,    // "Kaltor: Unknown ArrayType"
  RAPERR_TOKEN_NAME_EXPECTED = 12,   // "Kaltor: TokenName expected for entry"
  RAPERR_EMBEDDED_ARRAY_NAMED = 13,  // "Kaltor: Embedded arrays cannot have names"
  RAPERR_MISSING_NAME = 14,          // "Kaltor: Missing name for class or array"
  RAPERR_XBOX_SHA = 15,              // "Kaltor: xbox sha is wrong"
  RAPERR_NOT_RAP = 100,              // "Kaltor: Not a raP file"
  RAPERR_XBOX_META = 101,            // "Kaltor: xbox meta file"
};
