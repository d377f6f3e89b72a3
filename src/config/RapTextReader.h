#pragma once
// Config source text, token by token, with the preprocessor run on the fly.
//
//   RapTextReader rd(io);                       // messages and the warning policy come from io
//   rd.rt_AddIncludeFolder("/mods/P");          // "\x\y\z.hpp" is looked up below each, in order
//   int r = rd.rt_OpenFile("addons/main/config.cpp");
//   while ((r = rd.rt_NextToken()) == 0) use(rd.rt_TokenKind(), rd.rt_Token());
//   if (r != RAP_STATUS + RAPMSG_EOF) report(rd.rt_Decorate(r));
//
// Every call returns 0 or RAP_STATUS + a message number (config/RapMessages.h); the end of the
// text is RAP_STATUS + RAPMSG_EOF. A status leaves the reader where it stopped, so the caller can
// still ask for the file and line.
//
// The preprocessor is the game's: #include, #define (with parameters, # and ##), #undef, #ifdef,
// #ifndef, #if (whole numbers, names, __has_include("file"), == != < > <= >= && || ! and
// parentheses), #else, #endif; the built-in names __LINE__, __FILE__, __FILE_NAME__,
// __FILE_SHORT__, __COUNTER__, __COUNTER_RESET__, the date and time names (taken from
// SOURCE_DATE_EPOCH when it is set), __RAND_INT8__ .. __RAND_UINT64__, __ARMA__, __ARMA3__,
// __EVAL and __EXEC. White space is kept as written: each token carries the blanks before it.
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "config/RapMessages.h"
#include "text/GenString.h"

class BisFileIO;
class RapDefList;

class RapTextReader {
 public:
  enum TokenKind : int {
    TK_NONE = 0,
    TK_WORD = 1,    // a name: letters, digits and '_', not starting with a digit
    TK_NUMBER = 2,  // a number as written ("-1", "0x1F", "1.5e-005"); a leading sign belongs to it
    TK_STRING = 3,  // quoted text without its quotes, "" made one quote, "a" \n "b" joined by a newline
    TK_SYMBOL = 4,  // any other single character: { } [ ] ; , = : + \ . and so on
    TK_EOL = 5,     // the end of a source line, only when asked for with RT_EOL_TOKEN
  };
  // Bits of rt_NextToken's mode.
  enum Mode : int {
    RT_EOL_TOKEN = 0x01,  // the end of a line is a token (TK_EOL)
    RT_NO_EXPAND = 0x10,  // macros, __LINE__, __FILE__, __EVAL and __EXEC are left as words
  };

  // Hostile text ends with a status instead of exhausting the stack or the memory.
  static constexpr int kMaxIncludeDepth = 32;
  static constexpr int kMaxExpansionDepth = 256;
  // Macro expansion may produce at most this much text in all (each expansion counted 64 bytes
  // more than its text), plus kExpansionPerInputByte times the source text read so far.
  static constexpr size_t kExpansionAllowance = size_t{64} << 20;
  static constexpr size_t kExpansionPerInputByte = 64;

  explicit RapTextReader(BisFileIO& io);
  ~RapTextReader();
  RapTextReader(RapTextReader const&) = delete;
  RapTextReader& operator=(RapTextReader const&) = delete;

  // Forgets the text, the macros, the evaluator's variables and the not-binarisable flag; the
  // include folders and the switches stay.
  void rt_Reset();

  // ---- sources --------------------------------------------------------------
  // Folders that names beginning with a backslash are looked up below, in the order given (then
  // the working folder); relative names not found beside the including file are looked up there too.
  void rt_AddIncludeFolder(char const* folder);
  void rt_ClearIncludeFolders();
  // Opens a file, or a copy of a text held in memory (`name` stands for it in messages and gives
  // the folder that relative includes start from). Both reset the reader first.
  int rt_OpenFile(char const* file);
  int rt_OpenText(char const* text, size_t size, char const* name);

