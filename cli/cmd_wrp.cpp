// vendrak wrp info FILE [--json]
// vendrak wrp objects FILE [--format txt|csv] [-o OUT] [-f]
// vendrak wrp convert IN OUT --to 8wvr|4wvr|1wvr [-f]
#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "CliSupport.h"
#include "Command.h"
#include "TextOut.h"
#include "Console.h"
#include "WrpCommon.h"
#include "core/BisDLL.h"
#include "terrain/ObjectListing.h"
#include "terrain/Tessak.h"

namespace {
using ojson = nlohmann::ordered_json;

std::string kind_name(Tessak const& t) {
  std::string s = Tessak::SignatureOfKind(t.wrp_Kind());
  if (t.wrp_Kind() == Tessak::KIND_OPRW) s += " version " + std::to_string(t.wrp_Version());
  return s;
}

ojson info_json(Tessak const& t, std::string const& path) {
  ojson j;
  j["file"] = path;
  j["signature"] = Tessak::SignatureOfKind(t.wrp_Kind());
  j["version"] = t.wrp_Version();
  j["binarised"] = t.wrp_Kind() == Tessak::KIND_OPRW;
  j["layer_size"] = {t.wrp_LayerSize().x, t.wrp_LayerSize().y};
  j["map_size"] = {t.wrp_MapSize().x, t.wrp_MapSize().y};
  j["grid_size"] = t.wrp_GridSize();
  j["textures"] = t.wrp_Textures().size();
  j["models"] = t.wrp_Templates().size();
  j["objects"] = t.wrp_Objects().size();
  j["land_models"] = t.wrp_LandModels().size();
  j["roads"] = t.wrp_Roads().size();
  j["map_infos"] = t.wrp_MapInfos().size();
  j["peaks"] = t.wrp_Peaks().size();
  j["warnings"] = t.wrp_Warnings();
  return j;
}

int run_info(std::string const& path, bool json) {
  BisDLL dll;
  if (int r = open_terrain(dll, path, false)) return r;
  Tessak const& t = *dll.dll_GetTessak();
  if (json) {
    cli_print_stdout("%s\n", json_text(info_json(t, path)).c_str());
    return 0;
  }
  cli_print_stdout("%s: WRP terrain %s%s\n", path.c_str(), kind_name(t).c_str(),
              t.wrp_Kind() == Tessak::KIND_OPRW ? " (binarised)" : " (editable)");
  cli_print_stdout("layer size:  %u x %u\n", t.wrp_LayerSize().x, t.wrp_LayerSize().y);
  cli_print_stdout("map size:    %u x %u\n", t.wrp_MapSize().x, t.wrp_MapSize().y);
  cli_print_stdout("grid size:   %g m (terrain %g m across)\n", double(t.wrp_GridSize()),
              double(t.wrp_GridSize()) * t.wrp_LayerSize().x);
  cli_print_stdout("textures:    %zu\n", t.wrp_Textures().size());
  cli_print_stdout("models:      %zu\n", t.wrp_Templates().size());
  cli_print_stdout("objects:     %zu\n", t.wrp_Objects().size());
  if (t.wrp_Kind() == Tessak::KIND_OPRW) {
    cli_print_stdout("land models: %zu\n", t.wrp_LandModels().size());
    cli_print_stdout("roads:       %zu\n", t.wrp_Roads().size());
    cli_print_stdout("map infos:   %zu\n", t.wrp_MapInfos().size());
  }
  if (t.wrp_Warnings()) cli_print_stdout("warnings:    %u\n", t.wrp_Warnings());
  return 0;
}

bool looks_like_wrp(unsigned char const* head, size_t n, std::string const&) {
  return Tessak::KindOfSignature(head, n) != Tessak::KIND_NONE;
}

InfoRegistrar wrp_info({"WRP terrain", looks_like_wrp, run_info});

CommandRegistrar info_command({"wrp info", "Describe a terrain: kind, grid sizes and counts", [](CLI::App& sub) {
  auto path = std::make_shared<std::string>();
  auto json = std::make_shared<bool>(false);
  sub.add_option("FILE", *path, "The terrain (.wrp)")->required();
  sub.add_flag("--json", *json, "Describe it as one JSON object");
  return std::function<int()>([path, json] { return run_info(*path, *json); });
}});

struct ObjectsOptions {
  std::string file, out = "-", format = "txt";
  bool force = false;
};

// One object per line, as terrain editors import them: x east, y north, z the height above sea
// level, the direction in degrees and the scale. `wrp from-heightmap --objects` reads it back.
int run_objects(ObjectsOptions const& o) {
  BisDLL dll;
  if (int r = open_terrain(dll, o.file, false)) return r;
  OutputFile out(o.out, o.force);
  if (int r = out.open()) return r;
  ObjectListing listing(&dll);
  listing.ol_GetIO()->io_SetErrCallBack(cli_print_stderr);
  if (int r = listing.ol_Write(*dll.dll_GetTessak(), out.path(), o.format == "csv")) {
    cli_error(o.out, std::string(ObjectListing::ErrorString(r)) + " (" + std::to_string(r) + ")");
    return r;
  }
  return out.commit();
}

CommandRegistrar objects_command(
    {"wrp objects", "List the objects of a terrain for import into a terrain editor", [](CLI::App& sub) {
       auto o = std::make_shared<ObjectsOptions>();
       sub.add_option("FILE", o->file, "The terrain (.wrp)")->required();
       sub.add_option("--format", o->format, "txt (space-separated, the default) or csv")
           ->check(CLI::IsMember({"txt", "csv"}));
       sub.add_option("-o,--output", o->out, "Write the list to this file instead of standard output");
       sub.add_flag("-f,--force", o->force, "Replace an existing output file");
       return std::function<int()>([o] { return run_objects(*o); });
     }});

struct ConvertOptions {
  std::string in, out, to;
  bool force = false, verbose = false;
};

int run_convert(ConvertOptions const& o) {
  BisDLL dll;
  if (int r = open_terrain(dll, o.in, o.verbose)) return r;
  Tessak* t = dll.dll_GetTessak();
  std::string signature = o.to == "8wvr" ? "8WVR" : o.to == "4wvr" ? "4WVR" : "1WVR";
  OutputFile out(o.out, o.force);
  if (int r = out.open()) return r;
  int r = t->wrp_Create(out.path(), signature.c_str());
  if (r) {
    cli_error(o.in, std::string(Tessak::ErrorString(r)) + " (" + std::to_string(r) + ")");
    return r;
  }
  return out.commit();
}

CommandRegistrar convert_command(
    {"wrp convert", "Convert a terrain of any kind to an editable one", [](CLI::App& sub) {
       auto o = std::make_shared<ConvertOptions>();
       sub.add_option("IN", o->in, "The terrain to convert (.wrp)")->required();
       sub.add_option("OUT", o->out, "The terrain to write")->required();
       sub.add_option("--to", o->to,
                      "8wvr (any terrain), 4wvr or 1wvr (one grid size, at most 512 or 256 textures of 31 "
                      "characters)")
           ->required()
           ->check(CLI::IsMember({"8wvr", "4wvr", "1wvr"}, CLI::ignore_case));
       sub.add_flag("-f,--force", o->force, "Replace an existing output file");
       sub.add_flag("-v,--verbose", o->verbose, "Show the reader's progress on standard error");
       return std::function<int()>([o] { return run_convert(*o); });
     }});
}  // namespace
