#pragma once
// The reader's inner state, shared by its token and directive halves; not part of the interface.
#include <cstdint>
#include <ctime>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "config/RapDefList.h"
#include "config/RapEvaluator.h"
#include "config/RapTextReader.h"

// One text being read: a file (the first one or an #include, named IncSave on the include stack)
// or a macro's expansion pushed to be read again (an ExpandedToken).
struct RapTextReader::Source {
  std::unique_ptr<char[]> buf;
  char const* cur = nullptr;
  char const* end = nullptr;
  bool file = false;
  // Files.
  std::string name;    // as found on disk
  std::string folder;  // where relative includes start, with a trailing '/' (or empty)
  std::string logical; // the name in the game's tree: as included, or below an include folder
  int line = 1;
  bool line_start = true;
  char const* line_begin = nullptr;  // for the echo
  // Expansions: the macro, which may not expand again while its own text is being read.
  RapDefine const* macro = nullptr;
};

struct RapTextReader::Impl {
  struct Tok {
    std::string text;
    TokenKind kind = TK_NONE;
    std::string gap;  // the blanks before the token, as written
  };
  using Stack = std::vector<Source>;
  using Hidden = std::vector<RapDefine const*>;

  explicit Impl(RapTextReader& reader) : r(reader), eval(&reader._io) {}

  RapTextReader& r;
  Stack stack;
  std::vector<std::string> include_folders;
  RapEvaluator eval;
  int if_depth = 0;
  int skip_depth = 0;
  int nest = 0;  // argument expansions within argument expansions
  size_t input_bytes = 0;
  size_t expanded_bytes = 0;
  // The built-in names' state: __COUNTER__, and the clock and dice fixed once per text, so that
  // every date macro of one text tells the same time.
  uint64_t counter = 0;
  bool clock_set = false;
  std::tm local{}, utc{};
  long long epoch = 0;
  std::unique_ptr<std::mt19937_64> dice;
  std::vector<Tok> pending;  // pushed back by the caller, last one first
  std::vector<Tok> ahead;    // read ahead by the value checks, not yet checked
  Tok cur;

  // What the value checks remember of the tokens returned so far.
  char last_sym = 0;       // the last token when it was a symbol, else 0
  char before_last = 0;    // the symbol before it
  char third_last = 0;
  int array_depth = 0;
  int checked_name = 0;    // 1 access, 2 scope: the value after '=' is checked
  bool expect_value = false;
  bool last_was_word = false;
  std::string last_word;

  // ---- tokens (RapTextReader.cpp) ----
  void reset();
  int raw(Tok& t, Stack& st, int mode);
  int next(Tok& t, int mode, Stack& st, Hidden const& base);
  int checked(Tok& t, int mode);
  int expand_macro(Tok& t, RapDefine const& d, Stack& st, Hidden const& base);
  int collect_args(Stack& st, std::vector<std::string>& args, bool split);
  int expand_text(std::string_view in, std::string& out, Stack& st, Hidden const& base);
  int push_expansion(Stack& st, std::string&& text, RapDefine const* macro);
  int evaluate(Tok& t, bool exec, Stack& st, Hidden const& base);
  bool hidden(RapDefine const* d, Stack const& st, Hidden const& base) const;
  Source* top_file();
  Source const* top_file() const;
  int lex_string(Tok& t, Source& s);
  int skip_block_comment(Source& s);

  // ---- built-in names (RapTextReaderBuiltins.cpp) ----
  static bool is_builtin(std::string_view name);
  // The built-in's value: 1 with the token made, 0 when it left nothing (or pushed text to read),
  // or a status. Names that are not built-ins are 2.
  int builtin(Tok& t, Stack& st);
  void set_clock();

  // ---- directives and includes (RapTextReaderDirectives.cpp) ----
  int directive(Source& s);
  // #if: the line's truth, __has_include and macros worked out first.
  int condition(std::string_view line, bool& truth);
  int has_includes(std::string_view line, std::string& out);
  int read_directive_line(Source& s, std::string& out);
  int include(std::string_view text);
  int push_file(std::string const& path, std::string const& shown);
  std::string logical_name(std::string const& path, std::string const& written) const;
  // A quiet search (for __has_include) neither warns of a case-blind find nor tells why it failed.
  int resolve(std::string const& name, std::string& found, bool quiet = false);
  void pop_include();
  int warn_text(int status_if_error, char const* format, ...) __attribute__((format(printf, 3, 4)));
  // A token as config text again, for arguments expanded before substitution.
  static void append_token(std::string& out, Tok const& t) {
    out.append(t.gap);
    if (t.kind != TK_STRING) {
      out.append(t.text);
      return;
    }
    out.push_back('"');
    for (char c : t.text) {
      if (c == '"') out.push_back('"');
      out.push_back(c);
    }
    out.push_back('"');
  }
};
