#include "config/RapMessages.h"

#include "core/GenericError.h"

namespace {
// Indexed from 10; the entry for 33 is never used (33 is a generic number). The wording, spelling
// mistakes included, is what users and scripts match against.
char const* const kTable[] = {
    "unexpected eol",                                              // 10
    "bad eval/exec",                                               // 11
    "EOF encountered",                                             // 12
    "Mismatched quotes or missing ','",                            // 13
    "No raptext_Token",                                            // 14
    "Recursive comment /\052",                                     // 15
    "extraneous character. Expected class, define, or varname",    // 16
    "Internal err: No include to uninclude",                       // 17
    "Expected Semicolon (or eol)",                                 // 18
    "Expected class name",                                         // 19
    "Expected class {",                                            // 20
    "Expected Inherit or {",                                       // 21
    "Unknown #",                                                   // 22
    "Unknown #undef label",                                        // 23
    "Expected ]={",                                                // 24
    "#Define bad label",                                           // 25
    "Expected (...) during define expansion",                      // 26
    "Not enough parms in define expansion",                        // 27
    "#define altered without a #undef",                            // 28
    "Cannot include file",                                         // 29
    "#endif or #else with no #if",                                 // 30
    "Rap: duplicated token or class",                              // 31
    "continuation slash at eof",                                   // 32
    nullptr,                                                       // 33
    "rap: missing inheritence class(es)",                          // 34
    "var is 'string' or illegal value",                            // 35
    "Expected ';' or ':' or '{' after classname",                  // 36
    "Trailing comma in array. binarise will have a fit, ask bis to get their act together",  // 37
    "Spurious ; in array",                                                                  // 38
    "true and false do not exist. use #defines or ask bis to get their act together",      // 39
    "Rap: delete keyword not usable in model.cfg's",                                        // 40
    "Rap: rebuild reqaddons failed",                                                        // 41
    "Rap: quoted filename has extraneous spaces",                                           // 42
    "access= anything is bis-only to protect thier classes. Remove this line, it is no use to you, "
    "and deadly to the engine.",                                                                    // 43
    "double ;; detected. binarise will have a fit. Ask bis to get their act together.",            // 44
    "drive: specifiers can't be placed in pbo, and have no context in linux servers",              // 45
    "No classes have been built",                                                                   // 46
    "Cannot write to file",                                                                         // 47
    "rapWarning: **********missing file(s)***************",                                        // 48
    "rap: cannot change drive:",                                                                    // 49
    "Prebinarised file has error(s)",                                                               // 50
    "config.cpp uses external classes but has no RequiredAddons to say where they are.",           // 51
    "no cfgPatches.AddonName",                                                                      // 52
    "NameOf.wrp not the same as the cfgWorlds.classname",                                           // 53
    "\ndo not put cutscenes in your pbo, you condemn your map to working only with these units available",  // 54
    "Rap: eval/exec has unbinarisable sqX",                                                         // 55
    "there are clutter errors in the config",                                                       // 56
    "rebuilding units[]= failed",                                                                   // 57
};
constexpr int kFirst = 10;
constexpr int kLast = kFirst + static_cast<int>(sizeof kTable / sizeof kTable[0]) - 1;
static_assert(kLast == 57);
}  // namespace

char const* rap_message_text(int number) {
  if (number >= 0 && (number & RAP_STATUS)) number &= ~RAP_STATUS;
  if (number < kFirst || number == 33) return GenericError::ErrorString(number);
  if (number > kLast) return "Invalid error status. internal error of status return";
  return kTable[number - kFirst];
}

bool rap_message_is_bare(int number) {
  if (number >= 0) number &= ~RAP_STATUS;
  return number == 0 || number == RAPMSG_MISSING_FILES;
}
