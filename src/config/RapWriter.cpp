#include "config/RapWriter.h"

#include <cstring>

#include "config/rap_entry.h"
#include "core/BisMessage.h"
#include "core/Generic_Errors.h"
#include "text/TokenPairs.h"

namespace {
// Offsets are 32-bit words: a file that grows past them cannot be written.
constexpr size_t kMaxFile = 0xFFFFFFFFu;

enum Subtype : int { SUB_STRING = 0, SUB_FLOAT = 1, SUB_INT = 2, SUB_ARRAY = 3, SUB_DOUBLE = 5, SUB_INT64 = 6 };

int subtype_of(int type) {
  switch (type) {
    case rap_entry::RPE_STRING: return SUB_STRING;
    case rap_entry::RPE_FLOAT: return SUB_FLOAT;
    case rap_entry::RPE_INT: return SUB_INT;
    case rap_entry::RPE_DOUBLE: return SUB_DOUBLE;
    case rap_entry::RPE_INT64: return SUB_INT64;
    case rap_entry::RPE_ARRAY: return SUB_ARRAY;
    default: throw "unknown tokentype to calc\n";
  }
}
}  // namespace

void RapWriter::_word(uint32_t v) {
  _out->resize(_out->size() + 4);
  _patch(_out->size() - 4, v);
}

void RapWriter::_patch(size_t at, size_t value) {
  if (value > kMaxFile) throw GE_CANNOT_WRITE;
  uint8_t* p = _out->data() + at;
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(value >> (8 * i));
}

// Counts take 7 bits a byte, low bits first; a set top bit says another byte follows.
void RapWriter::_count(uint32_t n) {
  for (; n >= 0x80; n >>= 7) _byte(static_cast<int>((n & 0x7F) | 0x80));
  _byte(static_cast<int>(n));
}

void RapWriter::_asciiz(char const* s) {
  size_t n = std::strlen(s);
  _out->insert(_out->end(), s, s + n + 1);
}

// The OFP dialect writes each distinct text once: later uses repeat only its index. The lookup is
// case-sensitive, since the text itself is what the index stands for.
void RapWriter::_string(char const* s) {
  if (_dialect != RAPW_OFP) return _asciiz(s);
  auto [it, fresh] = _index.try_emplace(std::string_view(s), static_cast<uint32_t>(_index.size()));
  _count(it->second);
  if (fresh) _asciiz(s);
}

uint32_t RapWriter::_children(rap_entry const& e) {
  uint64_t n = e.rpe_count_children();
  if (n > 0xFFFFFFFFu) throw GE_CANNOT_WRITE;
  return static_cast<uint32_t>(n);
}

void RapWriter::rpw_write(rap_entry const& root, TokenPairs const* enums, std::vector<uint8_t>& out) {
  _out = &out;
  _index.clear();
  static uint8_t const head[] = {0, 'r', 'a', 'P'};
  out.insert(out.end(), head, head + 4);
  if (_dialect == RAPW_OFP) {
    // The root is a class entry like any other; its type byte follows the three head bytes.
    static uint8_t const ofp[] = {4, 0, 0};
    out.insert(out.end(), ofp, ofp + 3);
    _ofp_class(root, 0);
  } else {
    _word(0);
    _word(8);
    size_t enum_at = out.size();
    _word(0);
    _body(root, 0);
    _patch(enum_at, out.size());
  }
  _enums(enums);
  if (out.size() > kMaxFile) throw GE_CANNOT_WRITE;
}

void RapWriter::_ofp_class(rap_entry const& cls, int depth) {
  if (depth > kMaxDepth) bis_throw_message("class %s nests deeper than %d levels\n", cls.name(), kMaxDepth);
  _byte(rap_entry::RPE_CLASS);
  _string(cls.name());
  _asciiz(cls.value());
  _count(_children(cls));
  for (rap_entry const* c = cls.rpe_get_first_child(); c; c = c->rpe_get_next_sibling()) _entry(*c, depth + 1, nullptr);
}

