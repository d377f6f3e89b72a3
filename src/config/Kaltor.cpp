#include "config/Kaltor.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "config/rap_entry.h"
#include "core/BisDLL.h"
#include "core/BisMessage.h"
#include "core/GenericError.h"
#include "core/GuardedCall.h"

Kaltor* BisDLL::dll_GetKaltor() { return dll_slot<Kaltor>(SLOT_KALTOR); }

namespace {
uint32_t le32(uint8_t const* p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
         static_cast<uint32_t>(p[3]) << 24;
}

// Texts may grow this far beyond their input: indentation and repeated OFP strings make text
// larger than the file, but a crafted file must not turn a few bytes into gigabytes.
constexpr uint64_t kTextPerInputByte = 64;
constexpr uint64_t kTextAllowance = uint64_t{16} << 20;
}  // namespace

Kaltor::Kaltor(BisDLL* dll) : _dll(dll), _io(dll) {}

Kaltor::~Kaltor() = default;

char const* Kaltor::ErrorString(int code) {
  long long c = code < 0 ? -static_cast<long long>(code) : code;
  switch (c) {
    case RAPERR_UNKNOWN_ENTRY_TYPE: return "Kaltor: Unknown Entry type";
    case RAPERR_UNKNOWN_ARRAY_TYPE: return "Kaltor: Unknown ArrayType";
    case RAPERR_TOKEN_NAME_EXPECTED: return "Kaltor: TokenName expected for entry";
    case RAPERR_EMBEDDED_ARRAY_NAMED: return "Kaltor: Embedded arrays cannot have names";
    case RAPERR_MISSING_NAME: return "Kaltor: Missing name for class or array";
    case RAPERR_XBOX_SHA: return "Kaltor: xbox sha is wrong";
    case RAPERR_NOT_RAP: return "Kaltor: Not a raP file";
    case RAPERR_XBOX_META: return "Kaltor: xbox meta file";
    default: return GenericError::ErrorString(c > 0x7fffffff ? -1 : static_cast<int>(c));
  }
}

void Kaltor::drp_SetXboxKey(unsigned char const* key) {
  _has_key = key != nullptr;
  if (key)
    std::memcpy(_key, key, kXboxKeySize);
  else
    std::memset(_key, 0, kXboxKeySize);
}

int Kaltor::Close(bool free_text) {
  _io.io_Close();
  std::vector<uint8_t>().swap(_copy);
  std::vector<uint8_t>().swap(_owned);
  std::vector<std::string_view>().swap(_index);
  _index_sparse.clear();
  std::string().swap(_out);
  std::string().swap(_enum_text);
  _head.Clear();
  if (free_text) std::string().swap(_text);
  return 0;
}

// ===== exported entry points ================================================

int Kaltor::drp_Decode(char const* file, char const** text) {
  if (text) *text = nullptr;
  int r = bis_guarded_call<raperr_types>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    Close(true);
    if (!file || !*file) throw "no filename";
    time_t date = _io.io_OpenFile(file);
    if (!date) _io.io_throw(GE_EOF, "Cannot open %s\r\n", file);
    return _decode_text_worker(file, static_cast<long>(date));
  });
  if (text) *text = _text.c_str();
  return r;
}

int Kaltor::drp_Decode(unsigned char const* data, unsigned long size, char const** text, char const* name,
                       long filedate) {
  if (text) *text = nullptr;
  int r = bis_guarded_call<raperr_types>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    Close(true);
    _open_memory(data, size);
    return _decode_text_worker(name, filedate);
  });
  if (text) *text = _text.c_str();
  return r;
}

int Kaltor::drp_Decode(void const* data, uint64_t size, GenString& text, char const* name, long filedate) {
  char const* t = nullptr;
  int r = drp_Decode(static_cast<unsigned char const*>(data), static_cast<unsigned long>(size), &t, name, filedate);
  try {
    text.str_MemDup(_text.data(), _text.size());
  } catch (...) {
    text.Clear();
    return r ? r : GE_NO_MEMORY;
  }
  return r;
}

int Kaltor::drp_Decode(char const* file, rap_entry* root) {
  return bis_guarded_call<raperr_types>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    Close(true);
    if (!file || !*file) throw "no filename";
    if (!_io.io_OpenFile(file)) _io.io_throw(GE_EOF, "Cannot open %s\r\n", file);
    return _decode_tree_worker(root);
  });
}

