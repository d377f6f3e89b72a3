// Content processing while an archive is made: configs binarised, the road library read and
// checked, include folders for both, and the textures listed in the index the game reads.
#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <vector>

#include "config/Sembric.h"
#include "core/BisDLL.h"
#include "pbo/VendrakImpl.h"
#include "pbo/VendrakMaker.h"
#include "texture/Hollin.h"
#include "texture/Lorvix.h"


namespace {
// The binariser's own messages (warnings, the place of a fault) reach the archive tool's error
// sink. The binariser takes a plain callback, so the sink is handed over through this pointer for
// the duration of one call.
thread_local BisFileIO* g_forward = nullptr;

bool forward_to_errors(char const* format, ...) {
  if (!g_forward) return true;
  va_list ap;
  va_start(ap, format);
  g_forward->io_vcallback(true, format, ap);
  va_end(ap);
  return true;
}

bool silent(char const*, ...) { return true; }

struct Forwarding {
  explicit Forwarding(BisFileIO& io) { g_forward = &io; }
  ~Forwarding() { g_forward = nullptr; }
};
}  // namespace

void Vendrak::pbo_AddIncludeFolder(char const* folder) {
  if (folder && *folder) _make_state().include_folders.emplace_back(folder);
}

bool Vendrak::pbo_ValidateRoadLibrary(char const* path) {
  BisFileIO& io = _impl->io;
  io.io_callback("\nvalidating %s\n", path ? path : "");
  Sembric* rap = _dll->dll_GetRap();
  rap->rap_ClearIncludeFolders();
  for (auto const& f : _make_state().include_folders) rap->rap_AddIncludeFolder(f.c_str());
  // The fault is reported here, once, in the road library's own words.
  int r = rap->rap_Create(path, 0, silent, nullptr, 0, nullptr);
  if (r) {
    io.io_callbackerr("error: %s\n", rap->rap_Describe(r).c_str());
    rap->Close();
    return false;
  }
  bool valid = pbo_ValidateRoadTree(rap->rap_get_root());
  rap->Close();
  return valid;
}

int Vendrak::_binarise_config(pbo_entry* entry, char const* path) {
  Maker& m = *_maker;
  Sembric* rap = _dll->dll_GetRap();
  rap->rap_ClearIncludeFolders();
  for (auto const& f : m.include_folders) rap->rap_AddIncludeFolder(f.c_str());
  int flags = (m.mode & MAKE_WARNINGS_ARE_ERRORS) ? Sembric::RAPF_WARNINGS_ARE_ERRORS : 0;
  Forwarding forward(_impl->io);
  int r = rap->rap_Create(path, flags, forward_to_errors, nullptr, 0, this);
  std::vector<uint8_t> bytes;
  // The oldest styles are read by the first games, which know only the older dialect.
  int style = m.mode & MAKE_STYLE_MASK;
  bool arma = style == MAKE_STYLE_ARMA_NO_SHA || style == MAKE_STYLE_ELITE || style == MAKE_STYLE_ARMA;
  if (!r) r = rap->rap_Output(bytes, arma ? Sembric::RAPO_ARMA : 0);
  for (BisToken* t = rap->rap_get_missing_files()->GetFirstToken(); t; t = t->GetNext())
    m.missing.emplace_back(entry->pbe_GetFilename(), t->c_str());
  rap->Close();
  if (r) {
    _impl->io.io_callbackerr("%s: %s\r\n", path, Sembric::ErrorString(r));
    return PBO_SEMBRIC_ERROR;
  }
  auto* data = new uint8_t[bytes.size() + 1];
  std::memcpy(data, bytes.data(), bytes.size());
  data[bytes.size()] = 0;
  auto size = static_cast<uint32_t>(bytes.size());
  entry->_set_record(pbo_entry::kStored, size, 0, static_cast<uint32_t>(entry->_timestamp), size, 0);
  entry->_adopt(data, size);
  return 0;
}

// A binarised addon carries texHeaders.bin at its root, listing every texture it holds, so that the
// game knows their sizes, alpha kinds and colours without opening them. One in the folder is made
// afresh; textures that do not read as textures are left out of it, with a warning.
int Vendrak::_index_textures() {
  Maker& m = *_maker;
  BisFileIO& io = _impl->io;
  Hollin index(_dll);
  Lorvix texture(_dll);
  texture.pax_GetIO()->io_SetErrCallBack(silent);
  pbo_entry* old = nullptr;
  uint32_t newest = 0;
  for (pbo_entry* e = pbo_GetFirstEntry(); e; e = e->GetNext()) {
    char const* name = e->pbe_GetFilename();
    if (strcasecmp(name, "texHeaders.bin") == 0) {
      old = e;
      continue;
    }
    auto source = m.sources.find(e);
    if (source == m.sources.end() || !(FileStringA::fs_CompareExt("paa", name) || FileStringA::fs_CompareExt("pac", name)))
      continue;
    struct stat st;
    int r = ::stat(source->second.c_str(), &st) == 0 ? texture.pax_Open(source->second.c_str(), silent) : 3;
    if (r == 0) r = index.tex_AddTexture(name, texture, static_cast<uint64_t>(st.st_size));
    texture.Close();
    if (r) {
      io.io_callbackerr("Warning: %s is left out of texHeaders.bin: %s\r\n", name, Lorvix::ErrorString(r));
      if (io.io_get_warnings_are_errors()) return PBO_CANNOT_READ_ENTRY_FILE;
      continue;
    }
    newest = std::max(newest, static_cast<uint32_t>(st.st_mtime));
  }
  if (!index.GetCount()) return 0;
  std::vector<uint8_t> bytes;
  if (int r = index.tex_Output(bytes)) return r == GE_NO_MEMORY ? r : PBO_DLL_DETECTED_ERROR;
  if (old) {
    io.io_callback("replacing existing content %s\r\n", old->pbe_GetFilename());
  } else {
    old = new pbo_entry;
    AddChain(old);
  }
  old->_release();
  old->pbe_SetFilename("texHeaders.bin");
  m.sources.erase(old);
  auto* data = new uint8_t[bytes.size() + 1];
  std::memcpy(data, bytes.data(), bytes.size());
  data[bytes.size()] = 0;
  auto size = static_cast<uint32_t>(bytes.size());
  old->_set_record(pbo_entry::kStored, size, 0, newest, size, 0);
  old->_adopt(data, size);
  io.io_callback("texHeaders.bin: %llu textures\r\n", static_cast<unsigned long long>(index.GetCount()));
  return 0;
}
