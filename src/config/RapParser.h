#pragma once
#include <string>
#include <unordered_set>
#include <vector>

#include "text/GenString.h"

class BisFileIO;
class RapTextReader;
class TokenPairs;
class rap_entry;

// Builds a config tree from the reader's tokens: classes (with their parents checked), extern
// declarations, delete entries, values, arrays and "+=" appends, and the enum block.
//
// Values are typed by their text after macro expansion: decimal and hex integers become int32
// (int64 when they do not fit), numbers with a point or an exponent float32, quoted text a
// string; true and false arrive from the reader as 1 and 0. Anything else up to the ';' is kept
// as a string of its tokens with the white space between them as written (\ca\data\x.paa,
// db-10, SafeZoneY + 1.5 * \t(A / 25)).
//
// Sources that leave out the ';' before a '}' or at the end of a line are read the way the game
// reads them: a warning, not a failure.
class RapParser {
 public:
  // Classes and arrays nest at most this deep, well inside what the decoder reads back.
  static constexpr int kMaxDepth = 256;

  RapParser(RapTextReader& reader, BisFileIO& io);

  // Reads the whole text into `root` and the enumerators into `enums`. Returns 0 or a reader
  // status (256 + message number); a status has been reported with its place already.
  int rpp_Parse(rap_entry& root, TokenPairs& enums);
  // The line of the fault (the first missing parent class for message 34).
  int rpp_LineInError() const { return _line_in_error; }
  // delete entries are refused (model.cfg files cannot hold them).
  void rpp_SetNoDelete(bool on) { _no_delete = on; }

 private:
  struct Scope;
  int _body(rap_entry& cls, int depth);
  int _statement(rap_entry& cls, Scope& scope, int depth);
  int _class(rap_entry& cls, int depth);
  int _enum(TokenPairs& enums);
  int _array(rap_entry& array, int depth);
  int _value(rap_entry& cls, std::string const& name);
  int _element(rap_entry& array);
  int _end_of_statement(bool after_class = false);
  int _next(int mode = 0);
  int _fail(int message);
  void _add_scalar(rap_entry& into, char const* name, bool quoted);
  bool _is(char symbol) const;
  static std::string _quoted(std::string const& text);

  RapTextReader& _rd;
  BisFileIO& _io;
  TokenPairs* _enums = nullptr;
  std::string _text;  // a value's text, gathered from its tokens
  std::vector<std::string> _open;  // names of the classes being read, for the truncation message
  int _line_in_error = 0;
  std::string _file_in_error;  // where the first missing parent class was named
  int _missing_parents = 0;
  bool _no_delete = false;
};