void RapWriter::_body(rap_entry const& cls, int depth) {
  if (depth > kMaxDepth) bis_throw_message("class %s nests deeper than %d levels\n", cls.name(), kMaxDepth);
  _asciiz(cls.value());
  _count(_children(cls));
  std::vector<std::pair<size_t, rap_entry const*>> bodies;
  for (rap_entry const* c = cls.rpe_get_first_child(); c; c = c->rpe_get_next_sibling()) _entry(*c, depth, &bodies);
  size_t end_at = _out->size();
  _word(0);
  for (auto const& [at, child] : bodies) {
    _patch(at, _out->size());
    _body(*child, depth + 1);
  }
  _patch(end_at, _out->size());
}

void RapWriter::_entry(rap_entry const& e, int depth, std::vector<std::pair<size_t, rap_entry const*>>* bodies) {
  int type = e.rpe_GetType();
  switch (type) {
    case rap_entry::RPE_CLASS:
      if (_dialect == RAPW_OFP) return _ofp_class(e, depth);
      _byte(type);
      _asciiz(e.name());
      bodies->emplace_back(_out->size(), &e);
      _word(0);
      return;
    case rap_entry::RPE_EXTERN:
    case rap_entry::RPE_DELETE:
      _byte(type);
      _asciiz(e.name());
      return;
    case rap_entry::RPE_ARRAY:
    case rap_entry::RPE_APPEND:
      _byte(type);
      if (type == rap_entry::RPE_APPEND) _word(1);  // the flag word of an append
      _string(e.name());
      _elements(e, depth + 1);
      return;
    default:
      _byte(1);
      break;
  }
  int sub = subtype_of(type);
  if (sub == SUB_ARRAY) throw "unknown tokentype to calc\n";
  _byte(sub);
  _string(e.name());
  _scalar(e, sub);
}

// The payload of a string or number, after its subtype byte.
void RapWriter::_scalar(rap_entry const& e, int sub) {
  uint64_t u = 0;
  switch (sub) {
    case SUB_STRING: return _string(e.value());
    case SUB_INT: return _word(static_cast<uint32_t>(e.rpe_get_int()));
    case SUB_FLOAT: {
      float f = e.rpe_get_float();
      uint32_t w;
      std::memcpy(&w, &f, 4);
      return _word(w);
    }
    case SUB_DOUBLE: {
      double d = e.rpe_get_double();
      std::memcpy(&u, &d, 8);
      break;
    }
    default: u = static_cast<uint64_t>(e.rpe_get_int()); break;
  }
  _word(static_cast<uint32_t>(u));
  _word(static_cast<uint32_t>(u >> 32));
}

void RapWriter::_elements(rap_entry const& array, int depth) {
  if (depth > kMaxDepth) bis_throw_message("arrays nest deeper than %d levels\n", kMaxDepth);
  _count(_children(array));
  for (rap_entry const* c = array.rpe_get_first_child(); c; c = c->rpe_get_next_sibling()) {
    int sub = subtype_of(c->rpe_GetType());
    _byte(sub);
    if (sub == SUB_ARRAY)
      _elements(*c, depth + 1);
    else
      _scalar(*c, sub);
  }
}

void RapWriter::_enums(TokenPairs const* enums) {
  uint64_t n = enums ? enums->GetCount() : 0;
  if (n > 0xFFFFFFFFu) throw GE_CANNOT_WRITE;
  _word(static_cast<uint32_t>(n));
  std::vector<bool> seen(_dialect == RAPW_OFP ? n : 0);
  for (TokenPair* p = enums ? enums->GetFirstPair() : nullptr; p; p = p->GetNext()) {
    int value = p->tkn_value().str_atoi();
    // OFP reads enumerators as ordinals: each of 0 .. count-1 exactly once.
    if (_dialect == RAPW_OFP) {
      if (value < 0 || static_cast<uint64_t>(value) >= n || seen[static_cast<size_t>(value)])
        bis_throw_message("enum %s = %d: the OFP dialect holds each ordinal 0 to %llu once\n", p->name(), value,
                          static_cast<unsigned long long>(n - 1));
      seen[static_cast<size_t>(value)] = true;
    }
    _asciiz(p->tkn_name().Compare("OrdinalEnum") ? "" : p->name());
    _word(static_cast<uint32_t>(value));
  }
}
