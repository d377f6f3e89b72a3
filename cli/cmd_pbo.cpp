// Archive commands: info, list, extract.
#include <unistd.h>

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "Command.h"
#include "Console.h"
#include "core/BisMessage.h"
#include "core/BisDLL.h"
#include "io/BisFileIO.h"
#include "pbo/Vendrak.h"

namespace {
// Messages to standard output, errors and warnings to standard error; a failing result is named.
Vendrak* archive_tool(BisDLL& dll, BisCallback errors = cli_print_stderr) {
  Vendrak* tool = dll.dll_GetVendrak();
  tool->pbo_GetIO()->io_SetErrCallBack(errors);
  return tool;
}

int finish(int result, char const* archive) {
  if (result != 0) cli_print_stderr("vendrak: %s: %s (%d)\n", archive, Vendrak::ErrorString(result), result);
  return result;
}

// While the bar is drawn on a terminal that also shows standard output, the bar names each entry
// and the per-entry lines are held back; every other message first clears the bar's line.
struct BarState {
  ProgressBar* bar = nullptr;
  bool hide_entry_lines = false;
  bool in_entry = false;
};
BarState g_bar;

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

bool print_beside_bar(char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  std::string text = bis_vformat(format, ap);
  va_end(ap);
  if (g_bar.in_entry) {
    if (text.find('\n') != std::string::npos) g_bar.in_entry = false;
    return hidden_message("");
  }
  if (g_bar.bar) g_bar.bar->finish();
  return cli_print_stdout("%s", text.c_str());
}

bool errors_beside_bar(char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  std::string text = bis_vformat(format, ap);
  va_end(ap);
  if (g_bar.bar) g_bar.bar->finish();
  return cli_print_stderr("%s", text.c_str());
}

void progress_hook(void* context, uint64_t done, uint64_t total, char const* entry) {
  auto* bar = static_cast<ProgressBar*>(context);
  if (entry && *entry) {
    bar->update(done, total, entry);
    g_bar.in_entry = g_bar.hide_entry_lines;
  } else {
    bar->finish();
  }
}

CommandRegistrar info_command({"info", "Open an archive and print its properties report",
                               [](CLI::App& sub) {
                                 auto archive = std::make_shared<std::string>();
                                 sub.add_option("ARCHIVE", *archive, "The archive (.pbo, .ifa or .xbo)")->required();
                                 return std::function<int()>([archive] {
                                   BisDLL dll;
                                   Vendrak* tool = archive_tool(dll);
                                   int r = tool->pbo_Open(archive->c_str(), cli_print_stdout, 0);
                                   if (r == 0 || r == PBO_CORRUPTED_SHA) tool->pbo_ReportStrangeValues();
                                   tool->ClosePbo();
                                   return finish(r, archive->c_str());
                                 });
                               }});

CommandRegistrar list_command({"list", "List the files of an archive",
                               [](CLI::App& sub) {
                                 auto archive = std::make_shared<std::string>();
                                 auto names = std::make_shared<bool>(false);
                                 sub.add_flag("--names", *names, "Print the entry names only");
                                 sub.add_option("ARCHIVE", *archive, "The archive (.pbo, .ifa or .xbo)")->required();
                                 return std::function<int()>([archive, names] {
                                   BisDLL dll;
                                   Vendrak* tool = archive_tool(dll);
                                   int flags = Vendrak::EXTRACT_LIST_ONLY | (*names ? Vendrak::EXTRACT_QUIET : 0);
                                   int r = tool->pbo_Extract(archive->c_str(), cli_print_stdout, flags, nullptr, nullptr);
                                   return finish(r, archive->c_str());
                                 });
                               }});

struct ExtractOptions {
  std::string archive, destination, files;
  bool decode = false, quiet = false, strict = false, no_tabs = false, sha_message = false;
};

CommandRegistrar extract_command(
    {"extract", "Unpack an archive into a folder",
     [](CLI::App& sub) {
       auto o = std::make_shared<ExtractOptions>();
       sub.add_option("--files", o->files, "Comma-separated entry names or wildcard patterns to extract");
       sub.add_flag("--decode-configs", o->decode, "Write binarised configs as text (config.bin becomes config.cpp)");
       sub.add_flag("--quiet", o->quiet, "No properties report, prefix-file messages or progress");
       sub.add_flag("--warnings-as-errors", o->strict, "Fail on warnings (bad SHA, residual bytes, nothing extracted)");
       sub.add_flag("--no-tabs", o->no_tabs, "Indent decoded configs with spaces instead of tabs");
       sub.add_flag("--sha-message", o->sha_message, "Say when the SHA-1 trailer is being verified");
       sub.add_option("ARCHIVE", o->archive, "The archive (.pbo, .ifa or .xbo)")->required();
       sub.add_option("DEST", o->destination,
                      "Destination folder (the archive's prefix or name is created below it); "
                      "default: beside the archive, named after it");
       return std::function<int()>([o] {
         BisDLL dll;
         int flags = (o->decode ? Vendrak::EXTRACT_DECODE_CONFIGS : 0) | (o->quiet ? Vendrak::EXTRACT_QUIET : 0) |
                     (o->sha_message ? Vendrak::EXTRACT_SHA_MESSAGE : 0) |
                     (o->strict ? Vendrak::EXTRACT_WARNINGS_ARE_ERRORS : 0) |
                     (o->no_tabs ? Vendrak::EXTRACT_NO_TABS : 0);
         ProgressBar bar(!o->quiet && isatty(STDERR_FILENO));
         bool bar_shown = !o->quiet && isatty(STDERR_FILENO);
         g_bar = BarState{bar_shown ? &bar : nullptr, bar_shown && isatty(STDOUT_FILENO), false};
         Vendrak* tool = archive_tool(dll, bar_shown ? errors_beside_bar : cli_print_stderr);
         if (bar_shown) tool->pbo_SetProgressHook(progress_hook, &bar);
         // Quiet also silences the per-entry lines; errors and warnings still reach standard error.
         BisCallback messages = o->quiet ? hidden_message : bar_shown ? print_beside_bar : cli_print_stdout;
         int r = tool->pbo_Extract(o->archive.c_str(), messages, flags, o->files.empty() ? nullptr : o->files.c_str(),
                                   o->destination.empty() ? nullptr : o->destination.c_str());
         tool->pbo_SetProgressHook(nullptr, nullptr);
         bar.finish();
         g_bar = BarState{};
         return finish(r, o->archive.c_str());
       });
     }});
}  // namespace
