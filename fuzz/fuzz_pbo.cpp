// Arbitrary bytes as an archive: open it, read every entry, list it, extract it (decoding configs, then not),
// and check that nothing was written outside the destination folder.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "core/BisDLL.h"
#include "io/BisFileIO.h"
#include "pbo/Vendrak.h"

namespace fs = std::filesystem;

namespace {
bool silent(char const*, ...) { return true; }

// root/a/b/arc.pbo is the archive and root/a/b/out the destination: an entry that climbed out with
// ".." would land in root, root/a or root/a/b.
struct Place {
  fs::path root, folder, archive, out;
  Place() {
    std::string t = (fs::temp_directory_path() / "vendrak-fuzz-pbo-XXXXXX").string();
    root = ::mkdtemp(t.data());
    folder = root / "a" / "b";
    fs::create_directories(folder);
    archive = folder / "arc.pbo";
    out = folder / "out";
  }
};

Place& place() {
  static Place p;
  return p;
}

void check_nothing_escaped() {
  Place& p = place();
  for (auto const& dir : {p.root, p.root / "a", p.folder})
    for (auto const& e : fs::directory_iterator(dir)) {
      fs::path const& q = e.path();
      if (q == p.root / "a" || q == p.folder || q == p.archive || q == p.out) continue;
      std::fprintf(stderr, "written outside the destination: %s\n", q.c_str());
      std::abort();
    }
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  Place& p = place();
  FILE* f = std::fopen(p.archive.c_str(), "wb");
  if (!f) return 0;
  if (size) std::fwrite(data, 1, size, f);
  std::fclose(f);

  BisDLL dll;
  Vendrak* tool = dll.dll_GetVendrak();
  tool->pbo_GetIO()->io_SetErrCallBack(silent);
  int r = tool->pbo_Open(p.archive.c_str(), silent, Vendrak::OPEN_SHA_MESSAGE);
  if (r == 0 || r == PBO_CORRUPTED_SHA) {
    for (pbo_entry* e = tool->pbo_GetFirstEntry(); e; e = e->GetNext()) {
      int n = 0;
      uint8_t const* bytes = tool->pbo_ReadEntryData(e, &n, 0);
      if (bytes && n > 0) {
        volatile uint8_t sink = bytes[0] ^ bytes[n - 1];
        (void)sink;
      }
      tool->pbo_FreeData(e);
    }
    tool->pbo_ReportStrangeValues();
  }
  tool->ClosePbo();
  tool->pbo_Extract(p.archive.c_str(), silent, Vendrak::EXTRACT_LIST_ONLY, nullptr, nullptr);
  tool->pbo_Extract(p.archive.c_str(), silent, Vendrak::EXTRACT_DECODE_CONFIGS, nullptr, p.out.c_str());
  check_nothing_escaped();
  // Again without decoding: entries then go straight from the mapped archive, packed ones through
  // the helper threads, over what the first pass left (forced where it differs).
  tool->pbo_Extract(p.archive.c_str(), silent, Vendrak::EXTRACT_FORCE, nullptr, p.out.c_str());
  check_nothing_escaped();
  std::error_code ec;
  fs::remove_all(p.out, ec);
  return 0;
}
