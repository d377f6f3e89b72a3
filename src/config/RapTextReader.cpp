#include "config/RapTextReader.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "config/RapTextReaderImpl.h"
#include "io/BisFileIO.h"

namespace {
constexpr int kEof = RAP_STATUS + RAPMSG_EOF;
constexpr int kMaxArgNesting = 64;
constexpr size_t kExpansionOverhead = 64;

bool blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v' || c == 0; }
bool digit(char c) { return c >= '0' && c <= '9'; }

// A sign right behind a name, a number or a closing bracket is an operator (1+2, db-10), not the
// start of a signed number.
bool glued_to_operand(char const* begin, char const* at) {
  if (at == begin) return false;
  unsigned char p = static_cast<unsigned char>(at[-1]);
  return rap_is_name_char(p) || p == '.' || p == ')' || p == ']';
}

bool strieq(std::string const& a, char const* b) { return strcasecmp(a.c_str(), b) == 0; }
}  // namespace

// ===== reader ================================================================

RapTextReader::RapTextReader(BisFileIO& io)
    : _io(io), _defs(std::make_unique<RapDefList>()), _m(std::make_unique<Impl>(*this)) {}

RapTextReader::~RapTextReader() = default;

void RapTextReader::rt_Reset() {
  _m->reset();
  _defs->def_Clear();
  _tok.clear();
  _kind = TK_NONE;
  _not_binarisable = false;
  _included.clear();
  _missing.clear();
}

void RapTextReader::rt_AddIncludeFolder(char const* folder) {
  if (!folder || !*folder) return;
  std::string f(folder);
  for (char& c : f)
    if (c == '\\') c = '/';
  while (f.size() > 1 && f.back() == '/') f.pop_back();
  _m->include_folders.push_back(std::move(f));
}

void RapTextReader::rt_ClearIncludeFolders() { _m->include_folders.clear(); }

int RapTextReader::rt_OpenFile(char const* file) {
  rt_Reset();
  if (!file || !*file) return RAP_STATUS + RAPMSG_CANNOT_INCLUDE;
  std::string name(file);
  for (char& c : name)
    if (c == '\\') c = '/';
  return _m->push_file(name, name);
}

int RapTextReader::rt_OpenText(char const* text, size_t size, char const* name) {
  rt_Reset();
  // Editors put a UTF-8 byte-order mark at the top of a file; the game reads past it (an
  // included file loses its mark where files are read).
  if (size >= 3 && std::memcmp(text, "\xEF\xBB\xBF", 3) == 0) {
    text += 3;
    size -= 3;
  }
  Source s;
  s.buf = std::make_unique<char[]>(size + 1);
  if (size) std::memcpy(s.buf.get(), text, size);
  s.buf[size] = 0;
  s.cur = s.line_begin = s.buf.get();
  s.end = s.cur + size;
  s.file = true;
  s.name = name && *name ? name : "(text)";
  for (char& c : s.name)
    if (c == '\\') c = '/';
  size_t slash = s.name.rfind('/');
  if (slash != std::string::npos) s.folder = s.name.substr(0, slash + 1);
  s.logical = _m->logical_name(s.name, s.name);
  _m->input_bytes += size;
  _included.push_back(s.name);
  _m->stack.push_back(std::move(s));
  return 0;
}

int RapTextReader::rt_NextToken(int mode) {
  Impl& m = *_m;
  int r;
  if (!m.pending.empty()) {
    m.cur = std::move(m.pending.back());
    m.pending.pop_back();
    r = 0;
  } else if (_value_checks) {
    r = m.checked(m.cur, mode);
  } else {
    r = m.next(m.cur, mode, m.stack, {});
  }
  if (r) {
    _tok.clear();
    _kind = TK_NONE;
    return r;
  }
  _tok = m.cur.text;
  _kind = m.cur.kind;
  return 0;
}

// The current token's own: at the end of the text, the blanks the text ends with.
std::string const& RapTextReader::rt_Gap() const { return _m->cur.gap; }

bool RapTextReader::rt_SpaceBefore() const { return !_m->cur.gap.empty(); }

void RapTextReader::rt_UngetToken() {
  if (_kind == TK_NONE) return;
  _m->pending.push_back({_tok, _kind, _m->cur.gap});
}

