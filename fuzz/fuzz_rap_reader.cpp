// Arbitrary text through the config text reader and its preprocessor: every outcome must be a
// status, never a crash, a hang or an unbounded allocation. Includes resolve against nothing, so
// the text alone is exercised; the first byte picks the reading mode, and whether the binariser's
// value checks are made (bit 6 clear) or the tokens are the preprocessor's alone (cfg preprocess).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "config/RapTextReader.h"
#include "io/BisFileIO.h"

namespace {
bool quiet(char const*, ...) { return true; }
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  static BisFileIO io;
  static RapTextReader* reader = [] {
    io.io_SetStdioCallBack(quiet);
    io.io_SetErrCallBack(quiet);
    auto* r = new RapTextReader(io);
    r->rt_SetExpansionAllowance(size_t{1} << 20);
    return r;
  }();
  int mode = 0;
  if (size > 0) {
    mode = data[0] & (RapTextReader::RT_EOL_TOKEN | RapTextReader::RT_NO_EXPAND);
    io.io_set_warnings_are_errors(data[0] & 0x80);
    reader->rt_SetValueChecks(!(data[0] & 0x40));
  }
  if (reader->rt_OpenText(reinterpret_cast<char const*>(data), size, "fuzz.cpp") != 0) return 0;
  size_t tokens = 0;
  while (reader->rt_NextToken(mode) == 0) {
    // The blanks go into values, which end at a zero byte: one inside would cut them short.
    std::string const& gap = reader->rt_Gap();
    if (std::memchr(gap.data(), 0, gap.size())) std::abort();
    if ((++tokens & 15) == 0) reader->rt_UngetToken();
  }
  reader->rt_Decorate(RAP_STATUS + RAPMSG_EOF);
  reader->rt_Reset();
  return 0;
}
