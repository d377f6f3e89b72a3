#pragma once
// What the terrain commands share: opening a terrain with its failure named on standard error.
#include <string>

#include "CliSupport.h"
#include "Console.h"
#include "core/BisDLL.h"
#include "terrain/Tessak.h"

// Opens a terrain with progress shown only when asked; warnings always reach standard error.
inline int open_terrain(BisDLL& dll, std::string const& path, bool verbose) {
  if (int r = cli_check_input(path)) return r;
  Tessak* t = dll.dll_GetTessak();
  t->wrp_GetIO()->io_SetStdioCallBack(verbose ? cli_print_stderr : cli_print_nothing);
  t->wrp_GetIO()->io_SetErrCallBack(cli_print_stderr);
  int r = t->wrp_Open(path.c_str());
  if (r) cli_error(path, std::string(Tessak::ErrorString(r)) + " (" + std::to_string(r) + ")");
  return r;
}