int Kaltor::drp_Decode(unsigned char const* data, unsigned long size, rap_entry* root) {
  return bis_guarded_call<raperr_types>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    Close(true);
    _open_memory(data, size);
    return _decode_tree_worker(root);
  });
}

bool Kaltor::drp_WriteDecodedText(char const* file, int encoding) {
  int r = bis_guarded_call<raperr_types>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    if (!file || !*file) throw "no filename";
    return encoding == 0 ? _io.io_write_file(file, static_cast<void const*>(_text.data()), uint64_t{_text.size()})
                                          : _io.io_write_file(file, _text.c_str(), encoding);
  });
  return r == 1;
}

// ===== opening and the file head ============================================

void Kaltor::_open_memory(void const* data, uint64_t size) {
  auto const* bytes = static_cast<uint8_t const*>(data);
  if (!bytes) size = 0;
  if (size >= 4 && bytes[0] != 0) {
    // A spaced file is rewritten before decoding, and the caller's buffer is not ours to change.
    _copy.assign(bytes, bytes + size);
    _copy.resize(size + 4, 0);
    _io.io_OpenPseudoFile(_copy.data(), size);
  } else {
    _io.io_OpenPseudoFile(bytes, size);
  }
}

void Kaltor::_prepare() {
  _out.clear();
  _enum_text.clear();
  _index.clear();
  _index_sparse.clear();
  _owned.clear();
  _signature = SIG_NONE;
  _repeated = 0;
  _seg_start = 0;
  if (_io.io_IsHuge()) throw GE_NO_MEMORY;  // a file too big to hold cannot be decoded
  uint64_t size = _io.io_GetFileSize();
  _budget = size > (UINT64_MAX - kTextAllowance) / kTextPerInputByte ? UINT64_MAX
                                                                     : size * kTextPerInputByte + kTextAllowance;
}

void Kaltor::_despace() {
  uint8_t* d = _io.io_GetRawData();
  uint64_t size = _io.io_GetFileSize();
  uint8_t spacer = d[0];
  if (!spacer) return;
  for (uint64_t i = 4; i < size; ++i) {
    if (d[i] == spacer) {
      d[i] = 0;
    } else if (d[i] == 0) {
      _io.io_callbackerr("bullshit zero in spaced rap\n");
      _io.io_callbackerr("byte %llu of %llu\n", static_cast<unsigned long long>(i - 4),
                         static_cast<unsigned long long>(size - 4));
      throw RAPERR_NOT_RAP;
    }
  }
}

bool Kaltor::_verify_xbox(uint8_t const* data, uint64_t size) const {
  unsigned char md[EVP_MAX_MD_SIZE];
  unsigned int len = 0;
  if (!HMAC(EVP_sha1(), _key, kXboxKeySize, data + 24, static_cast<size_t>(size - 24), md, &len) || len != 20)
    return false;
  return CRYPTO_memcmp(md, data + 4, 20) == 0;
}

// Sets the dialect and leaves the cursor on the first byte behind the head: the root entry (OFP) or
// the enum offset (Arma, Xbox).
uint64_t Kaltor::_detect() {
  uint64_t size = _io.io_GetFileSize();
  uint8_t* d = _io.io_GetRawData();
  if (size < 7 || !d || std::memcmp(d + 1, "raP", 3) != 0) throw RAPERR_NOT_RAP;
  _despace();
  if (d[4] == 4 && d[5] == 0 && d[6] == 0) {
    _dialect = DIALECT_OFP;
    _io.io_MoveTo(7);
    return 7;
  }
  if (size - 4 >= 8 && le32(d + 4) == 0 && le32(d + 8) == 8) {
    _dialect = DIALECT_ARMA;
    _io.io_MoveTo(12);
    return 12;
  }
  if (size - 4 < 28) throw RAPERR_NOT_RAP;
  // Signed Xbox file: an HMAC-SHA1 of everything behind it. Without a key the signature cannot be
  // checked; the file still decodes, with a warning, so nobody mistakes it for a verified one.
  if (_has_key) {
    if (!_verify_xbox(d, size)) throw RAPERR_XBOX_SHA;
    _signature = SIG_VERIFIED;
  }
  if (le32(d + 24) != 0 || le32(d + 28) != 8) throw RAPERR_XBOX_META;
  if (!_has_key) {
    _signature = SIG_UNVERIFIED;
    _io.io_callback("Warning: xbox signature not verified (no key supplied)\n");
  }
  _dialect = DIALECT_XBOX;
  _io.io_MoveTo(32);
  return 32;
}

