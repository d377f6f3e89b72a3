#include "anim/RTM_Skeletons.h"

#include <strings.h>

#include <string>

#include "anim/KinterErrors.h"
#include "config/RapTextReader.h"
#include "config/rap_entry.h"
#include "io/BisFileIO.h"

RTM_Skeleton::Bone const* RTM_Skeleton::sk_Find(char const* bone) const {
  for (Bone const& b : bones)
    if (strcasecmp(b.name.c_str(), bone) == 0) return &b;
  return nullptr;
}

namespace {
// model.cfg text into a config tree. Only the shape matters here (classes, arrays and the text of
// each value), so every value is kept as a string.
class CfgParser {
 public:
  CfgParser(RapTextReader& rd, BisFileIO& io) : _rd(rd), _io(io) {}

  // 0, or RTMERR_MODEL_CFG with the reason reported.
  int parse(rap_entry* root) {
    int r = body(root, 0, false);
    return r;
  }

 private:
  // Nesting deeper than this is no model.cfg; a crafted one must not exhaust the stack.
  static constexpr int kMaxDepth = 64;
  RapTextReader& _rd;
  BisFileIO& _io;
  bool _eof = false;

  int next() {
    int r = _rd.rt_NextToken();
    _eof = r == RAP_STATUS + RAPMSG_EOF;
    if (r && !_eof) {
      _rd.rt_Error(r);
      throw RTMERR_MODEL_CFG;
    }
    return r;
  }
  bool is(char c) const {
    return !_eof && _rd.rt_TokenKind() == RapTextReader::TK_SYMBOL && _rd.rt_Token()[0] == c &&
           _rd.rt_TokenLength() == 1;
  }
  [[noreturn]] void fail(char const* what) {
    _io.io_callbackerr("In File %s: circa Line %d %s\r\n", _rd.rt_CurrentFile(), _rd.rt_CurrentLine(), what);
    throw RTMERR_MODEL_CFG;
  }
  std::string word(char const* what) {
    next();
    if (_eof || _rd.rt_TokenKind() != RapTextReader::TK_WORD) fail(what);
    return _rd.rt_Token();
  }
  // An optional ';' after a closing brace or a value.
  void semicolon() {
    next();
    if (!_eof && !is(';')) _rd.rt_UngetToken();
  }

  int body(rap_entry* cls, int depth, bool braced) {
    if (depth > kMaxDepth) fail("classes nested too deeply");
    for (;;) {
      next();
      if (_eof) {
        if (braced) fail("missing } at the end of the file");
        return 0;
      }
      if (is('}')) {
        if (!braced) fail("unexpected }");
        semicolon();
        return 0;
      }
      if (is(';')) continue;
      if (_rd.rt_TokenKind() != RapTextReader::TK_WORD) fail("a class or a value was expected");
      std::string name = _rd.rt_Token();
      if (strcasecmp(name.c_str(), "class") == 0) {
        class_entry(cls, depth);
      } else if (strcasecmp(name.c_str(), "delete") == 0) {
        cls->rpe_add_delete(word("a class name was expected after delete").c_str());
        semicolon();
      } else if (strcasecmp(name.c_str(), "enum") == 0) {
        skip_enum();
      } else {
        value_entry(cls, name, depth);
      }
    }
  }

  void class_entry(rap_entry* cls, int depth) {
    std::string name = word("a class name was expected");
    std::string base;
    next();
    if (is(':')) {
      base = word("a base class name was expected");
      next();
    }
    if (is('{')) {
      body(cls->rpe_add_class(name.c_str(), base.c_str()), depth + 1, true);
    } else if (is(';')) {
      if (base.empty())
        cls->rpe_add_extern(name.c_str());
      else
        cls->rpe_add_class(name.c_str(), base.c_str());
    } else {
      fail("{ or ; was expected after a class name");
    }
  }

  void skip_enum() {
    int level = 0;
    for (;;) {
      next();
      if (_eof) fail("missing } at the end of an enum");
      if (is('{')) ++level;
      if (is('}') && --level <= 0) break;
    }
    semicolon();
  }