char const* RapTextReader::rt_CurrentFile() const {
  Source const* f = _m->top_file();
  if (f) return f->name.c_str();
  return _included.empty() ? "" : _included.front().c_str();
}

int RapTextReader::rt_CurrentLine() const {
  Source const* f = _m->top_file();
  return f ? f->line : 0;
}

GenString RapTextReader::rt_Decorate(int status) const {
  GenString s;
  char const* text = rap_message_text(status);
  if (rap_message_is_bare(status))
    s = text;
  else if (rt_CurrentLine() > 0)
    s.Format("In File %s: circa Line %d %s", rt_CurrentFile(), rt_CurrentLine(), text);
  else
    s.Format("%s: %s", rt_CurrentFile(), text);
  return s;
}

int RapTextReader::rt_Error(int status) {
  _io.io_callbackerr("%s\r\n", rt_Decorate(status).c_str());
  return status;
}

int RapTextReader::rt_Warning(int number) {
  number &= ~RAP_STATUS;
  if (_io.io_get_warnings_are_errors()) return RAP_STATUS + number;
  _io.io_callback("warning :%s\r\n", rt_Decorate(number).c_str());
  return 0;
}

int RapTextReader::rt_Define(char const* text) {
  std::string previous;
  std::string_view t = text ? text : "";
  int r = _defs->def_Define(t, &previous);
  if (r == RAPMSG_DEFINE_ALTERED) {
    size_t n = 0;
    while (n < t.size() && (t[n] == ' ' || t[n] == '\t')) ++n;
    size_t e = n;
    while (e < t.size() && rap_is_name_char(static_cast<unsigned char>(t[e]))) ++e;
    std::string name(t.substr(n, e - n));
    RapDefine const* now = _defs->def_Find(name);
    _io.io_callbackerr("\r\n//#define %s\r\n\r\n", name.c_str());
    _io.io_callbackerr("//is: %s\r\n\r\n", now ? now->body.c_str() : "");
    _io.io_callbackerr("//was: %s\r\n\r\n", previous.c_str());
  }
  return r ? RAP_STATUS + r : 0;
}

// ===== state ===================================================================

void RapTextReader::Impl::reset() {
  stack.clear();
  eval.ev_Reset();
  if_depth = skip_depth = nest = 0;
  input_bytes = expanded_bytes = 0;
  counter = 0;
  clock_set = false;
  dice.reset();
  pending.clear();
  ahead.clear();
  cur = Tok{};
  last_sym = before_last = third_last = 0;
  array_depth = checked_name = 0;
  expect_value = last_was_word = false;
  last_word.clear();
}

RapTextReader::Source* RapTextReader::Impl::top_file() {
  for (auto it = stack.rbegin(); it != stack.rend(); ++it)
    if (it->file) return &*it;
  return nullptr;
}

RapTextReader::Source const* RapTextReader::Impl::top_file() const {
  for (auto it = stack.rbegin(); it != stack.rend(); ++it)
    if (it->file) return &*it;
  return nullptr;
}

bool RapTextReader::Impl::hidden(RapDefine const* d, Stack const& st, Hidden const& base) const {
  for (auto it = st.rbegin(); it != st.rend() && !it->file; ++it)
    if (it->macro == d) return true;
  for (RapDefine const* h : base)
    if (h == d) return true;
  return false;
}

// ===== lexing ====================================================================

int RapTextReader::Impl::skip_block_comment(Source& s) {
  // s.cur is just behind the opening "/*".
  bool warned = false;
  while (s.cur < s.end) {
    char c = *s.cur;
    if (c == '*' && s.cur + 1 < s.end && s.cur[1] == '/') {
      s.cur += 2;
      return 0;
    }
    if (c == '/' && s.cur + 1 < s.end && s.cur[1] == '*' && !warned) {
      warned = true;  // commented-out code that held a comment: the game reads on, and so do we
      if (int w = r.rt_Warning(RAPMSG_RECURSIVE_COMMENT)) return w;
    }
    if (c == '\n' && s.file) {
      ++s.line;
      s.line_begin = s.cur + 1;
    }
    ++s.cur;
  }
  return kEof;
}

