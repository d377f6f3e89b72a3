// vendrak pack: an addon, mission or campaign folder into an archive.
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "CliSupport.h"
#include "Command.h"
#include "Console.h"
#include "PboCommon.h"
#include "core/BisDLL.h"
#include "core/BisMessage.h"
#include "io/BisFileIO.h"
#include "pbo/Vendrak.h"

namespace {
struct PackOptions {
  std::string folder, out, prefix, style = "arma", exclude, no_compress, sign_key;
  std::vector<std::string> includes;
  bool compress = false, binarise = false, accept_mlod = false, reproducible = false, strict = false, quiet = false,
       force = false;
};

// Under --quiet the style banner and the prefix line (sent to the error sink) are held back and
// shown only when the pack fails, beside the reason.
std::string g_held;
bool hold_message(char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  g_held += bis_vformat(format, ap);
  va_end(ap);
  return hidden_message("");
}

void bar_hook(void* context, uint64_t done, uint64_t total, char const* entry) {
  auto* bar = static_cast<ProgressBar*>(context);
  if (entry && *entry)
    bar->update(done, total, entry);
  else
    bar->finish();
}

std::string folder_name(std::string const& folder) {
  char buf[PATH_MAX];
  std::string real = ::realpath(folder.c_str(), buf) ? buf : folder;
  while (real.size() > 1 && real.back() == '/') real.pop_back();
  return real.substr(real.find_last_of('/') + 1);
}

int run_pack(PackOptions const& o) {
  static std::map<std::string, int> const styles = {{"arma", Vendrak::MAKE_STYLE_ARMA},
                                                    {"arma-nosha", Vendrak::MAKE_STYLE_ARMA_NO_SHA},
                                                    {"elite", Vendrak::MAKE_STYLE_ELITE},
                                                    {"resistance", Vendrak::MAKE_STYLE_RESISTANCE},
                                                    {"cwc", 0}};
  struct stat st;
  if (::stat(o.folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
    cli_error(o.folder, std::string(Vendrak::ErrorString(PBO_NO_SOURCE_FOLDER)) + " (35)");
    return PBO_NO_SOURCE_FOLDER;
  }
  int mode = styles.at(o.style) | (o.compress ? Vendrak::MAKE_COMPRESS : 0) |
             (o.binarise ? Vendrak::MAKE_PROCESS_CONTENT : 0) | (o.accept_mlod ? Vendrak::MAKE_ACCEPT_MLOD : 0) |
             (o.reproducible ? Vendrak::MAKE_REPRODUCIBLE : 0) | (o.strict ? Vendrak::MAKE_WARNINGS_ARE_ERRORS : 0);

  BisDLL dll;
  Vendrak* tool = dll.dll_GetVendrak();
  std::string target = tool->pbo_MakeOutputName(o.folder.c_str(), mode, o.out.empty() ? nullptr : o.out.c_str());
  // The archive replaces one of its name, and removes its namesakes under the other archive
  // extensions (a reader would find those first): neither without -f.
  std::string stem = target.substr(0, target.rfind('.'));
  for (char const* ext : {".pbo", ".ifa", ".xbo"}) {
    std::string existing = stem + ext;
    if (!o.force && ::stat(existing.c_str(), &st) == 0) {
      cli_error(existing, "already exists (use -f to replace it)");
      return GE_CANNOT_WRITE;
    }
  }
  // Without --prefix the archive is mounted under the folder's own name, unless a prefix file in
  // the folder says otherwise.
  std::string prefix = o.prefix.empty() ? folder_name(o.folder) : o.prefix;
  // "none" keeps every file: an empty list would select the default one.
  std::string exclude = o.exclude == "none" ? "," : o.exclude;

  bool bar_shown = !o.quiet && isatty(STDERR_FILENO);
  ProgressBar bar(bar_shown);
  if (bar_shown) tool->pbo_SetProgressHook(bar_hook, &bar);
  for (auto const& dir : o.includes) tool->pbo_AddIncludeFolder(dir.c_str());
  g_held.clear();
  tool->pbo_GetIO()->io_SetErrCallBack(o.quiet ? hold_message : cli_print_stderr);
  BisCallback messages = o.quiet || bar_shown ? hidden_message : cli_print_stdout;
  int r = tool->pbo_Make(o.folder.c_str(), mode, prefix.c_str(), messages, o.out.empty() ? nullptr : o.out.c_str(),
                         o.no_compress.empty() ? nullptr : o.no_compress.c_str(),
                         exclude.empty() ? nullptr : exclude.c_str());
  tool->pbo_SetProgressHook(nullptr, nullptr);
  bar.finish();
  if (r != 0) {
    if (!g_held.empty()) cli_print_stderr("%s", g_held.c_str());
    cli_error(o.folder, std::string(Vendrak::ErrorString(r)) + " (" + std::to_string(r) + ")");
    return r;
  }
  if (bar_shown && !o.quiet) cli_print_stdout("%s\n", tool->pbo_GetMadeName());
  if (!o.sign_key.empty()) return cli_sign_archive(o.sign_key, tool->pbo_GetMadeName(), 3, true);
  return 0;
}

CommandRegistrar pack_command(
    {"pack", "Make an archive from a folder",
     [](CLI::App& sub) {
       auto o = std::make_shared<PackOptions>();
       sub.add_option("FOLDER", o->folder, "The source folder")->required();
       sub.add_option("OUT", o->out,
                      "The archive to write, or a folder to put it in; default: beside FOLDER, named after it "
                      "(or after the name in FOLDER/PboName.h)");
       sub.add_option("--prefix", o->prefix,
                      "The archive's prefix when FOLDER has no prefix file; default: FOLDER's name");
       sub.add_option("--style", o->style, "Archive style")
           ->check(CLI::IsMember({"arma", "arma-nosha", "elite", "resistance", "cwc"}))
           ->default_str("arma");
       sub.add_flag("--compress", o->compress, "Compress entries (sounds, images and init files stay as they are)");
       sub.add_flag("--binarise", o->binarise, "Binarise config.cpp, validate RoadsLib.cfg, check the content");
       // One folder per -I, so that FOLDER behind it is not taken for another folder.
       sub.add_option("-I,--include", o->includes,
                      "A folder that includes are looked up below while binarising (repeatable, in order)")
           ->allow_extra_args(false);
       sub.add_flag("--accept-mlod", o->accept_mlod, "Pack editable (unbinarised) models");
       sub.add_flag("--reproducible", o->reproducible,
                    "Byte-identical output for identical input: no time stamps, fixed version, sorted entries");
       sub.add_option("--exclude", o->exclude,
                      "Comma list of files to leave out, replacing the default list; \"none\" keeps every file");
       sub.add_option("--no-compress", o->no_compress, "Comma list of files stored without compression");
       sub.add_option("--sign", o->sign_key, "Sign the archive with this private key (.biprivatekey), version 3");
       sub.add_flag("--warnings-as-errors", o->strict, "Fail on warnings");
       sub.add_flag("-q,--quiet", o->quiet, "No report and no progress; errors still go to standard error");
       sub.add_flag("-f,--force", o->force, "Replace an existing archive");
       return std::function<int()>([o] { return run_pack(*o); });
     }});
}  // namespace