  // ---- tokens -----------------------------------------------------------------
  // 0 with the next token, or a status (RAP_STATUS + RAPMSG_EOF at the end of the text).
  int rt_NextToken(int mode = 0);
  // The next rt_NextToken returns the current token again (one level of push back).
  void rt_UngetToken();
  char const* rt_Token() const { return _tok.c_str(); }
  size_t rt_TokenLength() const { return _tok.size(); }
  TokenKind rt_TokenKind() const { return _kind; }
  // White space, a comment or a line end stood between the previous token and this one: unquoted
  // values such as \ca\data\x.paa or db-10 arrive as several tokens with no space between them.
  bool rt_SpaceBefore() const;
  // That white space as written (tabs, runs of blanks, line ends), comments and line-joining
  // backslashes taken out; a macro's own leading blanks follow the blanks before its name.
  std::string const& rt_Gap() const;

  // Where the reader stands: the file being read (as it was named or resolved) and its line.
  // Inside a macro expansion these are the file and line that the macro was used at.
  char const* rt_CurrentFile() const;
  int rt_CurrentLine() const;
  // The files read so far, the first one included, in the order they were opened.
  std::vector<std::string> const& rt_IncludedFiles() const { return _included; }
  // The #include names that could not be found, as written.
  std::vector<std::string> const& rt_MissingFiles() const { return _missing; }

  // ---- messages ---------------------------------------------------------------
  // "In File %s: circa Line %d %s" for the current place, "%s: %s" when no line is known yet; the
  // bare text for message 0 and 48.
  GenString rt_Decorate(int status) const;
  // Sends the decorated message to the error callback (followed by CR LF) and returns `status`.
  int rt_Error(int status);
  // "warning :%s\r\n" with the decorated message to the message callback; returns 0, or
  // RAP_STATUS + number when the BisFileIO treats warnings as errors.
  int rt_Warning(int number);

  // ---- switches and results -------------------------------------------------------
  // The access check warns about access= in files outside the game's own folders, ca\ and a3\ as
  // the file was included (or below an include folder) (default on).
  void rt_SetAccessWarning(bool on) { _access_warning = on; }
  // Echoes every source line read, and the #else/#endif that end a skipped block, to the message
  // callback (default off: a trace for finding where a long file goes wrong).
  void rt_SetEcho(bool on) { _echo = on; }
  // The checks and repairs made for the binariser (true/false as 1/0, ';' in arrays, trailing
  // commas, ";;", access and scope) (default on). Off, the tokens are the preprocessor's alone.
  void rt_SetValueChecks(bool on) { _value_checks = on; }
  // Set when an __EVAL or __EXEC used something only the running game knows: the config then
  // cannot be written binarised.
  bool rt_NotBinarisable() const { return _not_binarisable; }
  void rt_SetNotBinarisable(bool on) { _not_binarisable = on; }

  // Lowers (or raises) the fixed part of the expansion budget, for callers that read untrusted
  // text in bulk; the per-input-byte part stays.
  void rt_SetExpansionAllowance(size_t bytes) { _allowance = bytes; }

  // The macros: what #define and #undef change. Opening a text starts an empty list; names
  // defined after opening and before the first token (rt_Define("_ARMA_")) are known to the text.
  RapDefList& rt_Defines() { return *_defs; }
  // A #define line's text after the directive ("NAME body" or "NAME(a,b) body"); 0 or a status.
  int rt_Define(char const* text);

 private:
  struct Source;
  struct Impl;
  friend struct Impl;

  BisFileIO& _io;
  std::unique_ptr<RapDefList> _defs;
  std::unique_ptr<Impl> _m;
  std::string _tok;
  TokenKind _kind = TK_NONE;
  bool _access_warning = true;
  bool _echo = false;
  bool _value_checks = true;
  bool _not_binarisable = false;
  size_t _allowance = kExpansionAllowance;
  std::vector<std::string> _included;
  std::vector<std::string> _missing;
};
