#include "config/rap_entry.h"

#include <strings.h>


#include <algorithm>
#include <charconv>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

// Shared by every node of one tree, owned by the root. A big config has millions of nodes, each
// with a name and a value: they are carved from blocks that live as long as the tree instead of
// taking three heap allocations each, and go all at once with it.
struct rap_entry::Root {
  bool externs = false;
  int resolving_depth = 0;  // nested inheritance resolutions in progress

  void* take(size_t size, size_t align) {
    size_t pad = (align - reinterpret_cast<uintptr_t>(_free) % align) % align;
    if (pad + size > _left) {
      size_t block = std::max(size + align, _next_block);
      _blocks.push_back(std::make_unique<char[]>(block));
      _free = _blocks.back().get();
      _left = block;
      _next_block = std::min<size_t>(_next_block * 2, size_t{1} << 20);
      pad = (align - reinterpret_cast<uintptr_t>(_free) % align) % align;
    }
    char* p = _free + pad;
    _free = p + size;
    _left -= pad + size;
    return p;
  }
  // A copy of the text that lives as long as the tree; null for an empty text.
  char* text(char const* s, size_t n) {
    if (!n) return nullptr;
    char* p = static_cast<char*>(take(n + 1, 1));
    std::memcpy(p, s, n);
    p[n] = 0;
    return p;
  }
  char* text(char const* s) { return s && *s ? text(s, std::strlen(s)) : nullptr; }

 private:
  std::vector<std::unique_ptr<char[]>> _blocks;
  char* _free = nullptr;
  size_t _left = 0;
  size_t _next_block = 16 << 10;
};

// Child classes by lower-cased name (names compare without case), first one of a name wins: keeps
// merging the classes of a big mission or config linear.
struct rap_entry::ClassIndex {
  std::unordered_map<std::string, rap_entry*> map;
};

namespace {
constexpr uint32_t kIndexFrom = 32;

// Names compare as GenString compares them: without case, and an empty name equals only an empty one.
bool same_name(char const* a, char const* b) {
  bool a_empty = !a || !*a, b_empty = !b || !*b;
  if (a_empty || b_empty) return a_empty && b_empty;
  return strcasecmp(a, b) == 0;
}

std::string lowered(char const* name) {
  std::string k(name ? name : "");
  for (char& c : k)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  return k;
}

// Inheritance chains are walked at most this far, and resolutions nest at most this deep: a chain
// of classes that inherit from each other in a circle must end the search, not the program.
constexpr int kMaxHops = 1024;
constexpr int kMaxResolving = 256;
}  // namespace

rap_entry::rap_entry() : TokenPair(nullptr, nullptr), _root(new Root) {}

rap_entry::rap_entry(rap_entry* enclosing, int type, char const* name)
    : TokenPair(nullptr, nullptr), _enclosing(enclosing), _root(enclosing->_root), _type(type) {
  if (char* copy = _root->text(name)) tkn_name().str_SetMem(copy);
}

rap_entry::~rap_entry() {
  rpe_clear();
  if (!_enclosing) delete _root;
}

void rap_entry::rpe_clear() {
  delete _class_index;
  _class_index = nullptr;
  _class_count = 0;
  _child_count = 0;
  // Children are freed without recursion: a node's children are spliced into the work list before
  // the node goes, so neither a long sibling list nor a deep tree can exhaust the stack.
  rap_entry* work = _child;
  _child = _last_child = nullptr;
  while (work) {
    rap_entry* n = work;
    work = n->_next;
    if (n->_child) {
      n->_last_child->_next = work;
      work = n->_child;
      n->_child = n->_last_child = nullptr;
    }
    n->~rap_entry();  // its memory belongs to the tree's blocks
  }
}

bool rap_entry::rpe_has_externs() const { return _root && _root->externs; }

float rap_entry::rpe_get_float() const {
  switch (_type) {
    case RPE_FLOAT: return _bin.f;
    case RPE_DOUBLE: return static_cast<float>(_bin.d);
    case RPE_INT:
    case RPE_INT64: return static_cast<float>(_bin.i);
    default: return 0;
  }
}

double rap_entry::rpe_get_double() const {
  switch (_type) {
    case RPE_FLOAT: return _bin.f;
    case RPE_DOUBLE: return _bin.d;
    case RPE_INT:
    case RPE_INT64: return static_cast<double>(_bin.i);
    default: return 0;
  }
}

int64_t rap_entry::rpe_get_int() const {
  switch (_type) {
    case RPE_INT:
    case RPE_INT64: return _bin.i;
    case RPE_FLOAT: return static_cast<int64_t>(_bin.f);
    case RPE_DOUBLE: return static_cast<int64_t>(_bin.d);
    default: return 0;
  }
}

rap_entry* rap_entry::rpe_get_next() const {
  for (rap_entry* n = _next; n; n = n->_next)
    if (n->_type == _type) return n;
  return nullptr;
}

rap_entry* rap_entry::_child_of(char const* name, int type) const {
  if (_class_index && type == RPE_CLASS && name) {
    auto it = _class_index->map.find(lowered(name));
    return it == _class_index->map.end() ? nullptr : it->second;
  }
  for (rap_entry* c = _child; c; c = c->_next) {
    if (type != RPE_ANY && c->_type != type) continue;
    if (!name || same_name(c->name(), name)) return c;
  }
  return nullptr;
}

rap_entry* rap_entry::rpe_get_class(char const* name) const {
  return _child_of(name && *name ? name : nullptr, RPE_CLASS);
}

