// vendrak info FILE: recognises the file's format by its signature and describes it.
#include <sys/stat.h>

#include <string>

#include "CliSupport.h"
#include "Command.h"
#include "PboCommon.h"

namespace {
int run_info(std::string const& path, bool json) {
  std::string file = path;
  struct stat st {};
  // An archive may be named without its extension.
  if (::stat(file.c_str(), &st) != 0)
    for (char const* ext : {".pbo", ".ifa", ".xbo"})
      if (::stat((path + ext).c_str(), &st) == 0) {
        file = path + ext;
        break;
      }
  if (int r = check_archive(file)) return r;
  std::vector<unsigned char> head = cli_read_head(file, 64);
  for (int pass = 0; pass < 2; ++pass)
    for (InfoHandler const& h : info_handlers())
      if (h.by_name_only == (pass == 1) && h.matches(head.data(), head.size(), file)) return h.run(path, json);
  std::string kinds;
  for (InfoHandler const& h : info_handlers())
    if (kinds.find(h.kind) == std::string::npos) kinds += (kinds.empty() ? "" : ", ") + h.kind;
  cli_error(path, "not a file this tool knows (" + kinds + ") (3)");
  return 3;
}

CommandRegistrar info_command({"info", "Recognise a file by its signature and describe it", [](CLI::App& sub) {
  auto path = std::make_shared<std::string>();
  auto json = std::make_shared<bool>(false);
  sub.add_option("FILE", *path, "Any file of the supported formats (an archive may omit its .pbo extension)")
      ->required();
  sub.add_flag("--json", *json, "Describe it as one JSON object");
  return std::function<int()>([path, json] { return run_info(*path, *json); });
}});
}  // namespace
