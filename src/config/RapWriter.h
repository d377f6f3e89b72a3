#pragma once
#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <vector>

class rap_entry;
class TokenPairs;

// Lays a config tree out as a binarised config, in memory, in the OFP dialect (indexed strings,
// class bodies inline) or the Arma dialect (asciiz strings, each class body behind its parent's
// entries, found through an absolute offset).
//
// Arma layout of a class body: parent name, entry count, the entries (a class entry holds the
// offset of its body), a word holding the offset just behind the class's whole subtree, then the
// bodies of its classes, depth first. The game reads the end word to skip a class it does not
// need, so it must be exact.
class RapWriter {
 public:
  enum Dialect : int { RAPW_OFP = 0, RAPW_ARMA = 1 };
  // Nesting deeper than this is refused: the tree builders never make one, and the writer must
  // not exhaust the stack on a hand-made tree.
  static constexpr int kMaxDepth = 1024;

  explicit RapWriter(Dialect dialect) : _dialect(dialect) {}

  // Appends the whole file to `out`: head, root class, enum section. Enumerators are name = value
  // pairs; one named "OrdinalEnum" (any case) is written without a name. Throws a message for a
  // node type the format has no place for, and GE_CANNOT_WRITE when the file would pass 4 GiB.
  void rpw_write(rap_entry const& root, TokenPairs const* enums, std::vector<uint8_t>& out);

 private:
  void _byte(int b) { _out->push_back(static_cast<uint8_t>(b)); }
  void _word(uint32_t v);
  void _patch(size_t at, size_t value);
  void _count(uint32_t n);
  void _asciiz(char const* s);
  void _string(char const* s);  // indexed in the OFP dialect
  void _entry(rap_entry const& e, int depth, std::vector<std::pair<size_t, rap_entry const*>>* bodies);
  void _body(rap_entry const& cls, int depth);
  void _ofp_class(rap_entry const& cls, int depth);
  void _elements(rap_entry const& array, int depth);
  void _scalar(rap_entry const& e, int subtype);
  void _enums(TokenPairs const* enums);
  static uint32_t _children(rap_entry const& e);

  Dialect _dialect;
  std::vector<uint8_t>* _out = nullptr;
  std::unordered_map<std::string_view, uint32_t> _index;  // OFP strings already written
};