int RapTextReader::Impl::lex_string(Tok& t, Source& s) {
  // s.cur is on the opening quote. "" inside is one quote; the decoder's "a" \n "b" is one string
  // holding a line break.
  t.kind = TK_STRING;
  t.text.clear();
  for (;;) {
    char const* p = ++s.cur;
    for (;;) {
      char const* q = static_cast<char const*>(std::memchr(p, '"', static_cast<size_t>(s.end - p)));
      if (!q) {
        s.cur = s.end;
        return RAP_STATUS + RAPMSG_MISMATCHED_QUOTES;
      }
      if (s.file)
        for (char const* n = p; (n = static_cast<char const*>(std::memchr(n, '\n', static_cast<size_t>(q - n))));
             ++n) {
          ++s.line;
          s.line_begin = n + 1;
        }
      t.text.append(p, static_cast<size_t>(q - p));
      if (q + 1 < s.end && q[1] == '"') {
        t.text.push_back('"');
        p = q + 2;
        continue;
      }
      s.cur = q + 1;
      break;
    }
    char const* a = s.cur;
    while (a < s.end && (*a == ' ' || *a == '\t')) ++a;
    if (a + 1 < s.end && a[0] == '\\' && a[1] == 'n') {
      char const* b = a + 2;
      while (b < s.end && (*b == ' ' || *b == '\t')) ++b;
      if (b < s.end && *b == '"') {
        t.text.push_back('\n');
        s.cur = b;
        continue;
      }
    }
    return 0;
  }
}

int RapTextReader::Impl::raw(Tok& t, Stack& st, int mode) {
  // The blanks passed on the way are added to t.gap, as written; the caller empties it. Comments
  // and line-joining backslashes leave nothing there, and a block that #if leaves out only its
  // line ends.
  bool const main = &st == &stack;
  for (;;) {
    if (st.empty()) return kEof;
    Source& s = st.back();
    if (s.cur >= s.end) {
      if (!s.file) {
        st.pop_back();
        continue;
      }
      if (main && st.size() > 1) {
        pop_include();
        continue;
      }
      return kEof;
    }
    char c = *s.cur;
    if (c == '\n' || blank(c)) {
      // A run of blanks and line ends at once: indentation is most of a config's white space.
      char const* b = s.cur;
      bool eol = false, zero = false;
      for (; s.cur < s.end; ++s.cur) {
        char d = *s.cur;
        if (d != '\n') {
          if (!blank(d)) break;
          zero = zero || !d;
          continue;
        }
        if (!s.file) continue;
        if (r._echo && main && !skip_depth)
          r._io.io_callback("%.*s\r\n", static_cast<int>(s.cur - s.line_begin), s.line_begin);
        ++s.line;
        s.line_start = true;
        s.line_begin = s.cur + 1;
        if ((mode & RT_EOL_TOKEN) && main && !skip_depth) {
          eol = true;
          break;
        }
      }
      size_t n = static_cast<size_t>(s.cur - b);
      if (main && skip_depth) {
        // A left-out block keeps only its line ends.
        for (char const* p = b; (p = static_cast<char const*>(std::memchr(p, '\n', static_cast<size_t>(s.cur - p))));
             ++p)
          t.gap.push_back('\n');
      } else {
        size_t at = t.gap.size();
        t.gap.append(b, n);
        if (zero)  // a zero byte would end the value it lands in
          for (size_t i = at; i < t.gap.size(); ++i)
            if (!t.gap[i]) t.gap[i] = ' ';
      }
      if (eol) {
        ++s.cur;
        t.kind = TK_EOL;
        t.text.clear();
        return 0;
      }
      continue;
    }
    if (c == '\\') {  // a slash at the end of a line joins the next one, indentation and all
      char const* p = s.cur + 1;
      if (p < s.end && *p == '\r') ++p;
      if (p >= s.end && s.file) return RAP_STATUS + RAPMSG_CONTINUATION_AT_EOF;
      if (*p == '\n') {
        if (p + 1 >= s.end && s.file) return RAP_STATUS + RAPMSG_CONTINUATION_AT_EOF;
        s.cur = p + 1;
        if (s.file) {
          ++s.line;
          s.line_begin = s.cur;
        }
        continue;
      }
    }
    if (c == '/' && s.cur + 1 < s.end && (s.cur[1] == '/' || s.cur[1] == '*')) {
      if (s.cur[1] == '/') {  // up to the line end, which stays (CR LF and all)
        char const* n = static_cast<char const*>(std::memchr(s.cur, '\n', static_cast<size_t>(s.end - s.cur)));
        s.cur = !n ? s.end : n[-1] == '\r' ? n - 1 : n;
        continue;
      }
      s.cur += 2;
      if (int e = skip_block_comment(s)) return e;
      continue;
    }
    if (c == '#' && s.file && s.line_start && main) {
      ++s.cur;
      if (int e = directive(s)) return e;
      continue;
    }
    s.line_start = false;
    char const* b = s.cur;
    if (c == '"' && main && skip_depth) {
      // Left-out text need not be config text: a stray quote there ends with its line, so that
      // it cannot swallow the #endif.
      char const* q = b + 1;
      while (q < s.end && *q != '"' && *q != '\n') ++q;
      s.cur = q < s.end && *q == '"' ? q + 1 : q;
      continue;
    }
    if (c == '"') {
      if (int e = lex_string(t, s)) return e;
    } else if (rap_is_name_start(static_cast<unsigned char>(c))) {
      char const* p = b + 1;
      while (p < s.end && rap_is_name_char(static_cast<unsigned char>(*p))) ++p;
      s.cur = p;
      t.kind = TK_WORD;
      t.text.assign(b, static_cast<size_t>(p - b));
    } else if (digit(c) || ((c == '-' || c == '+' || c == '.') && b + 1 < s.end && !glued_to_operand(s.buf.get(), b) &&
                            (digit(b[1]) || (b[1] == '.' && c != '.' && b + 2 < s.end && digit(b[2]))))) {
      char const* p = b + 1;
      bool hex = c == '0' && p < s.end && (*p == 'x' || *p == 'X');
      while (p < s.end) {
        char d = *p;
        if (rap_is_name_char(static_cast<unsigned char>(d)) || d == '.' ||
            (!hex && (d == '-' || d == '+') && (p[-1] == 'e' || p[-1] == 'E') && p + 1 < s.end && digit(p[1])))
          ++p;
        else
          break;
      }
      s.cur = p;
      t.kind = TK_NUMBER;
      t.text.assign(b, static_cast<size_t>(p - b));
    } else {
      ++s.cur;
      t.kind = TK_SYMBOL;
      t.text.assign(1, c);
    }
    if (main && skip_depth) continue;  // inside a block that #ifdef or #if left out
    return 0;
  }
}

