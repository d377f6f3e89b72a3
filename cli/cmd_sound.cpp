// vendrak sound info FILE [--json]
// vendrak sound convert IN OUT [--to wav|wss|wss-nibble|wss-byte|ogg] [--rate HZ] [-f]
// vendrak sound lip IN OUT [--threshold X] [-f]
#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "CliSupport.h"
#include "Command.h"
#include "TextOut.h"
#include "Console.h"
#include "core/BisDLL.h"
#include "io/BisFileIO.h"
#include "sound/BisSound.h"

namespace {
std::map<std::string, int> const& kinds() {
  static std::map<std::string, int> const table = {{"wav", BisSound::KIND_WAV},
                                                   {"wss", BisSound::KIND_WSS},
                                                   {"wss-nibble", BisSound::KIND_WSS_NIBBLE},
                                                   {"wss-byte", BisSound::KIND_WSS_BYTE},
                                                   {"ogg", BisSound::KIND_OGG}};
  return table;
}

char const* kind_name(int type) {
  switch (type) {
    case BisSound::SOUND_WSS: return "wss";
    case BisSound::SOUND_WAV: return "wav";
    case BisSound::SOUND_OGG: return "ogg";
    default: return "none";
  }
}

void sound_error(std::string const& path, int r) {
  cli_error(path, std::string(BisSound::ErrorString(r)) + " (" + std::to_string(r) + ")");
}

// Opens IN (a file or "-", standard input) with its report going to `report` (null: no report)
// and errors to standard error.
int open_sound(BisSound* tool, std::string const& in, BisCallback report) {
  std::vector<unsigned char> bytes;
  if (int r = cli_read_input(in, bytes)) return r;
  tool->wss_GetFileIO()->io_SetErrCallBack(cli_print_stderr);
  int r = tool->wss_Open(bytes.data(), bytes.size(), report ? report : cli_print_nothing,
                         report ? 0 : BisSound::OPEN_NO_REPORT, in.c_str());
  if (r) sound_error(in, r);
  return r;
}

int run_info(std::string const& file, bool json) {
  BisDLL dll;
  BisSound* tool = dll.dll_GetSonmar();
  if (int r = open_sound(tool, file, json ? nullptr : cli_print_stdout)) return r;
  if (!json) return 0;
  WssFormat const& f = tool->wss_GetFormat();
  nlohmann::ordered_json j;
  j["path"] = file;
  j["kind"] = "sound";
  j["format"] = kind_name(tool->wss_GetSoundType());
  j["compression"] = tool->wss_GetCompression();
  j["channels"] = f.channels;
  j["samples_per_sec"] = f.samples_per_sec;
  j["bytes_per_sec"] = f.bytes_per_sec;
  j["block_align"] = f.block_align;
  j["bits_per_sample"] = f.bits_per_sample;
  j["frames"] = tool->wss_GetFrames();
  j["playtime"] = tool->wss_GetPlayTime();
  j["pcm_bytes"] = tool->wss_GetDataSize();
  j["stored_bytes"] = tool->wss_GetStoredSize();
  j["size"] = tool->wss_GetFileSize();
  cli_print_stdout("%s\n", json_text(j).c_str());
  return 0;
}

struct ConvertOptions {
  std::string in, out, to;
  unsigned rate = 0;
  bool force = false;
};

// The output kind: --to, or else OUT's extension.
int output_kind(ConvertOptions const& o) {
  if (!o.to.empty()) return kinds().at(o.to);
  std::string ext;
  size_t dot = o.out.find_last_of('.');
  if (dot != std::string::npos && o.out.find_first_of("/\\", dot) == std::string::npos) ext = o.out.substr(dot + 1);
  for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  auto it = kinds().find(ext);
  return it == kinds().end() ? -1 : it->second;
}

// The name after the last separator, for the comment of an Ogg file.
std::string base_name(std::string const& path) {
  size_t slash = path.find_last_of("/\\");
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

int run_convert(ConvertOptions const& o) {
  int kind = output_kind(o);
  if (kind < 0) {
    cli_error(o.out, "cannot tell the kind of sound from the name; give --to wav|wss|wss-nibble|wss-byte|ogg");
    return kExitUsage;
  }
  BisDLL dll;
  BisSound* tool = dll.dll_GetSonmar();
  if (int r = open_sound(tool, o.in, nullptr)) return r;
  OutputFile out(o.out, o.force);
  if (int r = out.open()) return r;
  // The library writes a temporary file beside the target: the comment names the target.
  tool->wss_SetOggTitle(o.out == "-" ? "" : base_name(o.out).c_str());
  int r = o.rate ? tool->wss_Resample(out.path(), o.rate, static_cast<unsigned>(kind)) : tool->wss_Create(out.path(), kind);
  if (r) {
    // Failures to write belong to the output; everything else to the sound read.
    sound_error(r == GE_INVALID_FILE || r == GE_CANNOT_WRITE ? o.out : o.in, r);
    return r;
  }
  return out.commit();
}

struct LipOptions {
  std::string in, out;
  float threshold = 0.1f;
  bool force = false;
};

int run_lip(LipOptions const& o) {
  BisDLL dll;
  BisSound* tool = dll.dll_GetSonmar();
  if (int r = open_sound(tool, o.in, nullptr)) return r;
  OutputFile out(o.out, o.force);
  if (int r = out.open()) return r;
  if (int r = tool->wss_CreateLip(out.path(), o.threshold)) {
    sound_error(o.in, r);
    return r;
  }
  return out.commit();
}

bool looks_like_sound(unsigned char const* head, size_t n, std::string const&) {
  if (n >= 4 && (std::memcmp(head, "WSS0", 4) == 0 || std::memcmp(head, "OggS", 4) == 0)) return true;
  return n >= 12 && std::memcmp(head, "RIFF", 4) == 0 && std::memcmp(head + 8, "WAVE", 4) == 0;
}

InfoRegistrar sound_info_handler({"sound", looks_like_sound, run_info});

CommandRegistrar sound_info({"sound info", "Report a sound's format: WSS0, RIFF WAVE or Ogg Vorbis",
                             [](CLI::App& cmd) -> std::function<int()> {
                               auto file = std::make_shared<std::string>();
                               auto json = std::make_shared<bool>(false);
                               cmd.add_option("FILE", *file, "The sound (.wss, .wav, .ogg)")->required();
                               cmd.add_flag("--json", *json, "Print the format as JSON");
                               return [file, json] { return run_info(*file, *json); };
                             }});

CommandRegistrar sound_convert(
    {"sound convert", "Convert a sound to WAVE, WSS0 (plain, nibble or byte) or Ogg Vorbis, optionally resampled",
     [](CLI::App& cmd) -> std::function<int()> {
       auto o = std::make_shared<ConvertOptions>();
       cmd.add_option("IN", o->in, "The sound to read (.wss, .wav, .ogg)")->required();
       cmd.add_option("OUT", o->out, "The file to write; - for standard output")->required();
       std::vector<std::string> names;
       for (auto const& [name, kind] : kinds()) names.push_back(name);
       cmd.add_option("--to", o->to, "The kind to write; without it the kind follows OUT's extension")
           ->check(CLI::IsMember(names));
       cmd.add_option("--rate", o->rate, "Resample to this many samples per second first")
           ->check(CLI::Range(1u, BisSound::kMaxRate));
       cmd.add_flag("-f,--force", o->force, "Replace an existing OUT");
       return [o] { return run_convert(*o); };
     }});

CommandRegistrar sound_lip({"sound lip", "Write lip-sync text for a 16-bit mono sound",
                            [](CLI::App& cmd) -> std::function<int()> {
                              auto o = std::make_shared<LipOptions>();
                              cmd.add_option("IN", o->in, "The sound (16-bit mono)")->required();
                              cmd.add_option("OUT", o->out, "The lip-sync file to write; - for standard output")
                                  ->required();
                              cmd.add_option("--threshold", o->threshold,
                                             "Loudness, as a fraction of the loudest 40 ms window, below which "
                                             "the mouth is closed (default 0.1)")
                                  ->check(CLI::Range(0.0f, 0.99f));
                              cmd.add_flag("-f,--force", o->force, "Replace an existing OUT");
                              return [o] { return run_lip(*o); };
                            }});
}  // namespace
