#include "config/Sembric.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>

#include "config/ConfigChecks.h"
#include "config/Kaltor.h"
#include "config/RapParser.h"
#include "config/RapTextReader.h"
#include "config/RapWriter.h"
#include "core/BisDLL.h"
#include "core/GuardedCall.h"
#include "text/FileStringA.h"

Sembric* BisDLL::dll_GetRap() { return dll_slot<Sembric>(SLOT_SEMBRIC); }

namespace {
uint32_t le32(uint8_t const* p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
         static_cast<uint32_t>(p[3]) << 24;
}
}  // namespace

Sembric::Sembric(BisDLL* dll) : _dll(dll), _io(dll) {}

Sembric::~Sembric() = default;

int Sembric::Close() {
  _io.io_Close();
  _root.reset();
  _enums.Clear();
  _included.Clear();
  _missing.Clear();
  _file.Clear();
  _line_in_error = 0;
  _flags = 0;
  _unbinarisable = false;
  _reported = false;
  _io.io_set_warnings_are_errors(false);
  return 0;
}

// ===== the built tree =======================================================

rap_entry* Sembric::rap_get_class(char const* name) const { return _root ? _root->rpe_get_class(name) : nullptr; }

rap_entry* Sembric::rap_get_entry(char const* name) const {
  return _root ? _root->rpe_get_entry(name, rap_entry::RPE_ANY) : nullptr;
}

rap_entry* Sembric::rap_add_class(char const* name, char const* parent) {
  if (!_root) _root = std::make_unique<rap_entry>();
  return _root->rpe_add_class(name, parent);
}

rap_entry* Sembric::rap_get_first() const { return _root ? _root->rpe_get_first_child() : nullptr; }

void Sembric::rap_add_enum(char const* name, int32_t value) {
  GenString v;
  v.str_SetNumber(value);
  // Several unnamed enumerators may share the stand-in name, so the pair goes in as it is.
  _enums.AddChain(new TokenPair(name && *name ? name : "OrdinalEnum", v.c_str()));
}

void Sembric::rap_AddIncludeFolder(char const* folder) {
  if (folder && *folder) _include_folders.emplace_back(folder);
}

// ===== building =============================================================

int Sembric::rap_Create(char const* file, int flags, BisCallback callback, char const* data, unsigned int size,
                        Vendrak* pbo) {
  return bis_guarded_call<RapMessage>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    Close();
    if (callback) {
      _io.io_SetStdioCallBack(callback);
      _io.io_SetErrCallBack(callback);
    }
    int r;
    try {
      r = _create_worker(file, flags, data, size, pbo);
    } catch (std::bad_alloc const&) {
      throw GE_NO_MEMORY;
    }
    // The place of a fault is told once, by the stage that found it or else here.
    if (r >= 10 && !_reported) _io.io_callbackerr("%s\r\n", rap_Describe(r).c_str());
    return r;
  });
}

int Sembric::_create_worker(char const* file, int flags, char const* data, unsigned int size, Vendrak* pbo) {
  if (flags & RAPF_IMPLIES_READER_OPTION) flags |= RAPF_READER_OPTION;
  _flags = flags;
  _io.io_set_warnings_are_errors((flags & RAPF_WARNINGS_ARE_ERRORS) != 0);
  _file = file ? file : "";
  uint8_t const* bytes;
  uint64_t length;
  _input(file, data, size, bytes, length);
  bool binarised = length >= 4 && BisFileIO::io_BufIsRaPified(bytes) >= 0;
  int r = binarised ? _prebinarised(bytes, length) : _text(file, reinterpret_cast<char const*>(bytes), length);
  // An addon's config.cpp packed into an archive is always checked; elsewhere on request.
  bool addon_config = pbo && file && FileStringA(file).fs_CompareFilenameExtOnly("config.cpp");
  if (!r && ((flags & RAPF_CONTENT_CHECKS) || addon_config)) r = rap_CheckContent(pbo);
  return r;
}

void Sembric::_input(char const* file, char const* data, unsigned int size, uint8_t const*& bytes, uint64_t& length) {
  if (data) {
    bytes = reinterpret_cast<uint8_t const*>(data);
    length = size;
    return;
  }
  if (!file || !*file) throw "no filename";
  if (!_io.io_OpenFile(file)) _io.io_throw(GE_EOF, "Cannot open %s\r\n", file);
  if (_io.io_IsHuge()) throw GE_NO_MEMORY;
  bytes = _io.io_GetRawData();
  length = _io.io_GetFileSize();
}

