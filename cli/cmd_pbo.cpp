// Archive commands: info (through `vendrak info`), list, extract, cat.
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <nlohmann/json.hpp>
#include <string>

#include "CliSupport.h"
#include "PboCommon.h"
#include "Command.h"
#include "TextOut.h"
#include "Console.h"
#include "core/BisDLL.h"
#include "core/BisMessage.h"
#include "io/BisFileIO.h"
#include "pbo/Vendrak.h"
#include "text/BisTokens.h"
#include "text/FileStringA.h"
#include "text/HexText.h"
#include "text/TokenPairs.h"

namespace {
using ojson = nlohmann::ordered_json;

bool exists(std::string const& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0;
}

std::string archive_file(std::string const& path) {
  if (exists(path)) return path;
  for (char const* ext : {".pbo", ".ifa", ".xbo"})
    if (exists(path + ext)) return path + ext;
  return path;
}

}  // namespace

// Messages that are not shown still let Escape cancel, but the console is polled at most ten times a
// second: each poll waits a moment for a key, and an archive of thousands of entries sends thousands
// of messages.
bool hidden_message(char const*, ...) {
  using clock = std::chrono::steady_clock;
  static clock::time_point last;
  clock::time_point now = clock::now();
  if (now - last < std::chrono::milliseconds(100)) return true;
  last = now;
  return cli_print_nothing("");
}

// The archive may be named without its .pbo, .ifa or .xbo extension, as the library allows; a name
// that matches nothing is reported with the system's reason.
int check_archive(std::string const& path) {
  if (exists(path)) return cli_check_input(path);
  for (char const* ext : {".pbo", ".ifa", ".xbo"})
    if (exists(path + ext)) return cli_check_input(path + ext);
  return cli_check_input(path);
}

// The result code names what went wrong in the user's words: the kind that was expected, or where
// a short file ends.
int finish_archive(int result, std::string const& archive) {
  if (result == 0) return 0;
  std::string reason;
  struct stat st {};
  std::string file = archive_file(archive);
  if (result == 3 && ::stat(file.c_str(), &st) == 0) {
    reason = std::string("not a PBO archive: ") + Vendrak::ErrorString(result);
  } else if (result == 1 && ::stat(file.c_str(), &st) == 0) {
    reason = "truncated: the file ends at byte " + std::to_string(st.st_size) + ", before the data its header lists";
  } else {
    reason = Vendrak::ErrorString(result);
  }
  cli_error(archive, reason + " (" + std::to_string(result) + ")");
  return result;
}