// ===== expansion ====================================================================

int RapTextReader::Impl::push_expansion(Stack& st, std::string&& text, RapDefine const* macro) {
  size_t depth = 0;
  for (auto it = st.rbegin(); it != st.rend() && !it->file; ++it) ++depth;
  if (depth >= static_cast<size_t>(kMaxExpansionDepth)) {
    r._io.io_callbackerr("macro expansion deeper than %d (a #define that uses itself?)\r\n", kMaxExpansionDepth);
    return RAP_STATUS + RAPMSG_BAD_DEFINE;
  }
  // Each expansion also costs its bookkeeping: counting it keeps a flood of tiny expansions
  // (a macro doubling itself forty times) as bounded as one huge one.
  expanded_bytes += text.size() + kExpansionOverhead;
  if (expanded_bytes > r._allowance + kExpansionPerInputByte * input_bytes) {
    r._io.io_callbackerr("macro expansion grew beyond %zu bytes (a #define that uses itself?)\r\n",
                         expanded_bytes);
    return RAP_STATUS + RAPMSG_BAD_DEFINE;
  }
  Source s;
  s.buf = std::make_unique<char[]>(text.size() + 1);
  std::memcpy(s.buf.get(), text.data(), text.size());
  s.buf[text.size()] = 0;
  s.cur = s.buf.get();
  s.end = s.cur + text.size();
  s.macro = macro;
  st.push_back(std::move(s));
  return 0;
}