rap_entry* rap_entry::rpe_get_array(char const* name) const {
  rap_entry* a = _child_of(name, RPE_ARRAY);
  return a ? a : _child_of(name, RPE_APPEND);
}

rap_entry* rap_entry::rpe_get_entry(char const* name, int type) const { return _child_of(name, type); }

rap_entry* rap_entry::rpe_get_array_contents(char const* name) const {
  rap_entry* a = rpe_get_array(name);
  return a ? a->_child : nullptr;
}

rap_entry* rap_entry::rpe_find_inherited_class() {
  if (_inherited_done) return _inherited;
  if (_type != RPE_CLASS || !*value()) {
    _inherited_done = true;
    return nullptr;
  }
  // A resolution that comes back to this class while it is being resolved is a circle.
  if (_resolving || _root->resolving_depth >= kMaxResolving) return nullptr;
  _resolving = true;
  ++_root->resolving_depth;
  // "class X: X" extends the X inherited by the enclosing class, never itself.
  int flag = same_name(value(), name()) ? 0 : 1;
  rap_entry* found = _find_scoped(value(), RPE_CLASS, flag);
  --_root->resolving_depth;
  _resolving = false;
  _inherited = found == this ? nullptr : found;
  _inherited_done = true;
  return _inherited;
}

rap_entry* rap_entry::_find_scoped(char const* name, int type, int flag) {
  if (!name || !*name) return nullptr;
  bool first = true;
  for (rap_entry* level = _enclosing; level; level = level->_enclosing, first = false) {
    if (!(first && flag == 0)) {
      if (rap_entry* c = level->_child_of(name, type)) return c;
    }
    rap_entry* base = level->rpe_find_inherited_class();
    for (int hops = 0; base && hops < kMaxHops; ++hops) {
      if (rap_entry* c = base->_child_of(name, type)) return c;
      base = base->rpe_find_inherited_class();
    }
  }
  return nullptr;
}

rap_entry* rap_entry::rpe_find_nearest_class(char const* name, int flag) { return _find_scoped(name, RPE_CLASS, flag); }

rap_entry* rap_entry::rpe_find_nearest_extern(char const* name) { return _find_scoped(name, RPE_EXTERN, 1); }

char const* rap_entry::rpe_whoami(GenString& path) const {
  std::vector<rap_entry const*> chain;
  for (rap_entry const* n = this; n && n->_enclosing; n = n->_enclosing) chain.push_back(n);
  std::string p;
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
    if (!p.empty()) p += '.';
    p += (*it)->name();
  }
  path.str_MemDup(p.data(), p.size());
  return path.c_str();
}

rap_entry* rap_entry::_append(int type, char const* name) {
  auto* n = new (_root->take(sizeof(rap_entry), alignof(rap_entry))) rap_entry(this, type, name);
  if (_last_child)
    _last_child->_next = n;
  else
    _child = n;
  _last_child = n;
  ++_child_count;
  return n;
}

rap_entry* rap_entry::rpe_add_class(char const* name, char const* parent) {
  if (rap_entry* existing = _child_of(name ? name : "", RPE_CLASS)) return existing;
  rap_entry* n = _append(RPE_CLASS, name);
  n->_set_value(parent);
  ++_class_count;
  if (_class_index) {
    _class_index->map.emplace(lowered(name), n);
  } else if (_class_count >= kIndexFrom) {
    _class_index = new ClassIndex;
    for (rap_entry* c = _child; c; c = c->_next)
      if (c->_type == RPE_CLASS) _class_index->map.emplace(lowered(c->name()), c);
  }
  return n;
}

rap_entry* rap_entry::rpe_add_extern(char const* name) {
  _root->externs = true;
  return _append(RPE_EXTERN, name);
}

rap_entry* rap_entry::rpe_add_delete(char const* name) { return _append(RPE_DELETE, name); }

rap_entry* rap_entry::rpe_add_string(char const* name, char const* value) {
  rap_entry* n = _append(RPE_STRING, name);
  n->_set_value(value);
  return n;
}

rap_entry* rap_entry::rpe_add_int(char const* name, int32_t value) {
  rap_entry* n = _append(RPE_INT, name);
  n->_bin.i = value;
  n->_set_number(value);
  return n;
}

rap_entry* rap_entry::rpe_add_int64(char const* name, int64_t value) {
  rap_entry* n = _append(RPE_INT64, name);
  n->_bin.i = value;
  n->_set_number(value);
  return n;
}

void rap_entry::_set_value(char const* text) {
  if (char* copy = _root->text(text)) tkn_value().str_SetMem(copy);
}

void rap_entry::_set_number(int64_t value) {
  char digits[24];
  auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  tkn_value().str_SetMem(_root->text(digits, static_cast<size_t>(end - digits)));
}

namespace {
// The value's text is the shortest one that reads back to the same bits, as the decoder writes it.
template <class Real>
char const* real_text(Real value) {
  thread_local GenString text;
  return text.str_FloatToStr(value, false);
}
}  // namespace

rap_entry* rap_entry::rpe_add_float(char const* name, float value) {
  rap_entry* n = _append(RPE_FLOAT, name);
  n->_bin.f = value;
  n->_set_value(real_text(value));
  return n;
}

rap_entry* rap_entry::rpe_add_double(char const* name, double value) {
  rap_entry* n = _append(RPE_DOUBLE, name);
  n->_bin.d = value;
  n->_set_value(real_text(value));
  return n;
}

rap_entry* rap_entry::rpe_add_array(char const* name, bool append) {
  return _append(append ? RPE_APPEND : RPE_ARRAY, name);
}