// ===== workers ==============================================================

int Kaltor::_decode_text_worker(char const* name, long filedate) {
  _prepare();
  _detect();
  GenString title;
  title.Format("Kaltor: %s", name ? name : "");
  BisFileIO::io_Banner(_head, title.c_str(), static_cast<time_t>(filedate));
  static char const* const headers[] = {"#define _OFP_\r\n\r\n", "#define _ARMA_\r\n\r\n",
                                        "#define _XBOX_ WithSignature\r\n\r\n"};
  _head.str_cat(headers[_dialect]);

  int code = 0;
  uint64_t enum_offset = 0;
  auto report = [&](char const* text) {
    _io.io_throw(0, "%s\r\n", text);
    return kDetectedError;
  };
  try {
    if (_dialect == DIALECT_OFP) {
      _entry(-1, 0, nullptr);
      enum_offset = _io.io_GetCurrentOffset();
    } else {
      enum_offset = _io.io_ReadUlong();
      _class_contents("", 0, 0, nullptr, true);
    }
  } catch (Generic_Errors e) {
    code = e;
  } catch (raperr_types e) {
    code = e;
  } catch (std::bad_alloc const&) {
    code = GE_NO_MEMORY;
  } catch (char const* m) {
    code = report(m ? m : "");
  } catch (BisMessage const& m) {
    code = report(m.text.c_str());
  }
  if (!code) {
    try {
      _enums(enum_offset);
    } catch (Generic_Errors e) {
      code = e == GE_USER_CANCELLED || e == GE_NO_MEMORY ? e : GE_RESIDUAL_BYTES;
    } catch (char const* m) {
      report(m ? m : "");
      code = GE_RESIDUAL_BYTES;
    } catch (BisMessage const& m) {
      report(m.text.c_str());
      code = GE_RESIDUAL_BYTES;
    } catch (std::bad_alloc const&) {
      code = GE_NO_MEMORY;
    }
  }
  try {
    if (code) {
      _out += "//";
      _out += GenericError::ErrorString(code);
      _out += "\r\n";
    }
    _text.clear();
    _text.reserve(_head.str_len() + _enum_text.size() + _out.size());
    _text.append(_head.c_str()).append(_enum_text).append(_out);
  } catch (std::bad_alloc const&) {
    throw GE_NO_MEMORY;
  }
  return code;
}

int Kaltor::_decode_tree_worker(rap_entry* root) {
  if (!root) throw GE_CODE_BUG;
  _prepare();
  _detect();
  uint64_t enum_offset;
  try {
    if (_dialect == DIALECT_OFP) {
      // The root entry's entries belong to the caller's root node.
      if (_io.io_ReadByte() == 0) {
        std::string_view name = _read_name();
        _class_contents(name.data(), -1, 1, root, true);
      } else {
        _io.io_AddOffset(-1);
        _entry(-1, 0, root);
      }
      enum_offset = _io.io_GetCurrentOffset();
    } else {
      enum_offset = _io.io_ReadUlong();
      _class_contents("", 0, 0, root, true);
    }
  } catch (std::bad_alloc const&) {
    throw GE_NO_MEMORY;
  }
  try {
    _enums(enum_offset);
  } catch (Generic_Errors e) {
    throw e == GE_USER_CANCELLED || e == GE_NO_MEMORY ? e : GE_RESIDUAL_BYTES;
  } catch (char const* m) {
    _io.io_throw(GE_RESIDUAL_BYTES, "%s\r\n", m ? m : "");
  } catch (BisMessage const& m) {
    _io.io_throw(GE_RESIDUAL_BYTES, "%s\r\n", m.text.c_str());
  } catch (std::bad_alloc const&) {
    throw GE_NO_MEMORY;
  }
  return 0;
}

// ===== reading ==============================================================

void Kaltor::_fail(char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  char buf[512];
  std::vsnprintf(buf, sizeof buf, format, ap);
  va_end(ap);
  _io.io_throw(GE_INVALID_FILE, "%s", buf);
  throw GE_INVALID_FILE;  // not reached: io_throw throws a non-zero code
}