int Sembric::rap_Preprocess(char const* file, std::string& out, char const* data, unsigned int size) {
  return bis_guarded_call<RapMessage>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    Close();
    _file = file ? file : "";
    uint8_t const* bytes;
    uint64_t length;
    _input(file, data, size, bytes, length);
    RapTextReader reader(_io);
    for (auto const& folder : _include_folders) reader.rt_AddIncludeFolder(folder.c_str());
    reader.rt_SetValueChecks(false);
    int r = reader.rt_OpenText(reinterpret_cast<char const*>(bytes), static_cast<size_t>(length), file);
    while (r == 0 && (r = reader.rt_NextToken()) == 0) {
      out += reader.rt_Gap();
      if (reader.rt_TokenKind() != RapTextReader::TK_STRING) {
        out.append(reader.rt_Token(), reader.rt_TokenLength());
        continue;
      }
      // A string as config text again: quotes doubled, a line break as the decoder writes it.
      out += '"';
      std::string_view text(reader.rt_Token(), reader.rt_TokenLength());
      for (char c : text) {
        if (c == '\n')
          out += "\" \\n \"";
        else
          out.append(c == '"' ? 2 : 1, c);
      }
      out += '"';
    }
    for (auto const& name : reader.rt_IncludedFiles()) _included.tkn_add(name.c_str());
    if (r == RAP_STATUS + RAPMSG_EOF) {
      out += reader.rt_Gap();
      return 0;
    }
    _line_in_error = reader.rt_CurrentLine();
    return reader.rt_Error(r);
  });
}

// An input that is binarised already is taken through the decoder as it is.
int Sembric::_prebinarised(uint8_t const* data, uint64_t size) {
  Kaltor* k = _dll->dll_GetKaltor();
  k->drp_GetIO()->io_SetStdioCallBack(_io.io_GetStdioCallBack());
  _root = std::make_unique<rap_entry>();
  int r = k->drp_Decode(data, static_cast<unsigned long>(size), _root.get());
  if (r) {
    _root.reset();
    _io.io_callbackerr("PreBinarised error=%s\n", Kaltor::ErrorString(r));
    return RAPMSG_PREBINARISED;
  }
  _prebinarised_enums(data, size);
  return 0;
}

// The decoder's tree has no place for the enum section, so it is read here. Arma and Xbox files
// say where it is; for the others (OFP, spaced files) the decoder's text lists it.
void Sembric::_prebinarised_enums(uint8_t const* data, uint64_t size) {
  uint64_t at = 0;
  if (data[0] == 0 && size >= 16 && le32(data + 4) == 0 && le32(data + 8) == 8) at = le32(data + 12);
  else if (data[0] == 0 && size >= 36 && le32(data + 24) == 0 && le32(data + 28) == 8) at = le32(data + 32);
  if (at) {
    if (at + 4 > size) return;
    uint32_t count = le32(data + at);
    uint64_t p = at + 4;
    for (uint32_t i = 0; i < count; ++i) {
      auto const* end = static_cast<uint8_t const*>(std::memchr(data + p, 0, size - p));
      if (!end || end + 5 > data + size) return;  // the decoder has accepted it: not reached
      rap_add_enum(reinterpret_cast<char const*>(data + p), static_cast<int32_t>(le32(end + 1)));
      p = static_cast<uint64_t>(end + 5 - data);
    }
    return;
  }
  Kaltor* k = _dll->dll_GetKaltor();
  char const* text = nullptr;
  if (k->drp_Decode(data, static_cast<unsigned long>(size), &text, "", -1) || !text) return;
  static char const kBlock[] = "Enums)\r\nenum {\r\n";
  char const* block = std::strstr(text, kBlock);
  if (!block) return;
  // OFP enumerators come one a line in ordinal order: "\tname,\t//ordinal".
  int ordinal = 0;
  for (char const* line = block + sizeof kBlock - 1; *line == '\t'; ++ordinal) {
    char const* end = std::strchr(line, '\n');
    if (!end) break;
    std::string name(line + 1, end - line - 1);
    size_t cut = name.find(",\t//");
    if (cut == std::string::npos) cut = name.find(" = ");
    rap_add_enum(name.substr(0, cut).c_str(), ordinal);
    line = end + 1;
  }
}

