// vendrak p3d info FILE [--json]
// vendrak p3d props FILE [--lod N] [--json]
// vendrak p3d fix FILE [-o OUT] [-f]
// vendrak p3d cfg FILE [-o OUT] [-f]     (binarised models: their model.cfg text)
// vendrak p3d rvmat FILE [-o OUT] [-f]   (binarised models: their embedded materials)
// vendrak p3d mlod FILE -o OUT [-f]      (binarised models: an editable copy)
#include <strings.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "CliSupport.h"
#include "Command.h"
#include "TextOut.h"
#include "Console.h"
#include "core/BisDLL.h"
#include "core/BisMessage.h"
#include "p3d/OdolModel.h"
#include "p3d/Morvane.h"
#include "text/TokenPairs.h"

namespace {
struct P3dOptions {
  std::string file;
  std::string out;
  int lod = -1;
  bool json = false;
  bool force = false;
};

// The reader's messages go to standard error, except the header lines of a binarised model,
// which the listing prints itself.
bool reader_messages(char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  std::string text = bis_vformat(format, ap);
  va_end(ap);
  if (text.rfind("Header ", 0) == 0) return true;
  return cli_print_stderr("%s", text.c_str());
}

// Opens a model; prints the failure and returns its code.
int open_model(Morvane* m, std::string const& file) {
  if (int r = cli_check_input(file)) return r;
  m->p3d_GetIO()->io_SetErrCallBack(cli_print_stderr);
  int r = m->p3d_Open(file.c_str(), 0, reader_messages);
  if (r) cli_error(file, Morvane::ErrorString(r));
  return r;
}

std::string resolution_text(Morvane* m, int lod) {
  char const* t = m->p3d_get_lodtype_str(lod, false);
  return t ? t : "";
}

int run_info(std::string const& file, bool json) {
  BisDLL dll;
  Morvane* m = dll.dll_GetMorvane();
  if (int r = open_model(m, file)) return r;
  GenString kind;
  if (json) {
    m->p3d_GetKindText(&kind);
    std::string k = kind.c_str();
    while (!k.empty() && (k.back() == '\n' || k.back() == '\r' || k.back() == ' ' || k.back() == ':')) k.pop_back();
    nlohmann::json j = {{"file", file}, {"kind", k}, {"type", m->p3d_GetType()}, {"lods", nlohmann::json::array()}};
    if (OdolModel const* odol = m->p3d_GetOdol()) {
      if (odol->has_prefix()) j["prefix"] = std::string(odol->prefix());
      if (odol->has_app_id()) j["app_id"] = odol->app_id();
      j["mass"] = odol->mass();
      j["trailing_bytes"] = odol->trailing_size();
      j["skeleton"] = {{"name", std::string(odol->skeleton())}, {"bones", odol->bones().size()}};
      j["animations"] = odol->animations().size();
    }
    for (int i = 0; i < m->p3d_GetLodCount(); ++i) {
      void const* lod = m->p3d_get_lod(i);
      j["lods"].push_back({{"index", i},
                           {"resolution", m->p3d_get_resolution(i)},
                           {"text", resolution_text(m, i)},
                           {"points", m->p3d_get_nPoints(lod)},
                           {"faces", m->p3d_get_nFaces(lod)},
                           {"named_selections", m->p3d_get_nNamedSelections(lod)},
                           {"properties", m->p3d_get_nProperties(lod)}});
    }
    cli_print_stdout("%s\n", json_text(j).c_str());
    return 0;
  }
  OdolModel const* odol = m->p3d_GetOdol();
  if (odol && odol->has_app_id()) cli_print_stdout("Header AppID: %u\n", odol->app_id());
  if (odol && odol->has_prefix())
    cli_print_stdout("Header Prefix: %.*s\n", static_cast<int>(odol->prefix().size()), odol->prefix().data());
  m->p3d_GetTypeStr(&kind);
  cli_print_stdout("%s", kind.c_str());
  for (int i = 0; i < m->p3d_GetLodCount(); ++i) {
    void const* lod = m->p3d_get_lod(i);
    cli_print_stdout("%3d  %-34s points=%lu faces=%lu selections=%lu properties=%lu\n", i, resolution_text(m, i).c_str(),
                     m->p3d_get_nPoints(lod), m->p3d_get_nFaces(lod), m->p3d_get_nNamedSelections(lod),
                     m->p3d_get_nProperties(lod));
  }
  if (odol) {
    GenString mass;
    cli_print_stdout("Mass: %s\n", mass.str_FloatToStr(odol->mass()));
    if (!odol->skeleton().empty())
      cli_print_stdout("Skeleton: %.*s (%zu bones)\n", static_cast<int>(odol->skeleton().size()), odol->skeleton().data(),
                       odol->bones().size());
    if (!odol->animations().empty()) cli_print_stdout("Animations: %zu\n", odol->animations().size());
    if (odol->trailing_size()) cli_print_stdout("Trailing block: %llu bytes\n", static_cast<unsigned long long>(odol->trailing_size()));
  }
  return 0;
}

int run_props(P3dOptions const& o) {
  BisDLL dll;
  Morvane* m = dll.dll_GetMorvane();
  if (int r = open_model(m, o.file)) return r;
  int lod = o.lod;
  if (lod < 0) {
    // Properties live in the Geometry LOD by convention.
    lod = 0;
    for (int i = 0; i < m->p3d_GetLodCount(); ++i)
      if (m->p3d_get_resolution(i) == lod_res::kGeometry) lod = i;
  }
  if (lod >= m->p3d_GetLodCount()) {
    cli_error(o.file, "no lod " + std::to_string(lod));
    return P3DERR_NO_LOD;
  }
  TokenPairs props;
  if (int r = m->p3d_get_properties(&props, lod)) {
    cli_error(o.file, Morvane::ErrorString(r));
    return r;
  }
  if (o.json) {
    nlohmann::json j = nlohmann::json::object();
    for (TokenPair* p = props.GetFirstPair(); p; p = p->GetNext()) j[p->name()] = p->value();
    cli_print_stdout("%s\n", json_text(j).c_str());
    return 0;
  }
  for (TokenPair* p = props.GetFirstPair(); p; p = p->GetNext()) cli_print_stdout("%s=%s\n", p->name(), p->value());
  return 0;
}

int run_fix(P3dOptions const& o) {
  BisDLL dll;
  Morvane* m = dll.dll_GetMorvane();
  if (int r = open_model(m, o.file)) return r;
  // A binarised model is written back as stored: only its editable source can be repaired.
  if (m->p3d_GetOdol()) {
    cli_error(o.file, "a binarised model cannot be repaired; repair its editable source");
    return GE_INVALID_FILE;
  }
  if (!m->p3d_has_trailing_spaces()) {
    cli_error(o.file, Morvane::ErrorString(P3DERR_NO_CHANGES));
    return P3DERR_NO_CHANGES;
  }
  OutputFile out(o.out.empty() ? o.file : o.out, o.force);
  if (int r = out.open()) return r;
  if (int r = m->p3d_Create(out.path())) {
    cli_error(o.out.empty() ? o.file : o.out, Morvane::ErrorString(r));
    return r;
  }
  return out.commit();
}

// The text of a binarised model, to a file or standard output.
int run_text(P3dOptions const& o, bool materials) {
  BisDLL dll;
  Morvane* m = dll.dll_GetMorvane();
  if (int r = open_model(m, o.file)) return r;
  if (!m->p3d_GetOdol()) {
    cli_error(o.file, "not a binarised model (ODOL)");
    return P3DERR_UNDECODABLE;
  }
  m->p3d_GetIO()->io_SetStdioCallBack(cli_print_stderr);
  char const* text = materials ? m->p3d_ExtractRvmats() : m->p3d_ExtractSkeleton();
  if (!text) {
    cli_error(o.file, Morvane::ErrorString(P3DERR_UNDECODABLE));
    return P3DERR_UNDECODABLE;
  }
  OutputFile out(o.out.empty() ? "-" : o.out, o.force);
  if (int r = out.open()) return r;
  if (!m->p3d_GetIO()->io_write_file(out.path(), static_cast<void const*>(text), std::strlen(text))) {
    cli_error(out.target(), Morvane::ErrorString(GE_CANNOT_WRITE));
    return GE_CANNOT_WRITE;
  }
  return out.commit();
}

int run_mlod(P3dOptions const& o) {
  BisDLL dll;
  Morvane* m = dll.dll_GetMorvane();
  if (int r = open_model(m, o.file)) return r;
  OutputFile out(o.out, o.force);
  if (int r = out.open()) return r;
  if (int r = m->p3d_UnBinarised(out.path())) {
    cli_error(o.out, Morvane::ErrorString(r));
    return r;
  }
  return out.commit();
}

bool is_model(unsigned char const* head, size_t n, std::string const&) {
  if (n < 4) return false;
  auto const* h = reinterpret_cast<char const*>(head);
  for (char const* magic : {"MLOD", "ODOL", "SP3X", "SP3D"})
    if (strncasecmp(h, magic, 4) == 0) return true;
  return false;
}

InfoRegistrar p3d_info_handler({"P3D model", is_model, run_info});

CommandRegistrar p3d_info({"p3d info", "List a model's kind and LODs", [](CLI::App& sub) -> std::function<int()> {
  auto o = std::make_shared<P3dOptions>();
  sub.add_option("FILE", o->file, "The model (.p3d)")->required();
  sub.add_flag("--json", o->json, "Print the listing as JSON");
  return [o] { return run_info(o->file, o->json); };
}});

CommandRegistrar p3d_props({"p3d props", "Print a LOD's named properties as name=value lines",
                            [](CLI::App& sub) -> std::function<int()> {
                              auto o = std::make_shared<P3dOptions>();
                              sub.add_option("FILE", o->file, "The model (.p3d)")->required();
                              sub.add_option("--lod", o->lod, "The LOD by its index (default: the Geometry LOD)")
                                  ->check(CLI::NonNegativeNumber);
                              sub.add_flag("--json", o->json, "Print the properties as a JSON object");
                              return [o] { return run_props(*o); };
                            }});

CommandRegistrar p3d_fix({"p3d fix", "Trim trailing blanks from property and named selection names",
                          [](CLI::App& sub) -> std::function<int()> {
                            auto o = std::make_shared<P3dOptions>();
                            sub.add_option("FILE", o->file, "The editable model (.p3d)")->required();
                            sub.add_option("-o,--output", o->out, "Write the repaired model here (default: FILE)");
                            sub.add_flag("-f,--force", o->force, "Replace an existing output file");
                            return [o] { return run_fix(*o); };
                          }});
CommandRegistrar p3d_cfg({"p3d cfg", "Write the model.cfg text of a binarised model", [](CLI::App& sub) {
  auto o = std::make_shared<P3dOptions>();
  sub.add_option("FILE", o->file, "The binarised model (.p3d)")->required();
  sub.add_option("-o,--output", o->out, "Write the text here (default: standard output)");
  sub.add_flag("-f,--force", o->force, "Replace an existing output file");
  return std::function<int()>([o] { return run_text(*o, false); });
}});

CommandRegistrar p3d_rvmat({"p3d rvmat", "Write the materials embedded in a binarised model", [](CLI::App& sub) {
  auto o = std::make_shared<P3dOptions>();
  sub.add_option("FILE", o->file, "The binarised model (.p3d)")->required();
  sub.add_option("-o,--output", o->out, "Write the text here (default: standard output)");
  sub.add_flag("-f,--force", o->force, "Replace an existing output file");
  return std::function<int()>([o] { return run_text(*o, true); });
}});

CommandRegistrar p3d_mlod({"p3d mlod", "Write a model as an editable MLOD", [](CLI::App& sub) {
  auto o = std::make_shared<P3dOptions>();
  sub.add_option("FILE", o->file, "The model (.p3d)")->required();
  sub.add_option("-o,--output", o->out, "The editable model to write")->required();
  sub.add_flag("-f,--force", o->force, "Replace an existing output file");
  return std::function<int()>([o] { return run_mlod(*o); });
}});
}  // namespace