uint32_t Kaltor::_read_count() {
  uint32_t value = 0;
  unsigned shift = 0;
  for (;;) {
    int b = _io.io_ReadByte();
    if (shift < 32) value += static_cast<uint32_t>(b & 0x7F) << shift;
    if (!(b & 0x80)) return value;
    if (shift < 32) shift += 7;
  }
}

char const* Kaltor::_read_asciiz() { return _io.io_ReadAsciiz(); }

// In the OFP dialect a name or string is an index, followed by the text only the first time that
// index appears in the file.
std::string_view Kaltor::_read_name() {
  if (_dialect != DIALECT_OFP) return _read_asciiz();
  uint32_t index = _read_count();
  std::string_view const* known = nullptr;
  if (index < _index.size()) {
    known = &_index[index];
  } else if (!_index_sparse.empty()) {
    auto it = _index_sparse.find(index);
    if (it != _index_sparse.end()) known = &it->second;
  }
  if (known) {
    _repeated += known->size();
    if (_repeated > _budget)
      _fail("strings repeated beyond %llu bytes: not a config\n", static_cast<unsigned long long>(_budget));
    return *known;
  }
  std::string_view s = _read_asciiz();
  if (index == _index.size())
    _index.push_back(s);
  else
    _index_sparse.emplace(index, s);
  return s;
}

// Marks the bytes an entry list has read. Every byte of an Arma file belongs to one list at most,
// so a body offset that points back into bytes already read (a loop, or two classes sharing one
// body) is caught here, and decoding stays linear in the size of the file.
void Kaltor::_claim(uint64_t from, uint64_t to, char const* name) {
  if (_owned.empty() || to <= from) return;
  uint8_t* p = _owned.data() + from;
  if (void const* hit = std::memchr(p, 1, to - from))
    _fail("class %s: data at offset %llu is read twice: class bodies overlap\n", name,
          static_cast<unsigned long long>(from + (static_cast<uint8_t const*>(hit) - p)));
  std::memset(p, 1, to - from);
}

void Kaltor::_check_budget() {
  if (_out.size() > _budget)
    _fail("text beyond %llu bytes: not a config\n", static_cast<unsigned long long>(_budget));
}

void Kaltor::_entry(int indent, int depth, rap_entry* tree) {
  int type = _io.io_ReadByte();
  switch (type) {
    case 0:
      _class_entry(indent, depth, tree);
      return;
    case 1: {
      int subtype = _io.io_ReadByte();
      if (subtype == 4 || subtype > 6) throw RAPERR_UNKNOWN_ENTRY_TYPE;
      std::string_view name = _read_name();
      if (name.empty()) throw RAPERR_MISSING_NAME;
      if (subtype == 3) throw RAPERR_EMBEDDED_ARRAY_NAMED;
      if (!tree) {
        _indent(indent);
        _put(name);
        _put(" = ");
        _value(subtype, nullptr, nullptr);
        _put(";\r\n");
      } else {
        _value(subtype, tree, name.data());
      }
      break;
    }
    case 2:
    case 5: {
      if (type == 5) _io.io_ReadUlong();
      std::string_view name = _read_name();
      if (name.empty()) throw RAPERR_TOKEN_NAME_EXPECTED;
      if (depth >= kMaxDepth) _fail("array %s nests deeper than %d levels\n", name.data(), kMaxDepth);
      rap_entry* node = nullptr;
      if (tree) {
        node = tree->rpe_add_array(name.data(), type == 5);
      } else {
        _indent(indent);
        _put(name);
        _put(type == 5 ? "[] +=" : "[] =");
      }
      _array_elements(indent, depth + 1, node, true);
      break;
    }
    case 3:
    case 4: {
      char const* name = _read_asciiz();
      if (tree) {
        type == 3 ? tree->rpe_add_extern(name) : tree->rpe_add_delete(name);
      } else {
        _indent(indent);
        _put(type == 3 ? "class " : "delete ");
        _put(name);
        _put(";\r\n");
      }
      break;
    }
    default:
      throw RAPERR_UNKNOWN_ENTRY_TYPE;
  }
  if (!tree) _check_budget();
}

