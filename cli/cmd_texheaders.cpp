// texheaders FILE: one line per texture of a texture header index; the exit status is the
// index check's code.
#include <cstring>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "CliSupport.h"
#include "Command.h"
#include "TextOut.h"
#include "Console.h"
#include "core/BisDLL.h"
#include "texture/Hollin.h"

namespace {
// The index numbers pixel types its own way.
char const* type_name(uint32_t t) {
  static char const* const names[] = {"INDX", "GREY", "RGB565", "RGB5", "RGB4", "RGB8",
                                      "DXT1", "DXT2", "DXT3",   "DXT4", "DXT5"};
  return t < sizeof names / sizeof *names ? names[t] : "?";
}

int run_texheaders(std::string const& path, bool json) {
  if (int r = cli_check_input(path)) return r;
  BisDLL dll;
  Hollin* h = dll.dll_GetHollin();
  h->tex_GetIO()->io_SetErrCallBack(cli_print_stderr);
  int r = h->tex_Open(path.c_str(), cli_print_stdout);
  if (r) {
    cli_error(path, std::string(Hollin::ErrorString(r)) + " (" + std::to_string(r) + ")");
    return r;
  }
  nlohmann::json list = nlohmann::json::array();
  for (auto* e = static_cast<TexHeader*>(h->GetFirst()); e; e = static_cast<TexHeader*>(e->GetNext())) {
    if (json) {
      nlohmann::json mips = nlohmann::json::array();
      for (uint32_t i = 0; i < e->mipmap_count; ++i)
        mips.push_back({{"width", e->th_MipmapWidth(i)}, {"height", e->th_MipmapHeight(i)},
                        {"offset", e->th_MipmapOffset(i)}});
      list.push_back({{"path", e->path},
                      {"type", type_name(e->th_Type())},
                      {"type_code", e->th_Type()},
                      {"mipmaps", e->mipmap_count},
                      {"flags", e->th_Flags()},
                      {"suffix", e->suffix},
                      {"file_size", e->file_size},
                      {"mipmap_list", mips}});
    } else {
      cli_print_stdout("%s  %s  %u\n", e->path, type_name(e->th_Type()), e->mipmap_count);
    }
  }
  if (json) cli_print_stdout("%s\n", json_text(nlohmann::json{{"file", path}, {"textures", list}}).c_str());
  return 0;
}

bool matches_texheaders(unsigned char const* head, size_t n, std::string const&) {
  return n >= 4 && std::memcmp(head, "0DHT", 4) == 0;
}

CommandRegistrar texheaders_command({"texheaders", "List the textures of a texHeaders.bin index and check it",
                                     [](CLI::App& c) -> std::function<int()> {
                                       auto file = std::make_shared<std::string>();
                                       auto json = std::make_shared<bool>(false);
                                       c.add_option("FILE", *file, "The index (texHeaders.bin)")->required();
                                       c.add_flag("--json", *json, "Print the listing as JSON");
                                       return [file, json] { return run_texheaders(*file, *json); };
                                     }});

InfoRegistrar texheaders_info({"texture header index", matches_texheaders, run_texheaders});
}  // namespace
