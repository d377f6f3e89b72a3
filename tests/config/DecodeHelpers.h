#pragma once
#include <cstdarg>
#include <cstdio>
#include <string>

#include "RapWriter.h"
#include "config/Kaltor.h"
#include "core/BisDLL.h"

// Every message the decoder sends to either callback, in order.
inline std::string& captured() {
  static std::string text;
  return text;
}
inline bool capture(char const* format, ...) {
  char buf[2048];
  va_list ap;
  va_start(ap, format);
  std::vsnprintf(buf, sizeof buf, format, ap);
  va_end(ap);
  captured() += buf;
  return true;
}

struct Decoded {
  int code;
  std::string text;      // the whole text
  std::string body;      // what follows the #define line
  std::string messages;  // what reached the callbacks
};

// Decodes from memory with a fresh context; the banner carries no date so the text is stable.
inline Decoded decode(Bytes const& b, bool tabs = true, unsigned char const* key = nullptr) {
  BisDLL dll;
  Kaltor* k = dll.dll_GetKaltor();
  k->drp_GetIO()->io_SetStdioCallBack(capture);
  k->drp_SetTabChar(tabs);
  k->drp_SetXboxKey(key);
  captured().clear();
  GenString text;
  Decoded d;
  d.code = k->drp_Decode(b.data(), b.size(), text, "test.bin", -1);
  d.text = text.c_str();
  d.messages = captured();
  size_t at = d.text.find("#define ");
  if (at != std::string::npos) d.body = d.text.substr(d.text.find("\r\n\r\n", at) + 4);
  return d;
}