void Kaltor::_class_entry(int indent, int depth, rap_entry* tree) {
  if (_dialect == DIALECT_OFP) {
    std::string_view name = _read_name();
    if (depth >= kMaxDepth) _fail("class %s nests deeper than %d levels\n", name.data(), kMaxDepth);
    _class_contents(name.data(), indent, depth + 1, tree, false);
    return;
  }
  char const* name = _read_asciiz();
  uint32_t offset = _io.io_ReadUlong();
  uint64_t back = _io.io_GetCurrentOffset();
  if (depth >= kMaxDepth) _fail("class %s nests deeper than %d levels\n", name, kMaxDepth);
  if (offset >= _io.io_GetFileSize())
    _fail("class %s: body offset %u lies outside the file (%llu bytes)\n", name, offset,
          static_cast<unsigned long long>(_io.io_GetFileSize()));
  _claim(_seg_start, back, name);
  if (_owned[offset])
    _fail("class %s: body offset %u points back into data already read\n", name, offset);
  _io.io_MoveTo(offset);
  _class_contents(name, indent, depth + 1, tree, false);
  _io.io_MoveTo(back);
  _seg_start = back;
}

void Kaltor::_class_contents(char const* name, int indent, int depth, rap_entry* tree, bool root_body) {
  uint64_t saved_seg = _seg_start;
  if (_dialect != DIALECT_OFP) {
    if (_owned.empty()) _owned.assign(_io.io_GetFileSize(), 0);
    _seg_start = _io.io_GetCurrentOffset();
  }
  char const* parent = _read_asciiz();
  uint32_t count = _read_count();
  rap_entry* node = nullptr;
  int inner = indent + 1;
  if (tree) {
    if (root_body) {
      node = tree;
      if (*parent) node->tkn_value() = parent;
    } else {
      node = tree->rpe_add_class(name, parent);
    }
  } else if (root_body) {
    inner = indent;
    if (*parent) {
      _put(": ");
      _put(parent);
      _put("\r\n");
    }
  } else {
    _indent(indent);
    _put("class ");
    _put(name);
    if (_dialect == DIALECT_OFP) {
      if (*parent) {
        _put(": ");
        _put(parent);
      }
      _put(count ? " {\r\n" : " {};\r\n");
    } else {
      if (*parent) {
        _put(": ");
        _put(parent);
      }
      if (count) {
        _put("\r\n");
        _indent(indent);
        _put("{\r\n");
      } else {
        _put("{};\r\n");
      }
    }
  }
  for (uint32_t i = 0; i < count; ++i) _entry(inner, depth, node);
  if (_dialect != DIALECT_OFP) _claim(_seg_start, _io.io_GetCurrentOffset(), name);
  _seg_start = saved_seg;
  if (!tree && !root_body && count) {
    _indent(indent);
    _put("};\r\n");
  }
}

void Kaltor::_array_elements(int indent, int depth, rap_entry* tree, bool top) {
  uint32_t count = _read_count();
  bool broken = !tree && top && _per_line && count >= 2;
  if (!tree) {
    if (broken) {
      _put("\r\n");
      _indent(indent);
      _put("{\r\n");
      _indent(indent + 1);
    } else {
      _put(top ? " {" : "{");
    }
  }
  for (uint32_t i = 0; i < count; ++i) {
    int subtype = _io.io_ReadByte();
    if (!tree && i) {
      _put(",");
      if (broken && i % static_cast<uint32_t>(_per_line) == 0) {
        _put("\r\n");
        _indent(indent + 1);
      }
    }
    if (subtype == 3) {
      if (depth >= kMaxDepth) _fail("arrays nest deeper than %d levels\n", kMaxDepth);
      _array_elements(indent, depth + 1, tree ? tree->rpe_add_array(nullptr, false) : nullptr, false);
    } else if (subtype == 4 || subtype > 6) {
      throw RAPERR_UNKNOWN_ARRAY_TYPE;
    } else {
      _value(subtype, tree, nullptr);
    }
  }
  if (!tree) {
    if (broken) {
      _put("\r\n");
      _indent(indent);
    }
    _put(top ? "};\r\n" : "}");
    _check_budget();
  }
}

