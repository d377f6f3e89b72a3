// vendrak extract: unpacks an archive into a folder, with a progress bar on a terminal and one
// summary line at the end.
#include <unistd.h>

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "CliSupport.h"
#include "Command.h"
#include "TextOut.h"
#include "Console.h"
#include "PboCommon.h"
#include "core/BisDLL.h"
#include "core/BisMessage.h"
#include "io/BisFileIO.h"
#include "pbo/Vendrak.h"
#include "text/BisTokens.h"
#include "text/FileStringA.h"

namespace {
struct ExtractOptions {
  std::string archive, destination;
  std::vector<std::string> files, excludes;
  bool decode = false, quiet = false, strict = false, no_tabs = false, sha_message = false, force = false;
};

// While the bar is drawn on a terminal that also shows standard output, the bar names each entry
// and the per-entry lines are held back; every other message first clears the bar's line.
struct ExtractState {
  ProgressBar* bar = nullptr;
  bool hide_entry_lines = false;
  bool in_entry = false;
  uint64_t entries = 0;
  uint64_t bytes = 0;
};
ExtractState g_state;

bool print_beside_bar(char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  std::string text = bis_vformat(format, ap);
  va_end(ap);
  if (g_state.in_entry) {
    if (text.find('\n') != std::string::npos) g_state.in_entry = false;
    return hidden_message("");
  }
  if (g_state.bar) g_state.bar->finish();
  return cli_print_stdout("%s", text.c_str());
}

bool errors_beside_bar(char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  std::string text = bis_vformat(format, ap);
  va_end(ap);
  if (g_state.bar) g_state.bar->finish();
  return cli_print_stderr("%s", text.c_str());
}

void progress_hook(void*, uint64_t done, uint64_t total, char const* entry) {
  if (entry && *entry) {
    ++g_state.entries;
    if (g_state.bar) g_state.bar->update(done, total, entry);
    g_state.in_entry = g_state.bar && g_state.hide_entry_lines;
  } else {
    g_state.bytes = done;
    if (g_state.bar) g_state.bar->complete();
  }
}

// The comma lists joined into one; a name typed in UTF-8 also stands in the form an older archive
// stores it in (Windows-1252), so that either matches.
std::string join(std::vector<std::string> const& lists) {
  std::string all;
  for (auto const& list : lists) {
    size_t at = 0;
    while (at <= list.size()) {
      size_t comma = list.find(',', at);
      std::string item = list.substr(at, comma == std::string::npos ? std::string::npos : comma - at);
      at = comma == std::string::npos ? list.size() + 1 : comma + 1;
      all += (all.empty() ? "" : ",") + item;
      std::string stored;
      if (text_to_1252(item, stored)) all += "," + stored;
    }
  }
  return all;
}

int run_extract(ExtractOptions const& o) {
  if (int r = check_archive(o.archive)) return r;
  std::string files = join(o.files);

  int flags = (o.decode ? Vendrak::EXTRACT_DECODE_CONFIGS : 0) | (o.quiet ? Vendrak::EXTRACT_QUIET : 0) |
              (o.sha_message ? Vendrak::EXTRACT_SHA_MESSAGE : 0) |
              (o.strict ? Vendrak::EXTRACT_WARNINGS_ARE_ERRORS : 0) | (o.no_tabs ? Vendrak::EXTRACT_NO_TABS : 0) |
              (o.force ? Vendrak::EXTRACT_FORCE : 0);
  bool bar_shown = !o.quiet && isatty(STDERR_FILENO);
  ProgressBar bar(bar_shown);
  g_state = ExtractState{bar_shown ? &bar : nullptr, bar_shown && isatty(STDOUT_FILENO), false, 0, 0};

  BisDLL dll;
  Vendrak* tool = dll.dll_GetVendrak();
  tool->pbo_GetIO()->io_SetErrCallBack(bar_shown ? errors_beside_bar : cli_print_stderr);
  tool->pbo_SetProgressHook(progress_hook, nullptr);
  tool->pbo_SetExtractExclude(join(o.excludes).c_str());
  // Quiet also silences the per-entry lines; errors and warnings still reach standard error.
  BisCallback messages = o.quiet ? hidden_message : bar_shown ? print_beside_bar : cli_print_stdout;
  auto start = std::chrono::steady_clock::now();
  int r = tool->pbo_Extract(o.archive.c_str(), messages, flags, files.empty() ? nullptr : files.c_str(),
                            o.destination.empty() ? nullptr : o.destination.c_str());
  tool->pbo_SetProgressHook(nullptr, nullptr);
  bar.finish();
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (!o.quiet && (r == 0 || r == PBO_CORRUPTED_SHA))
    std::printf("%llu file(s), %llu bytes in %.2f s\n", static_cast<unsigned long long>(g_state.entries),
                static_cast<unsigned long long>(g_state.bytes), seconds);
  g_state = ExtractState{};
  return finish_archive(r, o.archive);
}

CommandRegistrar extract_command({"extract", "Unpack an archive into a folder", [](CLI::App& sub) {
  auto o = std::make_shared<ExtractOptions>();
  sub.add_option("--files", o->files,
                 "Entry names or wildcard patterns to extract (comma-separated; may be repeated)")
      ->delimiter(',')
      ->allow_extra_args(false);
  sub.add_option("--exclude", o->excludes, "Entry names or wildcard patterns to leave out (may be repeated)")
      ->delimiter(',')
      ->allow_extra_args(false);
  sub.add_flag("--decode-configs", o->decode, "Write binarised configs as text (config.bin becomes config.cpp)");
  sub.add_flag("-q,--quiet", o->quiet, "No properties report, per-file lines, progress or summary");
  sub.add_flag("-f,--force", o->force, "Replace files in the destination whose content differs from the entries");
  sub.add_flag("--warnings-as-errors", o->strict, "Fail on warnings (residual bytes, nothing extracted)");
  sub.add_flag("--no-tabs", o->no_tabs, "Indent decoded configs with spaces instead of tabs");
  sub.add_flag("--sha-message", o->sha_message, "Say when the SHA-1 trailer is being verified");
  sub.add_option("ARCHIVE", o->archive, "The archive (.pbo, .ifa or .xbo)")->required();
  sub.add_option("DEST", o->destination,
                 "Destination folder (the archive's prefix or name is created below it); "
                 "default: beside the archive, named after it");
  return std::function<int()>([o] { return run_extract(*o); });
}});
}  // namespace
