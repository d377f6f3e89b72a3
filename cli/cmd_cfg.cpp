// vendrak cfg decode FILE [-o OUT] [-f] [--no-tabs] [--no-banner] [--xbox-key HEX]
// vendrak cfg preprocess FILE [-I DIR]... [-o OUT] [-f]
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "CliSupport.h"
#include "Command.h"
#include "TextOut.h"
#include "Console.h"
#include "config/Kaltor.h"
#include "config/RapMessages.h"
#include "config/Sembric.h"
#include "core/BisDLL.h"
#include "core/Generic_Errors.h"
#include "io/BisFileIO.h"

Sembric* cli_config_reader(BisDLL& dll, std::vector<std::string> const& includes) {
  Sembric* s = dll.dll_GetRap();
  s->rap_GetIO()->io_SetStdioCallBack(cli_print_stderr);
  s->rap_GetIO()->io_SetErrCallBack(cli_print_stderr);
  for (auto const& dir : includes) s->rap_AddIncludeFolder(dir.c_str());
  return s;
}

namespace {
struct DecodeOptions {
  std::string file;
  std::string out;
  std::string key_hex;
  bool no_tabs = false, no_banner = false, force = false;
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

// The banner names the file and the time of decoding; without it two decodes of one file compare
// equal. It is the block between the first two rows of slashes, with the blank line after it.
std::string_view without_banner(std::string_view text) {
  if (text.rfind("////", 0) != 0) return text;
  size_t first = text.find('\n');
  if (first == std::string_view::npos) return text;
  size_t close = text.find("\n////", first);
  if (close == std::string_view::npos) return text;
  size_t end = text.find('\n', close + 1);
  if (end == std::string_view::npos) return text;
  end += 1;
  if (text.compare(end, 2, "\r\n") == 0) end += 2;
  else if (text.compare(end, 1, "\n") == 0) end += 1;
  return text.substr(end);
}

// Config text on a terminal or a pipe ends its lines with LF; a file keeps the CR LF of the format.
bool write_lf(std::string_view text, FILE* f) {
  size_t start = 0;
  for (size_t i = 0; i + 1 < text.size(); ++i) {
    if (text[i] == '\r' && text[i + 1] == '\n') {
      if (std::fwrite(text.data() + start, 1, i - start, f) != i - start) return false;
      start = i + 1;
    }
  }
  return std::fwrite(text.data() + start, 1, text.size() - start, f) == text.size() - start;
}

std::string not_raP_reason(int r) {
  if (r == 100 || r == 3) return "not a binarised config";
  return {};
}

int run_decode(DecodeOptions const& o) {
  std::vector<unsigned char> bytes;
  if (cli_read_input(o.file, bytes)) return GE_EOF;  // the decoder's code for a file it cannot open
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
  std::string name = o.file == "-" ? std::string("(standard input)") : o.file;
  char const* text = nullptr;
  int r = k->drp_Decode(bytes.data(), static_cast<unsigned long>(bytes.size()), &text, name.c_str(), -1);
  std::string_view body(text ? text : "", text ? k->drp_GetTextSize() : 0);
  if (o.no_banner) body = without_banner(body);
  // A broken file still yields the text up to the fault (ending in a "//" error line): written
  // out, it shows where decoding stopped.
  int w = 0;
  if (!body.empty()) {
    if (!o.out.empty() && o.out != "-") {
      OutputFile out(o.out, o.force);
      w = out.open();
      if (!w) {
        FILE* f = std::fopen(out.path(), "wb");
        bool ok = f && std::fwrite(body.data(), 1, body.size(), f) == body.size();
        if (f && std::fclose(f) != 0) ok = false;
        if (!ok) {
          cli_error(o.out, std::strerror(errno));
          w = 6;
        } else if (r == 0) {
          w = out.commit();  // a failed decode never replaces the user's file
        }
      }
    } else if (!write_lf(body, stdout) || std::fflush(stdout) != 0) {
      cli_error("(standard output)", std::strerror(errno));
      w = 6;
    }
  }
  if (r) {
    std::string reason = not_raP_reason(r);
    cli_error(name, (reason.empty() ? "" : reason + ": ") + Kaltor::ErrorString(r) + " (" + std::to_string(r) + ")");
    return r;
  }
  return w;
}

int run_config_info(std::string const& path, bool json) {
  std::vector<unsigned char> bytes;
  if (int r = cli_read_input(path, bytes)) return r;
  BisDLL dll;
  Kaltor* k = dll.dll_GetKaltor();
  k->drp_GetIO()->io_SetStdioCallBack(cli_print_stderr);
  k->drp_GetIO()->io_SetErrCallBack(cli_print_stderr);
  char const* text = nullptr;
  int r = k->drp_Decode(bytes.data(), static_cast<unsigned long>(bytes.size()), &text, path.c_str(), -1);
  static char const* const dialects[] = {"OFP", "Arma", "Xbox (signed)"};
  int d = static_cast<int>(k->drp_GetDialect());
  char const* dialect = d >= 0 && d < 3 ? dialects[d] : "unknown";
  if (r == 0) {
    if (json) {
      nlohmann::ordered_json j;
      j["path"] = path;
      j["kind"] = "binarised config";
      j["dialect"] = dialect;
      j["size"] = bytes.size();
      j["text_size"] = k->drp_GetTextSize();
      cli_print_stdout("%s\n", json_text(j).c_str());
    } else {
      cli_print_stdout("%s: binarised config, %s dialect, %zu bytes (%llu bytes of text)\n", path.c_str(), dialect,
                  bytes.size(), static_cast<unsigned long long>(k->drp_GetTextSize()));
    }
    return 0;
  }
  cli_error(path, std::string(Kaltor::ErrorString(r)) + " (" + std::to_string(r) + ")");
  return r;
}

struct PreprocessOptions {
  std::string file;
  std::string out;
  std::vector<std::string> includes;
  bool force = false;
};

int run_preprocess(PreprocessOptions const& o) {
  std::vector<unsigned char> bytes;
  if (int r = cli_read_input(o.file, bytes)) return r;
  std::string name = o.file == "-" ? std::string("(standard input)") : o.file;
  BisDLL dll;
  Sembric* s = cli_config_reader(dll, o.includes);
  std::string text;
  int r = s->rap_Preprocess(name.c_str(), text, reinterpret_cast<char const*>(bytes.data()),
                            static_cast<unsigned>(bytes.size()));
  // The fault has been told with its file and line; the last line says the outcome.
  if (r) {
    int status = r >= RAP_STATUS ? r - RAP_STATUS : r;
    cli_error(name, std::string(Sembric::ErrorString(r)) + " (" + std::to_string(status) + ")");
    return status;
  }
  OutputFile out(o.out.empty() ? std::string("-") : o.out, o.force);
  if (int w = out.open()) return w;
  FILE* f = std::fopen(out.path(), "wb");
  bool ok = f && std::fwrite(text.data(), 1, text.size(), f) == text.size();
  if (f && std::fclose(f) != 0) ok = false;
  if (!ok) {
    cli_error(o.out.empty() ? std::string("(standard output)") : o.out, std::strerror(errno));
    return 6;
  }
  return out.commit();
}

CommandRegistrar preprocess_command({"cfg preprocess",
                                     "Print config text as the parser reads it: macros expanded, includes inlined",
                                     [](CLI::App& cmd) -> std::function<int()> {
  auto o = std::make_shared<PreprocessOptions>();
  cmd.add_option("FILE", o->file, "The config text (config.cpp, model.cfg, a header, ...); - reads standard input")
      ->required();
  cmd.add_option("-o,--output", o->out, "Write the text to this file (- or none: standard output)");
  cmd.add_flag("-f,--force", o->force, "Replace an existing output file that differs");
  cmd.add_option("-I,--include", o->includes,
                 "A folder that includes are looked up below, as a mapped project drive (repeatable, in order)")
      ->allow_extra_args(false);
  return [o]() -> int { return run_preprocess(*o); };
}});

bool looks_like_rap(unsigned char const* head, size_t n, std::string const&) {
  return n >= 4 && BisFileIO::io_BufIsRaPified(head) >= 0;
}

InfoRegistrar rap_info({"binarised config", looks_like_rap, run_config_info});

CommandRegistrar decode_command({"cfg decode", "Decode a binarised config of any dialect to config text",
                                 [](CLI::App& decode) -> std::function<int()> {
  auto o = std::make_shared<DecodeOptions>();
  decode.add_option("FILE", o->file, "The binarised config (config.bin, mission.sqm, ...); - reads standard input")
      ->required();
  decode.add_option("-o,--output", o->out, "Write the text to this file (- or none: standard output)");
  decode.add_flag("-f,--force", o->force, "Replace an existing output file that differs");
  decode.add_flag("--no-tabs", o->no_tabs, "Indent with spaces instead of tabs");
  decode.add_flag("--no-banner", o->no_banner, "Leave out the banner comment (its time stamp differs per run)");
  decode
      .add_option("--xbox-key", o->key_hex,
                  "The 16-byte signing key of Xbox configs as 32 hex digits; without it their "
                  "signature is not verified")
      ->check(CLI::Validator(
          [](std::string& s) {
            unsigned char key[Kaltor::kXboxKeySize];
            return parse_key(s, key) ? std::string() : std::string("expected 32 hex digits");
          },
          "HEX"));
  return [o]() -> int { return run_decode(*o); };
}});
}  // namespace
