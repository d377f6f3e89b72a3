// vendrak cfg binarise FILE [-o OUT] [-f] [--ofp] [-I DIR]... [--checks] [--warnings-as-errors]
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "CliSupport.h"
#include "Command.h"
#include "Console.h"
#include "config/RapMessages.h"
#include "config/Sembric.h"
#include "core/BisDLL.h"

namespace {
struct BinariseOptions {
  std::string file;
  std::string out;
  std::vector<std::string> includes;
  bool ofp = false;
  bool checks = false;
  bool strict = false;
  bool force = false;
};

// config.cpp becomes config.bin beside it; standard input goes to standard output.
std::string default_output(std::string const& file) {
  if (file == "-") return "-";
  return std::filesystem::path(file).replace_extension(".bin").string();
}

int run_binarise(BinariseOptions const& o) {
  std::vector<unsigned char> bytes;
  if (int r = cli_read_input(o.file, bytes)) return r;
  std::string name = o.file == "-" ? std::string("(standard input)") : o.file;
  BisDLL dll;
  Sembric* s = cli_config_reader(dll, o.includes);
  int flags = (o.strict ? Sembric::RAPF_WARNINGS_ARE_ERRORS : 0) | (o.checks ? Sembric::RAPF_CONTENT_CHECKS : 0);
  int r = s->rap_Create(name.c_str(), flags, nullptr, reinterpret_cast<char const*>(bytes.data()),
                        static_cast<unsigned>(bytes.size()));
  // The binariser has told the file and line of a fault it found; the last line says the outcome.
  bool told = false;  // an output that could not be made or put in place says so itself
  if (!r) {
    OutputFile out(o.out.empty() ? default_output(o.file) : o.out, o.force);
    told = (r = out.open()) != 0;
    if (!r) r = s->rap_Output(out.path(), o.ofp ? 0 : Sembric::RAPO_ARMA);
    if (!r) told = (r = out.commit()) != 0;
  }
  // A reader status (256 + a message number) exits with the message number.
  int status = r >= RAP_STATUS ? r - RAP_STATUS : r;
  if (r && !told) cli_error(name, std::string(Sembric::ErrorString(r)) + " (" + std::to_string(status) + ")");
  return status;
}

CommandRegistrar binarise_command({"cfg binarise", "Binarise config text (config.cpp, model.cfg, mission.sqm) to raP",
                                   [](CLI::App& cmd) -> std::function<int()> {
  auto o = std::make_shared<BinariseOptions>();
  cmd.add_option("FILE", o->file, "The config text, or a binarised config to write again; - reads standard input")
      ->required();
  cmd.add_option("-o,--output", o->out,
                 "The binarised file (default: FILE with the extension .bin; - standard output)");
  cmd.add_flag("-f,--force", o->force, "Replace an existing output file that differs");
  cmd.add_flag("--ofp", o->ofp, "Write the OFP dialect (indexed strings) instead of the Arma dialect");
  // One folder per -I, so a FILE behind it is not taken for another folder.
  cmd.add_option("-I,--include", o->includes,
                 "A folder that includes are looked up below, as a mapped project drive (repeatable, in order)")
      ->allow_extra_args(false);
  cmd.add_flag("--checks", o->checks,
               "Check an addon's config.cpp: units[]/weapons[] rebuilt, terrain names, clutter tables");
  cmd.add_flag("--warnings-as-errors", o->strict, "Fail on the first warning");
  return [o]() -> int { return run_binarise(*o); };
}});
}  // namespace