int RapTextReader::Impl::collect_args(Stack& st, std::vector<std::string>& args, bool split) {
  // Looks for the '(' behind a macro name, past the end of the expansion the name came from, and
  // gathers the arguments up to the matching ')'. Commas split arguments only outside nested
  // parentheses and quotes.
  args.clear();
  bool open = false;
  int depth = 0;
  std::string arg;
  for (;;) {
    if (st.empty()) return RAP_STATUS + RAPMSG_EXPECTED_PARMS;
    Source& s = st.back();
    if (s.cur >= s.end) {
      if (!s.file) {
        st.pop_back();
        continue;
      }
      return RAP_STATUS + RAPMSG_EXPECTED_PARMS;
    }
    char c = *s.cur;
    if (c == '\n' && s.file) {
      ++s.line;
      s.line_begin = s.cur + 1;
    }
    if (!open) {
      if (c == '(') {
        open = true;
        depth = 1;
        ++s.cur;
        continue;
      }
      if (blank(c) || c == '\n') {
        ++s.cur;
        continue;
      }
      return RAP_STATUS + RAPMSG_EXPECTED_PARMS;
    }
    if (c == '/' && s.cur + 1 < s.end && s.cur[1] == '/') {
      char const* n = static_cast<char const*>(std::memchr(s.cur, '\n', static_cast<size_t>(s.end - s.cur)));
      s.cur = n ? n : s.end;
      continue;
    }
    if (c == '/' && s.cur + 1 < s.end && s.cur[1] == '*') {
      s.cur += 2;
      if (int e = skip_block_comment(s)) return e == kEof ? RAP_STATUS + RAPMSG_EXPECTED_PARMS : e;
      arg.push_back(' ');
      continue;
    }
    if (c == '\\' && s.cur + 1 < s.end && (s.cur[1] == '\n' || s.cur[1] == '\r')) {
      // A continuation inside the arguments joins the lines: the next line's indentation stays.
      char const* p = s.cur + 1;
      if (*p == '\r' && p + 1 < s.end && p[1] == '\n') ++p;
      if (*p == '\n') {
        if (s.file) {
          ++s.line;
          s.line_begin = p + 1;
        }
        s.cur = p + 1;
        continue;
      }
    }
    if (c == '\r' && s.cur + 1 < s.end && s.cur[1] == '\n') {
      ++s.cur;  // a line break that is not joined is one blank, whatever the line ends are
      continue;
    }
    if (c == '"') {
      char const* q = s.cur + 1;
      while (q < s.end && *q != '"') ++q;
      if (q >= s.end) return RAP_STATUS + RAPMSG_MISMATCHED_QUOTES;
      if (s.file)
        for (char const* n = s.cur; n < q; ++n)
          if (*n == '\n') ++s.line;
      arg.append(s.cur, static_cast<size_t>(q + 1 - s.cur));
      s.cur = q + 1;
      continue;
    }
    ++s.cur;
    if (c == '(') ++depth;
    if (c == ')' && --depth == 0) {
      args.push_back(std::move(arg));
      return 0;
    }
    if (c == ',' && depth == 1 && split) {
      args.push_back(std::move(arg));
      arg.clear();
      continue;
    }
    arg.push_back(c == '\n' || c == '\r' || c == 0 ? ' ' : c);
  }
}

int RapTextReader::Impl::expand_text(std::string_view in, std::string& out, Stack& st, Hidden const& base) {
  // Arguments are expanded before they are put into the body, so that name##_##COMPONENT glues
  // the values, not the names.
  out.clear();
  if (in.find_first_not_of(" \t") == std::string_view::npos) return 0;
  if (nest >= kMaxArgNesting) {
    r._io.io_callbackerr("macro arguments nested deeper than %d\r\n", kMaxArgNesting);
    return RAP_STATUS + RAPMSG_BAD_DEFINE;
  }
  Hidden hid = base;
  for (auto it = st.rbegin(); it != st.rend() && !it->file; ++it)
    if (it->macro) hid.push_back(it->macro);
  Stack sub;
  if (int e = push_expansion(sub, std::string(in), nullptr)) return e;
  ++nest;
  Tok t;
  int e;
  while ((e = next(t, 0, sub, hid)) == 0) append_token(out, t);
  --nest;
  if (e != kEof) return e;
  out.append(t.gap);  // an argument keeps the blanks it ends with, as it keeps those it starts with
  return 0;
}

