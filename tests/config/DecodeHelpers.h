#pragma once
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "RapWriter.h"
#include "config/Kaltor.h"
#include "io/BisFileIO_test_util.h"
#include "core/BisDLL.h"

// Every message the tools send to either callback goes to g_msgs (capture_msg), in order.
struct Decoded {
  int code;
  std::string text, body, messages;  // the whole text, what follows the #define line, the callbacks' share
};

// Decodes from memory with a fresh context; the banner carries no date so the text is stable.
inline Decoded decode(Bytes const& b, bool tabs = true, int per_line = 0) {
  BisDLL dll;
  Kaltor* k = dll.dll_GetKaltor();
  k->drp_GetIO()->io_SetStdioCallBack(capture_msg);
  k->drp_SetTabChar(tabs);
  k->drp_SetElementsPerLine(per_line);
  g_msgs.clear();
  GenString text;
  Decoded d{k->drp_Decode(b.data(), b.size(), text, "test.bin", -1), text.c_str(), "", g_msgs};
  size_t at = d.text.find("#define ");
  if (at != std::string::npos) d.body = d.text.substr(d.text.find("\r\n\r\n", at) + 4);
  return d;
}

// The corpus beside the source tree; a worktree elsewhere names it in VENDRAK_CORPUS.
inline std::filesystem::path corpus() {
  char const* env = std::getenv("VENDRAK_CORPUS");
  return env && *env ? std::filesystem::path(env) : std::filesystem::path(VENDRAK_CORPUS);
}

inline Bytes file_bytes(std::filesystem::path const& p) {
  std::ifstream f(p, std::ios::binary);
  return Bytes((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
}
