#pragma once
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

// One #define: its name, its parameters and its body, the body kept both as written (for the
// redefinition check and messages) and cut into pieces ready for substitution.
struct RapDefine {
  struct Piece {
    enum Kind : int { TEXT, PARAM, STRINGIZE };
    Kind kind;
    std::string text;  // TEXT only
    int index = 0;     // PARAM and STRINGIZE: which argument
  };
  std::string name;
  bool has_params = false;
  std::vector<std::string> params;
  std::string body;
  std::vector<Piece> pieces;

  // The body with the arguments put in: a parameter by its argument, #parameter by the argument
  // in quotes; the ## glue was taken out when the body was cut.
  void def_Substitute(std::vector<std::string> const& args, std::string& out) const;
};

// The macro list of a reader. Names are case-sensitive, as the preprocessor's users expect.
class RapDefList {
 public:
  // Parses a #define line's text ("NAME body", "NAME(a,b) body"; the body already free of
  // comments and continuation slashes). Returns 0, or a message number: RAPMSG_BAD_DEFINE for a
  // missing name or a lone # behind a parameter, RAPMSG_EXPECTED_PARMS for a broken parameter
  // list, RAPMSG_DEFINE_ALTERED when the name exists with another body (`previous` then holds the
  // old body and the definition is replaced).
  int def_Define(std::string_view text, std::string* previous = nullptr);
  bool def_Undefine(std::string_view name);
  RapDefine const* def_Find(std::string_view name) const {
    auto it = _map.find(name);
    return it == _map.end() ? nullptr : &it->second;
  }
  size_t def_Count() const { return _map.size(); }
  void def_Clear() { _map.clear(); }

 private:
  struct Hash {
    using is_transparent = void;
    size_t operator()(std::string_view s) const { return std::hash<std::string_view>{}(s); }
  };
  std::unordered_map<std::string, RapDefine, Hash, std::equal_to<>> _map;
};

inline bool rap_is_name_start(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}
inline bool rap_is_name_char(unsigned char c) { return rap_is_name_start(c) || (c >= '0' && c <= '9'); }