int RapTextReader::Impl::expand_macro(Tok& t, RapDefine const& d, Stack& st, Hidden const& base) {
  std::string text;
  if (!d.has_params) {
    text = d.body;
  } else {
    std::vector<std::string> raw_args;
    if (int e = collect_args(st, raw_args, true)) return e;
    size_t want = d.params.size();
    if (raw_args.size() == 1 && want == 0 && raw_args[0].find_first_not_of(" \t") == std::string::npos)
      raw_args.clear();
    if (raw_args.size() < want) return RAP_STATUS + RAPMSG_TOO_FEW_PARMS;
    while (raw_args.size() > want && want > 0) {  // surplus arguments stay with the last one
      std::string extra = std::move(raw_args.back());
      raw_args.pop_back();
      raw_args.back().append(",").append(extra);
    }
    std::vector<std::string> args(raw_args.size());
    for (size_t i = 0; i < raw_args.size(); ++i)
      if (int e = expand_text(raw_args[i], args[i], st, base)) return e;
    d.def_Substitute(args, text);
  }
  if (text == "\"") {  // a macro that stands for a lone quote character
    t.kind = TK_SYMBOL;
    t.text.assign(1, '"');
    return 1;
  }
  if (text.empty()) return 0;
  return push_expansion(st, std::move(text), &d);
}

int RapTextReader::Impl::evaluate(Tok& t, bool exec, Stack& st, Hidden const& base) {
  std::vector<std::string> raw_args;
  if (collect_args(st, raw_args, false) || raw_args.empty()) return RAP_STATUS + RAPMSG_BAD_EVAL;
  std::string expr;
  if (int e = expand_text(raw_args[0], expr, st, base)) return e;
  bool was = eval.ev_NotBinarisable();
  bool ok;
  RapOperand v;
  if (exec)
    ok = eval.ev_Execute(expr);
  else
    ok = eval.ev_Evaluate(expr, v);
  if (eval.ev_NotBinarisable() && !was) r._not_binarisable = true;
  if (!ok) return RAP_STATUS + RAPMSG_BAD_EVAL;
  if (exec) {
    // "__EXEC(a = 1);" leaves nothing behind, its semicolon included.
    while (!st.empty() && !st.back().file && st.back().cur >= st.back().end) st.pop_back();
    if (!st.empty()) {
      Source& s = st.back();
      char const* p = s.cur;
      while (p < s.end && (*p == ' ' || *p == '\t')) ++p;
      if (p < s.end && *p == ';') s.cur = p + 1;
    }
    return 0;
  }
  switch (v.kind) {
    case RapOperand::STRING:
      t.kind = TK_STRING;
      t.text = v.text;
      break;
    case RapOperand::ARRAY:  // read again as the tokens of a config array
      return push_expansion(st, RapEvaluator::ev_ToText(v), nullptr);
    default:
      t.kind = TK_NUMBER;
      t.text = RapEvaluator::ev_ToText(v);
      break;
  }
  return 1;
}

int RapTextReader::Impl::next(Tok& t, int mode, Stack& st, Hidden const& base) {
  // A name that expands leaves its blanks in t.gap, ahead of the first blanks of its expansion:
  // the text reads as if the macro's body had stood there.
  t.gap.clear();
  for (;;) {
    int e = raw(t, st, mode);
    if (e) return e;
    if (t.kind != TK_WORD || (mode & RT_NO_EXPAND)) return 0;
    if (t.text.size() > 2 && t.text[0] == '_' && t.text[1] == '_') {
      if (t.text == "__LINE__") {
        Source const* f = top_file();
        t.kind = TK_NUMBER;
        t.text = std::to_string(f ? f->line : 0);
        return 0;
      }
      if (t.text == "__FILE__") {
        Source const* f = top_file();
        std::string name = f ? f->name : std::string();
        if (!name.empty() && name[0] != '/') {
          FileStringA cwd;
          std::string w = cwd.fs_get_cwd();
          if (!w.empty() && w.back() != '/') w.push_back('/');
          name = w + name;
        }
        t.text = name;
        return 0;
      }
      if (t.text == "__EVAL" || t.text == "__EXEC") {
        int v = evaluate(t, t.text == "__EXEC", st, base);
        if (v == 1) return 0;
        if (v) return v;
        continue;
      }
    }
    RapDefine const* d = r._defs->def_Find(t.text);
    if (d) {
      if (hidden(d, st, base)) return 0;
      int v = expand_macro(t, *d, st, base);
      if (v == 1) return 0;
      if (v) return v;
      continue;
    }
    // The game's own names, unless the text defined one of them itself.
    int v = builtin(t, st);
    if (v == 1 || v == 2) return 0;
    if (v) return v;
  }
}

