// Texture commands: paa info (the listing), paa copy (read and write back through the writer),
// paa convert (a texture's mipmap to PNG, a PNG or TGA picture to a texture).
#include <sys/stat.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "CliSupport.h"
#include "Command.h"
#include "TextOut.h"
#include "Console.h"
#include "core/BisDLL.h"
#include "texture/Lorvix.h"

namespace {
struct PaaOptions {
  std::string file;
  std::string out;
  bool json = false;
  bool force = false;
};

struct ConvertOptions {
  std::string in, out, type = "auto";
  unsigned mip = 0;
  bool mip_given = false, fast = false, resize = false, force = false;
};

int failed(std::string const& path, int r) {
  cli_error(path, std::string(Lorvix::ErrorString(r)) + " (" + std::to_string(r) + ")");
  return r;
}

Lorvix* texture_tool(BisDLL& dll) {
  Lorvix* t = dll.dll_GetLorvix();
  t->pax_GetIO()->io_SetErrCallBack(cli_print_stderr);
  return t;
}

nlohmann::json as_json(Lorvix const& t, std::string const& path) {
  nlohmann::json j;
  j["file"] = path;
  j["type"] = Lorvix::pax_GetTypeStr(t.pax_GetType());
  nlohmann::json taggs = nlohmann::json::object();
  for (auto const& tg : t.pax_GetTaggs()) {
    if (tg.kind == PaxTagg::OFFS) {
      nlohmann::json offs = nlohmann::json::array();
      for (int i = 0; i < tg.tag_OffsetCount(); ++i) offs.push_back(tg.offsets[i]);
      taggs["OFFS"] = offs;
    } else if (tg.kind == PaxTagg::PROC) {
      taggs["PROC"] = tg.text;
    } else {
      char hex[16];
      std::snprintf(hex, sizeof hex, "%08X", tg.value);
      taggs[PaxTagg::tag_Name(tg.kind)] = hex;
    }
  }
  j["taggs"] = taggs;
  int palette = 0;
  t.pax_GetPalette(&palette);
  j["palette"] = palette;
  nlohmann::json mips = nlohmann::json::array();
  for (uint32_t i = 0; i < t.pax_GetMipmapCount(); ++i) {
    PaxMipmap const* m = t.pax_GetMipmap(i);
    mips.push_back({{"width", m->width},
                    {"height", m->height},
                    {"offset", m->offset},
                    {"size", m->expanded_size},
                    {"stored", m->stored_size},
                    {"coding", m->lzo ? "lzo" : m->special ? "special-index" : "as-type"}});
  }
  j["mipmaps"] = mips;
  return j;
}

int run_info(std::string const& path, bool json) {
  if (int r = cli_check_input(path)) return r;
  BisDLL dll;
  Lorvix* t = texture_tool(dll);
  int r = t->pax_Open(path.c_str(), json ? cli_print_nothing : cli_print_stdout);
  if (r) return failed(path, r);
  if (json) cli_print_stdout("%s\n", json_text(as_json(*t, path)).c_str());
  return 0;
}

int run_copy(PaaOptions const& o) {
  if (int r = cli_check_input(o.file)) return r;
  BisDLL dll;
  Lorvix* t = texture_tool(dll);
  int r = t->pax_Open(o.file.c_str(), cli_print_nothing);
  if (r) return failed(o.file, r);
  OutputFile out(o.out, o.force);
  if (int w = out.open()) return w;
  r = t->pax_Write(out.path());
  if (r) return failed(o.out, r);
  return out.commit();
}

// The lower-case extension of a path's last name ("" when it has none).
std::string extension(std::string const& path) {
  size_t dot = path.find_last_of('.');
  if (dot == std::string::npos || path.find_first_of('/', dot) != std::string::npos) return {};
  std::string ext = path.substr(dot + 1);
  for (auto& c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
  return ext;
}

int usage(std::string const& path, std::string const& reason) {
  cli_error(path, reason);
  return kExitUsage;
}

// A texture's mipmap (default the largest) to a PNG picture.
int run_to_picture(ConvertOptions const& o) {
  if (o.type != "auto" || o.fast || o.resize)
    return usage(o.out, "--type, --fast and --resize apply when a texture is made; a picture is written as stored");
  std::vector<unsigned char> bytes;
  if (int r = cli_read_input(o.in, bytes)) return r;
  BisDLL dll;
  Lorvix* t = texture_tool(dll);
  int r = t->pax_Open(bytes.data(), bytes.size(), cli_print_nothing);
  if (r) return failed(o.in, r);
  std::vector<uint8_t> png;
  if ((r = t->pax_ToPng(o.mip, png))) return failed(o.in, r);
  OutputFile out(o.out, o.force);
  if (int w = out.open()) return w;
  FILE* f = std::fopen(out.path(), "wb");
  bool ok = f && std::fwrite(png.data(), 1, png.size(), f) == png.size();
  if (f && std::fclose(f) != 0) ok = false;
  if (!ok) {
    cli_error(o.out, std::strerror(errno));
    return GE_CANNOT_WRITE;
  }
  return out.commit();
}

// A PNG or TGA picture to a texture with every mipmap.
int run_to_texture(ConvertOptions const& o) {
  static std::map<std::string, int> const types = {
      {"auto", 0},
      {"dxt1", Lorvix::PAX_DXT1},
      {"dxt5", Lorvix::PAX_DXT5},
      {"argb4444", Lorvix::PAX_RGB4},
      {"argb1555", Lorvix::PAX_RGB5},
      {"argb8888", Lorvix::PAX_RGB8},
      {"ai88", Lorvix::PAX_GREY},
  };
  if (o.mip_given) return usage(o.out, "--mip applies when a picture is written from a texture");
  std::vector<unsigned char> bytes;
  if (int r = cli_read_input(o.in, bytes)) return r;
  BisDLL dll;
  Lorvix* t = texture_tool(dll);
  Lorvix::PictureOptions made;
  made.type = types.at(o.type);
  made.fast = o.fast;
  made.resize = o.resize;
  made.name = o.out.c_str();  // its suffix tells a colour map from a normal or specular map
  t->pax_GetIO()->io_SetStdioCallBack(cli_print_nothing);
  int r = t->pax_FromPicture(bytes.data(), bytes.size(), made);
  if (r == PAXERR_NOT_POWER_OF_TWO) {
    cli_error(o.in, std::string(Lorvix::ErrorString(r)) + " (" + std::to_string(r) +
                        "); --resize scales it to the nearest powers of two");
    return r;
  }
  if (r) return failed(o.in, r);
  OutputFile out(o.out, o.force);
  if (int w = out.open()) return w;
  if ((r = t->pax_Write(out.path()))) return failed(o.out, r);
  return out.commit();
}

int run_convert(ConvertOptions const& o) {
  std::string ext = extension(o.out);
  if (ext == "png") return run_to_picture(o);
  if (ext == "paa" || ext == "pac") return run_to_texture(o);
  return usage(o.out, "the name must end in .png (a picture from a texture) or .paa/.pac (a texture from a picture)");
}

// A type word followed by a tagg or by an empty palette, or a tagg at once (indexed textures).
// Untyped textures without taggs start with their palette and have no signature: they are known
// by the name.
bool is_type_word(unsigned w) {
  return (w >= Lorvix::PAX_DXT1 && w <= Lorvix::PAX_DXT5) || w == Lorvix::PAX_RGB4 || w == Lorvix::PAX_RGB5 ||
         w == Lorvix::PAX_RGB8 || w == Lorvix::PAX_GREY;
}

bool matches_paa(unsigned char const* head, size_t n, std::string const&) {
  if (n >= 4 && std::memcmp(head, "GGAT", 4) == 0) return true;
  if (n < 4 || !is_type_word(head[0] | head[1] << 8u)) return false;
  return (n >= 6 && std::memcmp(head + 2, "GGAT", 4) == 0) || (head[2] == 0 && head[3] == 0);
}

bool matches_paa_name(unsigned char const*, size_t, std::string const& path) {
  auto dot = path.rfind('.');
  if (dot == std::string::npos) return false;
  std::string ext = path.substr(dot);
  for (auto& c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
  return ext == ".paa" || ext == ".pac";
}

CommandRegistrar paa_info({"paa info", "List a texture's type, taggs, palette and mipmaps",
                           [](CLI::App& c) -> std::function<int()> {
                             auto o = std::make_shared<PaaOptions>();
                             c.add_option("FILE", o->file, "The texture (.paa or .pac)")->required();
                             c.add_flag("--json", o->json, "Print the listing as JSON");
                             return [o] { return run_info(o->file, o->json); };
                           }});

CommandRegistrar paa_copy({"paa copy", "Read a texture and write it back through the writer",
                           [](CLI::App& c) -> std::function<int()> {
                             auto o = std::make_shared<PaaOptions>();
                             c.add_option("IN", o->file, "The texture to read")->required();
                             c.add_option("OUT", o->out, "The texture to write (- for standard output)")->required();
                             c.add_flag("-f,--force", o->force, "Replace an existing different file");
                             return [o] { return run_copy(*o); };
                           }});

CommandRegistrar paa_convert(
    {"paa convert", "Write a texture's mipmap as a PNG picture, or make a texture from a PNG or TGA picture",
     [](CLI::App& c) -> std::function<int()> {
       auto o = std::make_shared<ConvertOptions>();
       c.add_option("IN", o->in, "A texture (.paa, .pac) or a picture (.png, .tga); - for standard input")->required();
       c.add_option("OUT", o->out, "A .png picture, or a .paa or .pac texture: the name decides which")->required();
       c.add_option("--mip", o->mip, "Picture from a texture: the mipmap to write, 0 (the largest) by default")
           ->each([o](std::string const&) { o->mip_given = true; });
       c.add_option("--type", o->type,
                    "Texture from a picture: its pixel type; auto is DXT5 when some pixel is not opaque, else DXT1")
           ->check(CLI::IsMember({"auto", "dxt1", "dxt5", "argb4444", "argb1555", "argb8888", "ai88"}))
           ->default_str("auto");
       c.add_flag("--fast", o->fast, "Texture from a picture: a quicker, rougher DXT fit");
       c.add_flag("--resize", o->resize,
                  "Texture from a picture: scale sides that are not powers of two to the nearest ones");
       c.add_flag("-f,--force", o->force, "Replace an existing different file");
       return [o] { return run_convert(*o); };
     }});

InfoRegistrar paa_by_signature({"PAA/PAC texture", matches_paa, run_info});
InfoRegistrar paa_by_name({"PAA/PAC texture", matches_paa_name, run_info, true});
}  // namespace
