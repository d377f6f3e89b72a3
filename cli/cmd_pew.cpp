// vendrak pew info FILE [--json]
// vendrak pew from-wrp WRP OUT [--version 58|59|60] [--colors CFG] [-f]
// vendrak wrp from-pew PEW OUT [-f]
#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "CliSupport.h"
#include "Command.h"
#include "TextOut.h"
#include "Console.h"
#include "config/Sembric.h"
#include "core/BisDLL.h"
#include "terrain/Grindel.h"
#include "terrain/Tessak.h"

namespace {
using ojson = nlohmann::ordered_json;

void report(std::string const& path, char const* text, int code) {
  cli_error(path, std::string(text) + " (" + std::to_string(code) + ")");
}

int open_project(BisDLL& dll, std::string const& path, bool verbose) {
  if (int r = cli_check_input(path)) return r;
  Grindel* g = dll.dll_GetGrindel();
  g->pew_GetIO()->io_SetErrCallBack(cli_print_stderr);
  int r = g->pew_Open(path.c_str(), verbose ? cli_print_stderr : cli_print_nothing);
  if (r) report(path, Grindel::ErrorString(static_cast<unsigned char>(r)), r);
  return r;
}

struct Count {
  char const* name;
  size_t n;
};

std::vector<Count> counts(Grindel const& g) {
  return {{"ofp_textures", g.ofpTextures.size()},   {"object_templates", g.templates.size()},
          {"ofp_terrains", g.ofpTerrains.size()},   {"ofp_forests", g.ofpForests.size()},
          {"roadnet_templates", g.roadNets.size()}, {"objects", g.objects.size()},
          {"layers", g.layers.size()},              {"named_zones", g.namedZones.size()},
          {"road_blocks", g.roadBlocks.size()},     {"alt_named_zones", g.altNamedZones.size()},
          {"key_points", g.keyPoints.size()},       {"backgrounds", g.backGrounds.size()},
          {"selections", g.selections.size()}};
}

int run_info(std::string const& path, bool json) {
  BisDLL dll;
  if (int r = open_project(dll, path, false)) return r;
  Grindel& g = *dll.dll_GetGrindel();
  if (json) {
    ojson j;
    j["file"] = path;
    j["version"] = g.pew_Version();
    j["grid_size"] = g.pew_GridSize();
    j["segment_size"] = g.pew_SegmentSize();
    j["rvmat_path"] = g.pew_RvmatPath();
    j["classname"] = g.pew_ClassName();
    j["p3d_path"] = g.pew_P3dPath();
    j["elevation_size"] = {g.elevations.sizeX, g.elevations.sizeY};
    ojson layers = ojson::array();
    for (PewLayer const& l : g.layers)
      layers.push_back({{"name", l.name}, {"size", {l.sizeX, l.sizeY}}, {"materials", l.materials.size()}});
    j["layer_list"] = layers;
    for (Count const& c : counts(g)) j[c.name] = c.n;
    j["warnings"] = g.pew_Warnings();
    cli_print_stdout("%s\n", json_text(j).c_str());
    return 0;
  }
  cli_print_stdout("%s: terrain-editor project\n", path.c_str());
  std::fflush(stdout);
  g.pew_GetIO()->io_SetStdioCallBack(cli_print_stdout);
  g.pew_show_header();
  g.pew_show_tail();
  for (Count const& c : counts(g)) cli_print_stdout("%-18s %zu\n", c.name, c.n);
  if (g.pew_Warnings()) cli_print_stdout("%-18s %u\n", "warnings", g.pew_Warnings());
  return 0;
}

bool looks_like_pew(unsigned char const* head, size_t n, std::string const&) {
  return n >= 7 && std::memcmp(head, "POSEW", 5) == 0 && head[5] >= '0' && head[5] <= '9' && head[6] >= '0' &&
         head[6] <= '9';
}

InfoRegistrar pew_info({"terrain-editor project", looks_like_pew, run_info});

CommandRegistrar info_command({"pew info", "Describe a project: header, grid sizes and counts per section",
                               [](CLI::App& sub) {
                                 auto path = std::make_shared<std::string>();
                                 auto json = std::make_shared<bool>(false);
                                 sub.add_option("FILE", *path, "The project (.pew)")->required();
                                 sub.add_flag("--json", *json, "Describe it as one JSON object");
                                 return std::function<int()>([path, json] { return run_info(*path, *json); });
                               }});

struct FromWrpOptions {
  std::string wrp, out, colours;
  int version = 60;
  bool force = false, verbose = false;
};

int run_from_wrp(FromWrpOptions const& o) {
  if (int r = cli_check_input(o.wrp)) return r;
  if (!o.colours.empty())
    if (int r = cli_check_input(o.colours)) return r;
  BisDLL dll;
  Tessak* t = dll.dll_GetTessak();
  t->wrp_GetIO()->io_SetStdioCallBack(o.verbose ? cli_print_stderr : cli_print_nothing);
  t->wrp_GetIO()->io_SetErrCallBack(cli_print_stderr);
  if (int r = t->wrp_Open(o.wrp.c_str())) {
    report(o.wrp, Tessak::ErrorString(r), r);
    return r;
  }
  OutputFile out(o.out, o.force);
  if (int r = out.open()) return r;
  Grindel* g = dll.dll_GetGrindel();
  g->pew_GetIO()->io_SetErrCallBack(cli_print_stderr);
  Sembric* rap = dll.dll_GetRap();
  rap->rap_GetIO()->io_SetStdioCallBack(o.verbose ? cli_print_stderr : cli_print_nothing);
  rap->rap_GetIO()->io_SetErrCallBack(cli_print_stderr);
  int r = g->MakePew(out.path(), o.version, t, o.verbose ? cli_print_stderr : cli_print_nothing,
                     o.colours.empty() ? nullptr : o.colours.c_str());
  if (r) {
    report(r == PEW_BAD_CONFIG ? o.colours : o.wrp, Grindel::ErrorString(static_cast<unsigned char>(r)), r);
    return r;
  }
  return out.commit();
}

CommandRegistrar from_wrp_command(
    {"pew from-wrp", "Make a terrain-editor project from a terrain", [](CLI::App& sub) {
       auto o = std::make_shared<FromWrpOptions>();
       sub.add_option("WRP", o->wrp, "The terrain (.wrp)")->required();
       sub.add_option("OUT", o->out, "The project to write (.pew)")->required();
       sub.add_option("--version", o->version, "Project version: 58, 59 or 60 (the default)")
           ->check(CLI::IsMember({58, 59, 60}));
       sub.add_option("--colors", o->colours,
                      "Config (text or binarised) with class objects { colors[] = {\"fragment\", 0xRRGGBB, ...}; } colouring "
                      "the templates whose model path holds a fragment");
       sub.add_flag("-f,--force", o->force, "Replace an existing output file");
       sub.add_flag("-v,--verbose", o->verbose, "Show the progress on standard error");
       return std::function<int()>([o] { return run_from_wrp(*o); });
     }});

struct FromPewOptions {
  std::string pew, out;
  bool force = false, verbose = false;
};

int run_from_pew(FromPewOptions const& o) {
  BisDLL dll;
  if (int r = open_project(dll, o.pew, o.verbose)) return r;
  Tessak* t = dll.dll_GetTessak();
  t->wrp_GetIO()->io_SetErrCallBack(cli_print_stderr);
  int r = t->wrp_CreateFromPew(Tessak::KIND_8WVR, dll.dll_GetGrindel(),
                               o.verbose ? cli_print_stderr : cli_print_nothing);
  OutputFile out(o.out, o.force);
  if (!r) {
    if (int w = out.open()) return w;
    r = t->wrp_Create(out.path(), "8WVR");
  }
  if (r) {
    report(o.pew, Tessak::ErrorString(r), r);
    return r;
  }
  return out.commit();
}

CommandRegistrar from_pew_command(
    {"wrp from-pew", "Make an editable terrain (8WVR) from a terrain-editor project", [](CLI::App& sub) {
       auto o = std::make_shared<FromPewOptions>();
       sub.add_option("PEW", o->pew, "The project (.pew)")->required();
       sub.add_option("OUT", o->out, "The terrain to write (.wrp)")->required();
       sub.add_flag("-f,--force", o->force, "Replace an existing output file");
       sub.add_flag("-v,--verbose", o->verbose, "Show the progress on standard error");
       return std::function<int()>([o] { return run_from_pew(*o); });
     }});
}  // namespace