int Sembric::_text(char const* file, char const* data, uint64_t size) {
  RapTextReader reader(_io);
  for (auto const& folder : _include_folders) reader.rt_AddIncludeFolder(folder.c_str());
  reader.rt_SetAccessWarning(!(_flags & RAPF_READER_OPTION));
  int r = reader.rt_OpenText(data, static_cast<size_t>(size), file);
  if (r) {
    _reported = true;
    return reader.rt_Error(r);
  }
  _root = std::make_unique<rap_entry>();
  RapParser parser(reader, _io);
  // A model.cfg describes skeletons and animations of one model: nothing to delete there.
  parser.rpp_SetNoDelete(file && FileStringA(file).fs_CompareFilenameExtOnly("model.cfg"));
  try {
    r = parser.rpp_Parse(*_root, _enums);
  } catch (...) {
    _root.reset();
    _enums.Clear();
    throw;
  }
  for (auto const& name : reader.rt_IncludedFiles()) _included.tkn_add(name.c_str());
  _unbinarisable = reader.rt_NotBinarisable();
  _line_in_error = parser.rpp_LineInError();
  if (r) {
    _reported = true;
    _root.reset();
    _enums.Clear();
  }
  return r;
}

// ===== writing ==============================================================

int Sembric::_output_worker(std::vector<uint8_t>& out, int flags) {
  if (_unbinarisable) return RAPMSG_UNBINARISABLE;
  if (!_root) return RAPMSG_NO_CLASSES;
  RapWriter w((flags & RAPO_ARMA) ? RapWriter::RAPW_ARMA : RapWriter::RAPW_OFP);
  try {
    w.rpw_write(*_root, &_enums, out);
  } catch (std::bad_alloc const&) {
    throw GE_NO_MEMORY;
  }
  return 0;
}

int Sembric::rap_Output(std::vector<uint8_t>& out, int flags) {
  return bis_guarded_call<RapMessage>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION,
                                   [&] { return _output_worker(out, flags); });
}

int Sembric::rap_Output(char const* file, int flags) {
  return bis_guarded_call<RapMessage>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    if (!file || !*file) throw "no filename";
    std::vector<uint8_t> bytes;
    // The whole file is laid out before anything is created, so a tree that cannot be written
    // leaves no file behind.
    if (int r = _output_worker(bytes, flags)) return r;
    _io.io_CloseOutput();
    if (!_io.io_CreateFile(file)) {
      if (file[0] != '/') {
        char cwd[4096];
        if (getcwd(cwd, sizeof cwd)) _io.io_callbackerr("(%s)\\", cwd);
      }
      _io.io_callbackerr("%s\r\n", file);
      return static_cast<int>(RAPMSG_CANNOT_WRITE);
    }
    try {
      _io.io_WriteBlock(bytes.data(), bytes.size());
      _io.io_CloseOutput();
    } catch (...) {
      _io.io_CloseOutput();
      std::remove(_io.io_GetOpenedFileName(true));
      throw;
    }
    return 0;
  });
}

int Sembric::rap_CheckContent(Vendrak* pbo) {
  return bis_guarded_call<RapMessage>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    if (!_root) return static_cast<int>(RAPMSG_NO_CLASSES);
    return ConfigChecks(*this, pbo).cc_run();
  });
}

// ===== messages =============================================================

int Sembric::rap_Warn(int msg, bool show) {
  if (_io.io_get_warnings_are_errors()) return RAP_STATUS + msg;
  if (show) _io.io_callback("warning :%s\r\n", rap_Describe(msg).c_str());
  return 0;
}

std::string Sembric::rap_Describe(int code) const {
  char const* text = ErrorString(code);
  if (rap_message_is_bare(code) || _file.str_IsEmpty()) return text;
  GenString out;
  if (_line_in_error > 0)
    out.Format("In File %s: circa Line %d %s", _file.c_str(), _line_in_error, text);
  else
    out.Format("%s: %s", _file.c_str(), text);
  return out.c_str();
}

char const* Sembric::ErrorString(int code) { return rap_message_text(code); }
