// vendrak wrp heightmap TERRAIN -o OUT [--format asc|xyz|png] [-f]
// vendrak wrp from-heightmap GRID OUT [--cell M] [--objects FILE] [-f]
// vendrak wrp map TERRAIN -o OUT [--size PX] [-f]
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <string>

#include "CliSupport.h"
#include "Command.h"
#include "Console.h"
#include "WrpCommon.h"
#include "core/BisDLL.h"
#include "terrain/Heightmap.h"
#include "terrain/MapRenderer.h"
#include "terrain/ObjectListing.h"
#include "terrain/Tessak.h"

namespace {

// The library's words, held back so that a failure is one line naming the file and a success
// reports only once its file is in place. Warnings go out at once.
std::string g_reasons, g_report;

std::string format_text(char const* format, va_list ap) {
  char buffer[2048];
  std::vsnprintf(buffer, sizeof buffer, format ? format : "", ap);
  std::string text(buffer);
  std::string out;
  for (char c : text)
    if (c != '\r') out += c;
  return out;
}

bool keep_reason(char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  std::string text = format_text(format, ap);
  va_end(ap);
  if (text.rfind("***Warning***", 0) == 0) return cli_print_stderr("%s", text.c_str());
  while (!text.empty() && text.back() == '\n') text.pop_back();
  if (!text.empty()) g_reasons += (g_reasons.empty() ? "" : "; ") + text;
  return true;
}

bool keep_report(char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  g_report += format_text(format, ap);
  va_end(ap);
  return true;
}

// "vendrak: PATH: what the library said (code)", or the code's own text when it said nothing.
int fail(std::string const& path, int code) {
  cli_error(path, (g_reasons.empty() ? std::string(Heightmap::ErrorString(code)) : g_reasons) + " (" +
                      std::to_string(code) + ")");
  g_reasons.clear();
  return code;
}

// Success: the library's report, on standard error when the file itself went to standard output.
int finish(OutputFile& out) {
  if (int r = out.commit()) return r;
  (out.is_stdout() ? cli_print_stderr : cli_print_stdout)("%s", g_report.c_str());
  g_report.clear();
  return 0;
}

void listen(BisFileIO* io) {
  io->io_SetStdioCallBack(keep_report);
  io->io_SetErrCallBack(keep_reason);
}

int form_of(std::string const& out, std::string const& format) {
  if (format == "asc") return Heightmap::FORM_ASC;
  if (format == "xyz") return Heightmap::FORM_XYZ;
  if (format == "png") return Heightmap::FORM_PNG;
  return Heightmap::FormOfName(out.c_str());
}

// ---- wrp heightmap -------------------------------------------------------------

struct HeightmapOptions {
  std::string terrain, out, format;
  bool force = false;
};

int run_heightmap(HeightmapOptions const& o) {
  int form = form_of(o.out, o.format);
  if (form == Heightmap::FORM_NONE) {
    cli_error(o.out, "cannot tell the form from the name; name it .asc, .xyz or .png, or give --format");
    return kExitUsage;
  }
  BisDLL dll;
  if (int r = open_terrain(dll, o.terrain, false)) return r;
  Heightmap grid(&dll);
  listen(grid.hm_GetIO());
  if (int r = grid.hm_FromTerrain(*dll.dll_GetTessak())) return fail(o.terrain, r);
  OutputFile out(o.out, o.force);
  if (int r = out.open()) return r;
  if (int r = grid.hm_Write(out.path(), form)) return fail(o.out, r);
  return finish(out);
}

CommandRegistrar heightmap_command(
    {"wrp heightmap", "Write a terrain's elevations as an ESRI grid, XYZ points or a 16-bit PNG", [](CLI::App& sub) {
       auto o = std::make_shared<HeightmapOptions>();
       sub.add_option("TERRAIN", o->terrain, "The terrain (.wrp), of any kind")->required();
       sub.add_option("-o,--output", o->out,
                      "The grid to write: .asc (ESRI ASCII grid), .xyz (x y z points) or .png (16-bit grey, "
                      "lowest black); - for standard output with --format")
           ->required();
       sub.add_option("--format", o->format, "asc, xyz or png, instead of the output's extension")
           ->check(CLI::IsMember({"asc", "xyz", "png"}));
       sub.add_flag("-f,--force", o->force, "Replace an existing output file");
       return std::function<int()>([o] { return run_heightmap(*o); });
     }});

// ---- wrp from-heightmap --------------------------------------------------------

struct FromHeightmapOptions {
  std::string grid, out, objects;
  double cell = 0;
  bool force = false;
};

int run_from_heightmap(FromHeightmapOptions const& o) {
  if (int r = cli_check_input(o.grid)) return r;
  if (!o.objects.empty())
    if (int r = cli_check_input(o.objects)) return r;
  BisDLL dll;
  Heightmap grid(&dll);
  listen(grid.hm_GetIO());
  if (int r = grid.hm_Read(o.grid.c_str())) return fail(o.grid, r);
  Tessak* terrain = dll.dll_GetTessak();
  terrain->wrp_GetIO()->io_SetStdioCallBack(cli_print_nothing);
  terrain->wrp_GetIO()->io_SetErrCallBack(keep_reason);
  if (int r = grid.hm_ToTerrain(*terrain, o.cell)) return fail(o.cell > 0 ? "--cell" : o.grid, r);
  ObjectListing listing(&dll);
  listen(listing.ol_GetIO());
  if (!o.objects.empty()) {
    if (int r = listing.ol_Read(o.objects.c_str())) return fail(o.objects, r);
    if (int r = listing.ol_PlaceOn(*terrain)) return fail(o.objects, r);
  }
  OutputFile out(o.out, o.force);
  if (int r = out.open()) return r;
  if (int r = terrain->wrp_Create(out.path(), "8WVR")) return fail(o.out, r);
  keep_report("%u x %u heights of %g m cells, %zu objects of %zu models\n", grid.hm_Columns(), grid.hm_Rows(),
              double(terrain->wrp_GridSize()), terrain->wrp_Objects().size(), terrain->wrp_Templates().size());
  return finish(out);
}

CommandRegistrar from_heightmap_command(
    {"wrp from-heightmap", "Make an editable terrain (8WVR) from an ESRI grid or XYZ points", [](CLI::App& sub) {
       auto o = std::make_shared<FromHeightmapOptions>();
       sub.add_option("GRID", o->grid,
                      "The elevations: an ESRI ASCII grid or x y z points in metres (told apart by their content)")
           ->required();
       sub.add_option("OUT", o->out, "The terrain to write (.wrp)")->required();
       sub.add_option("--cell", o->cell, "The cell size in metres, instead of the grid's own")
           ->check(CLI::Validator(
               [](std::string& text) -> std::string {
                 double v = 0;
                 try {
                   v = std::stod(text);
                 } catch (...) {
                 }
                 if (v >= Heightmap::kMinCell && v <= Heightmap::kMaxCell) return {};
                 return "cells are 0.01 to 10000 m wide, not '" + text + "'";
               },
               "METRES"));
       sub.add_option("--objects", o->objects,
                      "Objects to place: a listing as 'vendrak wrp objects' writes it (txt or csv)");
       sub.add_flag("-f,--force", o->force, "Replace an existing output file");
       return std::function<int()>([o] { return run_from_heightmap(*o); });
     }});

// ---- wrp map -------------------------------------------------------------------

struct MapOptions {
  std::string terrain, out;
  uint32_t size = 0;
  bool force = false;
};

int run_map(MapOptions const& o) {
  if (o.out != "-" && Heightmap::FormOfName(o.out.c_str()) != Heightmap::FORM_PNG) {
    cli_error(o.out, "a map is a PNG picture: name it .png (or - for standard output)");
    return kExitUsage;
  }
  BisDLL dll;
  if (int r = open_terrain(dll, o.terrain, false)) return r;
  MapRenderer map(&dll);
  listen(map.map_GetIO());
  OutputFile out(o.out, o.force);
  if (int r = out.open()) return r;
  if (int r = map.map_Write(*dll.dll_GetTessak(), out.path(), o.size))
    return fail(r == GE_CANNOT_WRITE ? o.out : o.terrain, r);
  return finish(out);
}

CommandRegistrar map_command(
    {"wrp map", "Draw a terrain as a map picture: relief, water and objects, north up", [](CLI::App& sub) {
       auto o = std::make_shared<MapOptions>();
       sub.add_option("TERRAIN", o->terrain, "The terrain (.wrp), of any kind")->required();
       sub.add_option("-o,--output", o->out, "The picture to write (.png); - for standard output")->required();
       sub.add_option("--size", o->size,
                      "Pixels along the longer side (default: one per height, at most 4096; up to 16384)")
           ->check(CLI::Range(1u, MapRenderer::kMaxSize));
       sub.add_flag("-f,--force", o->force, "Replace an existing output file");
       return std::function<int()>([o] { return run_map(*o); });
     }});

}  // namespace
