// vendrak cfg decode FILE [-o OUT] [--no-tabs] [--xbox-key HEX]
#include <cstdio>
#include <memory>
#include <string>

#include "Command.h"
#include "Console.h"
#include "config/Kaltor.h"
#include "core/BisDLL.h"

namespace {
struct DecodeOptions {
  std::string file;
  std::string out;
  std::string key_hex;
  bool no_tabs = false;
};

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// 32 hex digits into 16 bytes; false for anything else.
bool parse_key(std::string const& hex, unsigned char (&key)[Kaltor::kXboxKeySize]) {
  if (hex.size() != 2 * Kaltor::kXboxKeySize) return false;
  for (int i = 0; i < Kaltor::kXboxKeySize; ++i) {
    int hi = hex_digit(hex[2 * i]), lo = hex_digit(hex[2 * i + 1]);
    if (hi < 0 || lo < 0) return false;
    key[i] = static_cast<unsigned char>(hi << 4 | lo);
  }
  return true;
}

int run_decode(DecodeOptions const& o) {
  BisDLL dll;
  Kaltor* k = dll.dll_GetKaltor();
  // The text may go to standard output, so every message of the decoder goes to standard error.
  k->drp_GetIO()->io_SetStdioCallBack(cli_print_stderr);
  k->drp_GetIO()->io_SetErrCallBack(cli_print_stderr);
  k->drp_SetTabChar(!o.no_tabs);
  if (!o.key_hex.empty()) {
    unsigned char key[Kaltor::kXboxKeySize];
    parse_key(o.key_hex, key);  // already validated by the option
    k->drp_SetXboxKey(key);
  }
  char const* text = nullptr;
  int r = k->drp_Decode(o.file.c_str(), &text);
  // A broken file still yields the text up to the fault (ending in a "//" error line): written
  // out, it shows where decoding stopped.
  if (k->drp_GetTextSize()) {
    if (!o.out.empty()) {
      if (!k->drp_WriteDecodedText(o.out.c_str(), 0)) {
        std::fprintf(stderr, "%s: %s\n", o.out.c_str(), Kaltor::ErrorString(6));
        if (!r) r = 6;
      }
    } else if (std::fwrite(text, 1, k->drp_GetTextSize(), stdout) != k->drp_GetTextSize() ||
               std::fflush(stdout) != 0) {
      if (!r) r = 6;
    }
  }
  if (r) std::fprintf(stderr, "%s: %s\n", o.file.c_str(), Kaltor::ErrorString(r));
  return r;
}

CommandRegistrar cfg_command({"cfg", "Binarised configs (raP)", [](CLI::App& cfg) -> std::function<int()> {
  cfg.require_subcommand(1);
  auto o = std::make_shared<DecodeOptions>();
  CLI::App* decode = cfg.add_subcommand("decode", "Decode a binarised config of any dialect to config text");
  decode->add_option("FILE", o->file, "The binarised config (config.bin, mission.sqm, ...)")->required();
  decode->add_option("-o,--output", o->out, "Write the text to this file instead of standard output");
  decode->add_flag("--no-tabs", o->no_tabs, "Indent with spaces instead of tabs");
  decode
      ->add_option("--xbox-key", o->key_hex,
                   "The 16-byte signing key of Xbox configs as 32 hex digits; without it their "
                   "signature is not verified")
      ->check(CLI::Validator(
          [](std::string& s) {
            unsigned char key[Kaltor::kXboxKeySize];
            return parse_key(s, key) ? std::string() : std::string("expected 32 hex digits");
          },
          "HEX"));
  return [o, decode]() -> int { return decode->parsed() ? run_decode(*o) : 0; };
}});
}  // namespace