  void value_entry(rap_entry* cls, std::string const& name, int depth) {
    next();
    if (is('[')) {
      next();
      if (!is(']')) fail("] was expected");
      next();
      bool append = false;
      if (is('+')) {
        append = true;
        next();
      }
      if (!is('=')) fail("= was expected after an array name");
      next();
      if (!is('{')) fail("{ was expected to open an array");
      array(cls->rpe_add_array(name.c_str(), append), depth + 1);
      semicolon();
      return;
    }
    if (!is('=')) fail("= was expected after a name");
    std::string v;
    char stop = text_until(v, ';', '}');
    if (stop == '}') _rd.rt_UngetToken();  // a last value without its ';'
    cls->rpe_add_string(name.c_str(), v.c_str());
  }

  // After '{': elements up to the matching '}'.
  void array(rap_entry* arr, int depth) {
    if (depth > kMaxDepth) fail("arrays nested too deeply");
    for (;;) {
      next();
      if (_eof) fail("missing } at the end of an array");
      if (is('}')) return;
      if (is(',')) continue;  // an empty element or a trailing comma
      if (is('{')) {
        array(arr->rpe_add_array(nullptr, false), depth + 1);
        continue;
      }
      _rd.rt_UngetToken();
      std::string v;
      char stop = text_until(v, ',', '}');
      arr->rpe_add_string(nullptr, v.c_str());
      if (stop == '}') return;
    }
  }

  // Joins tokens into one value text up to `a` or `b` (returned; the stop token is consumed).
  char text_until(std::string& v, char a, char b) {
    for (bool first = true;; first = false) {
      next();
      if (_eof) fail("unexpected end of the file in a value");
      if (is(a)) return a;
      if (is(b)) return b;
      if (!first && _rd.rt_SpaceBefore()) v += ' ';
      v.append(_rd.rt_Token(), _rd.rt_TokenLength());
    }
  }
};

// The (bone, parent) pairs of a skeleton class: its own skeletonBones or the nearest inherited
// one, followed by those of the skeleton it names in skeletonInherit (the engine joins the two).
void collect_bones(rap_entry* skeletons, rap_entry* cls, RTM_Skeleton& out, int depth) {
  if (!cls || depth > 32) return;  // a loop of skeletonInherit names ends here
  rap_entry* holder = cls;
  rap_entry* arr = holder->rpe_get_array("skeletonBones");
  for (int up = 0; !arr && up < 32; ++up) {
    holder = holder->rpe_find_inherited_class();
    if (!holder) break;
    arr = holder->rpe_get_array("skeletonBones");
  }
  if (arr) {
    std::vector<std::string> items;
    for (rap_entry* e = arr->rpe_get_first_child(); e; e = e->rpe_get_next_sibling())
      if (e->rpe_GetType() != rap_entry::RPE_ARRAY) items.emplace_back(e->value());
    for (size_t i = 0; i + 1 < items.size(); i += 2) out.bones.push_back({items[i], items[i + 1]});
  }
  rap_entry* inherit = cls->rpe_get_entry("skeletonInherit", rap_entry::RPE_ANY);
  if (inherit && *inherit->value() && strcasecmp(inherit->value(), cls->name()) != 0)
    collect_bones(skeletons, skeletons->rpe_get_class(inherit->value()), out, depth + 1);
}
}  // namespace

int RTM_Skeletons::sk_ReadConfig(BisFileIO& io, char const* file) {
  _list.clear();
  RapTextReader rd(io);
  int r = rd.rt_OpenFile(file);
  if (r) {
    rd.rt_Error(r);
    return RTMERR_MODEL_CFG;
  }
  rap_entry root;
  try {
    CfgParser(rd, io).parse(&root);
  } catch (KinterErrors e) {
    return e;
  }
  return sk_FromTree(root);
}

int RTM_Skeletons::sk_FromTree(rap_entry const& root) {
  _list.clear();
  rap_entry* skeletons = root.rpe_get_class("CfgSkeletons");
  if (!skeletons) return RTMERR_SKELETON_CONFIG;
  for (rap_entry* e = skeletons->rpe_get_first_child(); e; e = e->rpe_get_next_sibling()) {
    if (e->rpe_GetType() != rap_entry::RPE_CLASS) continue;
    RTM_Skeleton s;
    s.name = e->name();
    collect_bones(skeletons, e, s, 0);
    _list.push_back(std::move(s));
  }
  return 0;
}
