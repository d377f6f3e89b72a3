#pragma once
// Decoding a binarised config from memory to its full text (banner, #define line, enums, classes),
// the entry point that archive extraction relies on; keep it stable:
//
//   int Kaltor::drp_Decode(void const* data, uint64_t size, GenString& text,
//                          char const* name = nullptr, long filedate = -1);
//
// `name` titles the banner ("Kaltor: <name>"), `filedate` is the modification time shown in it
// (-1: no date line). Returns 0 or a result code (ErrorString gives its message); on a failure
// `text` still holds what was decoded up to the fault, ending in a "//<error>" line.
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "config/raperr_types.h"
#include "io/BisFileIO.h"
#include "text/GenString.h"

class BisDLL;
class rap_entry;

// The config decoder tool: turns a binarised config of any dialect (OFP with indexed strings,
// Arma, signed Xbox) into config text or into a tree of rap_entry nodes.
class Kaltor {
 public:
  enum Dialect : int { DIALECT_OFP = 0, DIALECT_ARMA = 1, DIALECT_XBOX = 2 };
  // How far the signature of an Xbox file was checked by the last decode.
  enum Signature : int { SIG_NONE = 0, SIG_VERIFIED = 1, SIG_UNVERIFIED = -1 };
  static constexpr int kXboxKeySize = 16;
  // Class and array nesting deeper than this is refused: no real config comes close, and a
  // crafted file must not exhaust the stack.
  static constexpr int kMaxDepth = 512;

  explicit Kaltor(BisDLL* dll);
  ~Kaltor();
  Kaltor(Kaltor const&) = delete;
  Kaltor& operator=(Kaltor const&) = delete;

  // ---- decoding to text -----------------------------------------------------
  // `*text` receives the decoder's own copy, valid until the next decode or Close.
  int drp_Decode(char const* file, char const** text);
  int drp_Decode(unsigned char const* data, unsigned long size, char const** text, char const* name,
                 long filedate);
  int drp_Decode(void const* data, uint64_t size, GenString& text, char const* name = nullptr,
                 long filedate = -1);

  // ---- decoding to a tree ---------------------------------------------------
  // The root's children receive the entries of the root class (its parent name becomes the root's
  // value); an existing tree is merged into, class by class.
  int drp_Decode(char const* file, rap_entry* root);
  int drp_Decode(unsigned char const* data, unsigned long size, rap_entry* root);

  // Writes the last decoded text (encoding as BisFileIO::io_write_file); true when written.
  bool drp_WriteDecodedText(char const* file, int encoding = 0);
  char const* drp_GetText() const { return _text.c_str(); }
  uint64_t drp_GetTextSize() const { return _text.size(); }

  BisFileIO* drp_GetIO() { return &_io; }
  BisDLL* drp_GetDll() const { return _dll; }
  // TAB (default) or a space as the indent character.
  void drp_SetTabChar(bool tab) { _tab = tab ? '\t' : ' '; }
  // 0 (default) writes every array on one line; N > 0 breaks arrays of two or more elements
  // every N elements.
  void drp_SetElementsPerLine(int n) { _per_line = n > 0 ? n : 0; }

  // The 16-byte key of the Xbox signature; null forgets it. Without a key a signed file still
  // decodes, but its signature cannot be checked: the decoder then says so through the message
  // callback ("Warning: ... not verified") and drp_GetSignature() reports SIG_UNVERIFIED.
  void drp_SetXboxKey(unsigned char const* key);
  bool drp_HasXboxKey() const { return _has_key; }
  Signature drp_GetSignature() const { return _signature; }
  Dialect drp_GetDialect() const { return _dialect; }

  // Closes the input, drops the string index and resets the buffers; the text only when asked.
  int Close(bool free_text = true);
  static char const* ErrorString(int code);

  // The code a thrown message text turns into.
  static constexpr int kDetectedError = 3;

 private:
  int _decode_text_worker(char const* name, long filedate);
  int _decode_tree_worker(rap_entry* root);
  void _open_memory(void const* data, uint64_t size);
  void _prepare();
  uint64_t _detect();
  void _despace();
  bool _verify_xbox(uint8_t const* data, uint64_t size) const;

  // Reading.
  uint32_t _read_count();
  std::string_view _read_name();  // indexed in the OFP dialect, plain elsewhere
  char const* _read_asciiz();
  void _entry(int indent, int depth, rap_entry* tree);
  void _class_entry(int indent, int depth, rap_entry* tree);
  void _class_contents(char const* name, int indent, int depth, rap_entry* tree, bool root_body);
  void _array_elements(int indent, int depth, rap_entry* tree, bool top);
  void _value(int subtype, rap_entry* tree, char const* name);
  void _enums(uint64_t offset);
  void _check_budget();
  void _claim(uint64_t from, uint64_t to, char const* name);
  [[noreturn]] void _fail(char const* format, ...) __attribute__((format(printf, 2, 3)));

  // Writing.
  void _indent(int indent);
  void _put(std::string_view s) { _out.append(s); }
  void _put_string(std::string_view s);
  void _put_float(float f);
  void _put_double(double d);

  BisDLL* _dll;
  BisFileIO _io;
  Dialect _dialect = DIALECT_ARMA;
  Signature _signature = SIG_NONE;
  char _tab = '\t';
  int _per_line = 0;
  bool _has_key = false;
  unsigned char _key[kXboxKeySize] = {};

  std::vector<uint8_t> _copy;    // a despaced copy of a caller's buffer
  std::vector<uint8_t> _owned;   // which bytes an entry list has consumed (overlap guard)
  std::string _out;              // class text
  std::string _enum_text;
  std::string _text;             // the whole result
  GenString _head;               // banner and #define line
  GenString _num;                // scratch for number text
  std::vector<std::string_view> _index;  // OFP strings by index (the common, dense case)
  std::unordered_map<uint32_t, std::string_view> _index_sparse;
  uint64_t _seg_start = 0;  // where the entry list being read resumed
  uint64_t _budget = 0;     // bytes of text (or of repeated strings) a file may decode to
  uint64_t _repeated = 0;   // bytes of OFP strings taken again from the index
};
