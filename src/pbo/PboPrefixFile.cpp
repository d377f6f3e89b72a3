// The prefix file beside an unpacked archive, the property list it fills, and the properties record
// a new archive starts with.
#include <cstring>
#include <ctime>
#include <strings.h>

#include "pbo/VendrakImpl.h"
#include "pbo/VendrakMaker.h"

namespace {
std::string trimmed(char const* begin, char const* end) {
  while (begin < end && (*begin == ' ' || *begin == '\t')) ++begin;
  while (end > begin && (end[-1] == ' ' || end[-1] == '\t')) --end;
  return std::string(begin, end);
}

int count_equals(char const* line) {
  int n = 0;
  for (; *line; ++line) n += *line == '=';
  return n;
}

bool named(char const* name, char const* what) { return strcasecmp(name, what) == 0; }
}  // namespace

Vendrak::Maker& Vendrak::_make_state() {
  if (!_maker) _maker = std::make_shared<Maker>(&_impl->io);
  return *_maker;
}

char const* Vendrak::pbo_GetPrefixPath() const { return _maker ? _maker->prefix.c_str() : ""; }

int Vendrak::pbo_ParsePrefixFile(char const* path) {
  Maker& m = _make_state();
  _impl->properties.DeleteAllChain();
  m.prefix = "";
  FileStringA text;
  if (!path || !text.fs_ReadTextFile(path) || text.str_IsEmpty()) return 0;

  GenString line;
  bool first = true;
  while (text.str_GetNextLine(line)) {
    char const* l = line.c_str();
    int equals = count_equals(l);
    // A line of the properties report that extraction writes ("//Pbo Type is: ...", its banner)
    // is a comment: it must not become the prefix of the archive packed from that folder.
    bool comment = l[0] == '/' && l[1] == '/';
    if (first && equals == 0 && !comment) {
      m.prefix = trimmed(l, l + std::strlen(l)).c_str();
      m.prefix.fs_ConvertToBackSlash();
    }
    first = false;
    if (equals != 1) continue;
    char const* eq = std::strchr(l, '=');
    std::string name = trimmed(l, eq);
    std::string value = trimmed(eq + 1, l + std::strlen(l));
    // Trimmed first, then cut: a blank before a ';' comment stays in the value.
    size_t semi = value.find(';');
    if (semi != std::string::npos) value.resize(semi);
    _impl->properties.AddChain(new TokenPair(name.c_str(), value.c_str()));
    if (named(name.c_str(), "prefix")) m.prefix = value.c_str();
  }
  return 1;
}

int Vendrak::pbo_WriteParsedPrefixFile(char const* path) {
  GenString text;
  for (TokenPair* p = _impl->properties.GetFirstPair(); p; p = p->GetNext())
    text.str_Add("%s=%s\r\n", p->name(), p->value());
  BisFileIO out;
  return path && out.io_write_file(path, text.c_str()) ? 1 : 0;
}

void Vendrak::pbo_SetProperty(char const* name, char const* value) {
  if (!name) return;
  if (!value) value = "";
  if (TokenPair* p = pbo_GetProperty(name))
    p->tkn_value() = value;
  else
    _impl->properties.AddChain(new TokenPair(name, value));
  if (named(name, "prefix")) {
    Maker& m = _make_state();
    m.prefix = value;
    m.prefix.fs_ConvertToBackSlash();
  }
}

void Vendrak::pbo_SetProperty(TokenPair* pair) {
  if (pair) pbo_SetProperty(pair->name(), pair->value());
}

char const* Vendrak::pbo_SetPrefix(char const* prefix) {
  pbo_SetProperty("prefix", prefix);
  TokenPair* p = pbo_GetProperty("prefix");
  return p ? p->value() : "";
}

void Vendrak::_write_properties_record() {
  Maker& m = *_maker;
  BisFileIO& io = _impl->io;
  if (m.style == 0) return;  // the oldest archives carry no properties at all
  auto put = [&](char const* text) { _emit(text, std::strlen(text) + 1); };
  uint8_t record[21] = {};
  std::memcpy(record + 1, "sreV", 4);
  _emit(record, sizeof record);
  if (m.style == MAKE_STYLE_RESISTANCE) {
    put("product");
    put("OFP: Resistance");
  } else if (!m.prefix.str_IsEmpty()) {
    io.io_callbackerr("Prefix = %s\r\n", m.prefix.c_str());
    put("prefix");
    put(m.prefix.c_str());
  }
  bool has_version = false;
  for (TokenPair* p = _impl->properties.GetFirstPair(); p; p = p->GetNext()) {
    if (named(p->name(), "prefix") || named(p->name(), "ostrel") || named(p->name(), "cfgWorlds")) continue;
    has_version |= named(p->name(), "version");
    put(p->name());
    put(p->value());
  }
  if (!has_version) {
    char stamp[32] = "00000000";
    if (!(m.mode & MAKE_REPRODUCIBLE) && m.style != MAKE_STYLE_RESISTANCE) {
      time_t now = std::time(nullptr);
      struct tm local {};
      localtime_r(&now, &local);
      std::strftime(stamp, sizeof stamp, "%y%m%d%H", &local);
    }
    put("version");
    put(stamp);
  }
  _emit("", 1);
}