// ===== value checks ==================================================================

int RapTextReader::Impl::checked(Tok& t, int mode) {
  Hidden const none;
  for (;;) {
    if (!ahead.empty()) {
      t = std::move(ahead.back());
      ahead.pop_back();
    } else if (int e = next(t, mode, stack, none)) {
      return e;
    }
    if (t.kind == TK_EOL) return 0;
    char sym = t.kind == TK_SYMBOL ? t.text[0] : 0;
    bool from_semicolon = false;
    if (array_depth > 0 && sym == ';') {
      // Old sources separate elements with ';' (often a macro's own): the game reads it as a comma.
      if (int w = r.rt_Warning(RAPMSG_SPURIOUS_SEMICOLON)) return w;
      if (last_sym == ',' || last_sym == '{') continue;
      t.text.assign(1, ',');
      sym = ',';
      from_semicolon = true;
    }
    if (sym == ';' && last_sym == ';') {
      if (int w = r.rt_Warning(RAPMSG_DOUBLE_SEMICOLON)) return w;
      continue;
    }
    if (array_depth > 0 && sym == ',') {
      Tok after;
      int e2 = next(after, mode & ~RT_EOL_TOKEN, stack, none);
      if (e2 == 0 && after.kind == TK_SYMBOL && after.text == "}") {
        if (!from_semicolon)
          if (int w = r.rt_Warning(RAPMSG_TRAILING_COMMA)) return w;
        t = std::move(after);
        sym = '}';
      } else if (e2 == 0) {
        ahead.push_back(std::move(after));
      } else if (e2 != kEof) {
        return e2;
      }
    }
    // The value behind '=' (or an element of an array).
    if (expect_value) {
      if (t.kind == TK_WORD && (strieq(t.text, "true") || strieq(t.text, "false"))) {
        t.text.assign(1, strieq(t.text, "true") ? '1' : '0');
        t.kind = TK_NUMBER;
      }
      if (checked_name) {
        int hi = checked_name == 1 ? 3 : 2;
        bool ok = t.kind == TK_NUMBER && t.text.size() == 1 && t.text[0] >= '0' && t.text[0] <= '0' + hi;
        if (!ok) return RAP_STATUS + RAPMSG_ILLEGAL_VALUE;
        if (checked_name == 1 && r._access_warning) {
          Source const* f = top_file();
          std::string const& n = f ? f->logical : std::string();
          bool own = n.size() >= 3 && (strncasecmp(n.c_str(), "ca/", 3) == 0 || strncasecmp(n.c_str(), "a3/", 3) == 0);
          if (!own)
            if (int w = r.rt_Warning(RAPMSG_ACCESS)) return w;
        }
      }
    }
    checked_name = 0;
    expect_value = false;
    if (sym == '=' && last_was_word && last_sym == 0) {
      if (strieq(last_word, "access")) checked_name = 1;
      if (strieq(last_word, "scope")) checked_name = 2;
    }
    if (sym == '=') expect_value = true;
    if (sym == '{') {
      bool opens = array_depth > 0 || (last_sym == '=' && (before_last == ']' || (before_last == '+' && third_last == ']')));
      if (opens) {
        ++array_depth;
        expect_value = true;
      }
    } else if (sym == '}' && array_depth > 0) {
      --array_depth;
    } else if (sym == ',' && array_depth > 0) {
      expect_value = true;
    }
    third_last = before_last;
    before_last = last_sym;
    last_sym = sym;
    last_was_word = t.kind == TK_WORD;
    if (last_was_word) last_word = t.text;
    return 0;
  }
}