namespace {
Vendrak* archive_tool(BisDLL& dll, BisCallback errors = cli_print_stderr) {
  Vendrak* tool = dll.dll_GetVendrak();
  tool->pbo_GetIO()->io_SetErrCallBack(errors);
  return tool;
}


std::string hex(uint8_t const* bytes, size_t n) {
  char text[2 * 64 + 1] = "";
  if (bytes && n <= 64) hex_upper(bytes, n, text);
  return text;
}

std::string kind_text(Vendrak const& tool) {
  char const* report = tool.pbo_GetReport();
  char const* at = report ? std::strstr(report, "//Pbo Type is: ") : nullptr;
  if (!at) return {};
  at += std::strlen("//Pbo Type is: ");
  return std::string(at, at + std::strcspn(at, "\r\n"));
}

std::string method_name(pbo_entry const& e) {
  switch (e.pbe_GetPackingMethod()) {
    case pbo_entry::kStored: return e.pbe_iscompressed() ? "compressed" : "stored";
    case pbo_entry::kCompressed: return "compressed";
    case pbo_entry::kProperties: return "properties";
    default: {
      char word[16];
      std::snprintf(word, sizeof word, "0x%08X", e.pbe_GetPackingMethod());
      return word;
    }
  }
}

// One object for scripts: what `info` reports and what `list` lists.
ojson archive_json(Vendrak& tool, std::string const& path, int result) {
  ojson j;
  j["path"] = path;
  j["kind"] = kind_text(tool);
  j["type"] = tool.pbo_GetType();
  j["prefix"] = tool.pbo_GetPrefix() ? tool.pbo_GetPrefix() : "";
  ojson props = ojson::object();
  for (TokenPair* p = tool.pbo_GetProperties(); p; p = p->GetNext()) props[p->name()] = p->value();
  j["properties"] = props;
  ojson sha;
  bool has_trailer = tool.pbo_GetStoredSha() != nullptr;
  sha["stored"] = has_trailer ? ojson(hex(tool.pbo_GetStoredSha(), 20)) : ojson(nullptr);
  sha["computed"] = tool.pbo_GetComputedSha() ? ojson(hex(tool.pbo_GetComputedSha(), 20)) : ojson(nullptr);
  sha["ok"] = result != PBO_CORRUPTED_SHA;
  j["sha"] = sha;
  ojson entries = ojson::array();
  for (pbo_entry* e = tool.pbo_GetFirstEntry(); e; e = e->GetNext()) {
    ojson x;
    x["name"] = e->pbe_GetFilename();
    x["size"] = e->pbe_iscompressed() ? e->pbe_GetOriginalSize() : e->pbe_GetStoredDataSize();
    x["packed_size"] = e->pbe_GetStoredDataSize();
    x["method"] = method_name(*e);
    x["time"] = e->pbe_GetTimeStamp();
    entries.push_back(x);
  }
  j["entries"] = entries;
  return j;
}

// The entry line of a listing: name, time stamp as ctime() writes it, size (and packed size).
void print_entry_line(pbo_entry const& e) {
  time_t t = static_cast<time_t>(e.pbe_GetTimeStamp());
  char when[64] = "";
  if (!ctime_r(&t, when)) when[0] = 0;
  when[std::strcspn(when, "\n")] = 0;
  if (e.pbe_iscompressed())
    cli_print_stdout("%s:%s: size %llu (compressed or encrypted size=%llu)\n", e.pbe_GetFilename(), when,
                static_cast<unsigned long long>(e.pbe_GetOriginalSize()),
                static_cast<unsigned long long>(e.pbe_GetStoredDataSize()));
  else
    cli_print_stdout("%s:%s: size %llu\n", e.pbe_GetFilename(), when,
                static_cast<unsigned long long>(e.pbe_GetStoredDataSize()));
}

int run_info(std::string const& archive, bool json) {
  if (int r = check_archive(archive)) return r;
  BisDLL dll;
  Vendrak* tool = archive_tool(dll);
  // A bad SHA-1 still opens: the report is shown and the code is 19.
  int r = tool->pbo_Open(archive.c_str(), json ? hidden_message : cli_print_stdout, 0);
  if (r == 0 || r == PBO_CORRUPTED_SHA) {
    if (json)
      cli_print_stdout("%s\n", json_text(archive_json(*tool, archive, r)).c_str());
    else
      tool->pbo_ReportStrangeValues();
  }
  tool->ClosePbo();
  return finish_archive(r, archive);
}

bool looks_like_pbo(unsigned char const* head, size_t n, std::string const&) {
  // An archive with a properties header starts with an empty name and the "Vers" method word.
  return n >= 5 && head[0] == 0 && std::memcmp(head + 1, "sreV", 4) == 0;
}

bool named_like_pbo(unsigned char const*, size_t, std::string const& path) {
  return Vendrak::pbo_HasPboExt(path.c_str()) != 0;
}

InfoRegistrar pbo_info({"PBO archive", looks_like_pbo, run_info});
InfoRegistrar pbo_info_by_name({"PBO archive", named_like_pbo, run_info, true});

CommandRegistrar list_command({"list", "List the files of an archive", [](CLI::App& sub) {
  struct Options {
    std::string archive;
    bool names = false, json = false;
  };
  auto o = std::make_shared<Options>();
  sub.add_flag("--names", o->names, "Print the entry names only");
  sub.add_flag("--json", o->json, "Print the archive and its entries as one JSON object");
  sub.add_option("ARCHIVE", o->archive, "The archive (.pbo, .ifa or .xbo)")->required();
  return std::function<int()>([o] {
    if (int r = check_archive(o->archive)) return r;
    BisDLL dll;
    Vendrak* tool = archive_tool(dll);
    // The properties report belongs to `info`: a listing is the entry lines alone.
    int r = tool->pbo_Open(o->archive.c_str(), hidden_message, Vendrak::OPEN_NO_REPORT);
    if (r == 0 || r == PBO_CORRUPTED_SHA) {
      if (o->json) {
        cli_print_stdout("%s\n", json_text(archive_json(*tool, o->archive, r)).c_str());
      } else {
        for (pbo_entry* e = tool->pbo_GetFirstEntry(); e; e = e->GetNext()) {
          if (o->names)
            cli_print_stdout("%s\n", e->pbe_GetFilename());
          else
            print_entry_line(*e);
        }
      }
    }
    tool->ClosePbo();
    return finish_archive(r, o->archive);
  });
}});

CommandRegistrar cat_command({"cat", "Write one entry of an archive to standard output", [](CLI::App& sub) {
  struct Options {
    std::string archive, entry;
  };
  auto o = std::make_shared<Options>();
  sub.add_option("ARCHIVE", o->archive, "The archive (.pbo, .ifa or .xbo)")->required();
  sub.add_option("ENTRY", o->entry, "The entry's whole path as `list --names` prints it (either slash, any case)")->required();
  return std::function<int()>([o] {
    if (int r = check_archive(o->archive)) return r;
    BisDLL dll;
    Vendrak* tool = archive_tool(dll);
    int r = tool->pbo_Open(o->archive.c_str(), hidden_message, Vendrak::OPEN_NO_REPORT);
    if (r != 0 && r != PBO_CORRUPTED_SHA) return finish_archive(r, o->archive);
    // The whole path, as typed or, for a name typed in UTF-8, as an older archive stores it.
    pbo_entry* e = tool->pbo_FindEntryPath(o->entry.c_str());
    std::string stored;
    if (!e && text_to_1252(o->entry, stored)) e = tool->pbo_FindEntryPath(stored.c_str());
    if (!e) {
      tool->ClosePbo();
      cli_error(o->archive, "no entry '" + o->entry + "' in the archive (" + std::to_string(PBO_NOTHING_TO_EXTRACT) + ")");
      return static_cast<int>(PBO_NOTHING_TO_EXTRACT);
    }
    int size = 0;
    uint8_t const* data = tool->pbo_ReadEntryData(e, &size, 0);
    if (!data) {
      int err = tool->pbo_GetLastError();
      tool->ClosePbo();
      return finish_archive(err ? err : 1, o->archive);
    }
    bool ok = std::fwrite(data, 1, static_cast<size_t>(size), stdout) == static_cast<size_t>(size) &&
              std::fflush(stdout) == 0;
    tool->ClosePbo();
    if (!ok) {
      cli_error("(standard output)", std::strerror(errno));
      return 6;
    }
    return finish_archive(r, o->archive);  // a bad SHA-1 still gives the bytes, and 19
  });
}});
}  // namespace
