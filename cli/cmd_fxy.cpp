// fxy FILE: a font's form, its record count and each record's raw fields.
#include <sys/stat.h>

#include <cstring>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "CliSupport.h"
#include "Command.h"
#include "TextOut.h"
#include "Console.h"
#include "core/BisDLL.h"
#include "font/Glyvard.h"

namespace {
// The records' fields are 16-bit words (six in the first game's form, seven in the later one);
// they are shown as stored, unsigned.
std::vector<unsigned> fields(Glyvard const& g, unsigned long i) {
  unsigned char const* r = g.fxy_GetEntry(i);
  std::vector<unsigned> out;
  for (uint32_t k = 0; k + 1 < g.fxy_GetRecordSize(); k += 2) out.push_back(r[k] | r[k + 1] << 8u);
  return out;
}

int run_fxy(std::string const& path, bool json) {
  if (int r = cli_check_input(path)) return r;
  BisDLL dll;
  Glyvard* g = dll.dll_GetGlyvard();
  int r = g->fxy_Open(path.c_str());
  if (r) {
    cli_error(path, std::string(Glyvard::ErrorString(r)) + " (" + std::to_string(r) + ")");
    return r;
  }
  char const* form = g->fxy_IsArma() ? "Arma" : "OFP";
  if (json) {
    nlohmann::json records = nlohmann::json::array();
    for (unsigned long i = 0; i < g->fxy_GetCount(); ++i) records.push_back(fields(*g, i));
    cli_print_stdout("%s\n", json_text(nlohmann::json{{"file", path},
                                            {"form", form},
                                            {"record_size", g->fxy_GetRecordSize()},
                                            {"count", g->fxy_GetCount()},
                                            {"records", records}},
                                       1)
                                 .c_str());
    return 0;
  }
  cli_print_stdout("Form: %s\nRecords: %lu of %u bytes\n", form, g->fxy_GetCount(), g->fxy_GetRecordSize());
  for (unsigned long i = 0; i < g->fxy_GetCount(); ++i) {
    std::string line = std::to_string(i);
    line.insert(0, 5 - std::min<size_t>(5, line.size()), ' ');
    for (unsigned v : fields(*g, i)) {
      std::string f = std::to_string(v);
      line += std::string(7 - std::min<size_t>(6, f.size()), ' ') + f;
    }
    cli_print_stdout("%s\n", line.c_str());
  }
  return 0;
}

// "BIFo" and version 257; the first game's fonts have no header, only their size (2688 bytes) and
// their name, so those are recognised by both.
bool matches_fxy(unsigned char const* head, size_t n, std::string const& path) {
  if (n >= 8 && std::memcmp(head, "BIFo\x01\x01\0\0", 8) == 0) return true;
  struct stat st {};
  if (path.size() < 4 || ::stat(path.c_str(), &st) != 0 || st.st_size != 2688) return false;
  std::string ext = path.substr(path.size() - 4);
  for (auto& c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
  return ext == ".fxy";
}

CommandRegistrar fxy_command({"fxy", "Show a font's form and its glyph records",
                              [](CLI::App& c) -> std::function<int()> {
                                auto file = std::make_shared<std::string>();
                                auto json = std::make_shared<bool>(false);
                                c.add_option("FILE", *file, "The font (.fxy)")->required();
                                c.add_flag("--json", *json, "Print the records as JSON");
                                return [file, json] { return run_fxy(*file, *json); };
                              }});

InfoRegistrar fxy_info({"FXY font", matches_fxy, run_fxy});
}  // namespace