void Kaltor::_value(int subtype, rap_entry* tree, char const* name) {
  switch (subtype) {
    case 0: {
      std::string_view s = _read_name();
      tree ? (void)tree->rpe_add_string(name, s.data()) : _put_string(s);
      return;
    }
    case 1: {
      float f = _io.io_ReadFloat();
      tree ? (void)tree->rpe_add_float(name, f) : _put_float(f);
      return;
    }
    case 2: {
      int32_t v = _io.io_ReadLong();
      if (tree) {
        tree->rpe_add_int(name, v);
      } else {
        char buf[16];
        int n = std::snprintf(buf, sizeof buf, "%d", v);
        _put(std::string_view(buf, static_cast<size_t>(n)));
      }
      return;
    }
    case 5: {
      double d = _io.io_ReadDouble();
      tree ? (void)tree->rpe_add_double(name, d) : _put_double(d);
      return;
    }
    case 6: {
      int64_t v = _io.io_ReadLongLong();
      if (tree) {
        tree->rpe_add_int64(name, v);
      } else {
        char buf[24];
        int n = std::snprintf(buf, sizeof buf, "%lld", static_cast<long long>(v));
        _put(std::string_view(buf, static_cast<size_t>(n)));
      }
      return;
    }
    default:
      throw RAPERR_UNKNOWN_ENTRY_TYPE;
  }
}

// The enum section: a count, then (name, value) pairs, and nothing behind it. A file may end
// before it.
void Kaltor::_enums(uint64_t offset) {
  uint64_t size = _io.io_GetFileSize();
  if (offset == size) return;
  _io.io_MoveTo(offset);
  uint32_t count = _io.io_ReadUlong();
  if (count > _io.io_RemainingBytes() / 5) throw GE_EOF;  // each pair takes 5 bytes at least
  std::vector<std::pair<char const*, int32_t>> pairs;
  pairs.reserve(count);
  for (uint32_t i = 0; i < count; ++i) {
    char const* name = _read_asciiz();
    int32_t value = _io.io_ReadLong();
    pairs.emplace_back(name, value);
  }
  if (count) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "//(%u Enums)\r\nenum {\r\n", count);
    _enum_text = buf;
    if (_dialect == DIALECT_OFP) {
      // OFP stores ordinals: every value 0..count-1 exactly once, written in ordinal order.
      std::vector<char const*> by_ordinal(count, nullptr);
      for (uint32_t i = 0; i < count; ++i) {
        uint32_t v = static_cast<uint32_t>(pairs[i].second);
        if (v >= count) bis_throw_message("enum %d  (%d) exceeds defcount\r\n", static_cast<int>(i), pairs[i].second);
        by_ordinal[v] = pairs[i].first;
      }
      for (uint32_t v = 0; v < count; ++v) {
        if (!by_ordinal[v]) throw "Not all enums set\r\n";
        _enum_text += '\t';
        _enum_text += by_ordinal[v];
        std::snprintf(buf, sizeof buf, ",\t//%u\r\n", v);
        _enum_text += buf;
      }
      _enum_text += "};\r\n";
    } else {
      for (uint32_t i = 0; i < count; ++i) {
        GenString name(pairs[i].first);
        name.str_trim();
        _enum_text += '\t';
        _enum_text += name.str_IsEmpty() ? "OrdinalEnum" : name.c_str();
        std::snprintf(buf, sizeof buf, i + 1 < count ? " = %d,\r\n" : " = %d\r\n", pairs[i].second);
        _enum_text += buf;
      }
      _enum_text += "};\r\n\r\n";
    }
  }
  if (_io.io_RemainingBytes()) throw GE_RESIDUAL_BYTES;
}

// ===== writing ==============================================================

void Kaltor::_indent(int indent) {
  if (indent < 0)
    _out += "//";
  else
    _out.append(static_cast<size_t>(indent), _tab);
}

void Kaltor::_put_string(std::string_view s) {
  _out += '"';
  size_t run = 0;
  for (size_t i = 0; i < s.size(); ++i) {
    char c = s[i];
    if (c != '"' && c != '\n') continue;
    _out.append(s.data() + run, i - run);
    // A quote is doubled; a newline closes the string, puts the newline token and opens another.
    _out += c == '"' ? "\"\"" : "\" \\n \"";
    run = i + 1;
  }
  _out.append(s.data() + run, s.size() - run);
  _out += '"';
}

void Kaltor::_put_float(float f) { _out += _num.str_FloatToStr(f, false); }

void Kaltor::_put_double(double d) { _out += _num.str_FloatToStr(d, false); }
