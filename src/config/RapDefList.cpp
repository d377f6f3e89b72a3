#include "config/RapDefList.h"

#include <cstdio>
#include <cstdlib>

#include "config/RapMessages.h"

namespace {
bool is_space(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v' || c == 0; }

std::string_view trim(std::string_view s) {
  while (!s.empty() && is_space(s.front())) s.remove_prefix(1);
  while (!s.empty() && is_space(s.back())) s.remove_suffix(1);
  return s;
}

// Two bodies that are both plain integers of equal value are the same definition (010 and 10).
bool same_integer(std::string const& a, std::string const& b) {
  auto parse = [](std::string const& s, long long& v) {
    if (s.empty()) return false;
    char* end = nullptr;
    v = std::strtoll(s.c_str(), &end, 10);
    return end && *end == 0;
  };
  long long x = 0, y = 0;
  return parse(a, x) && parse(b, y) && x == y;
}

void drop_trailing_space(std::string& s) {
  while (!s.empty() && is_space(s.back())) s.pop_back();
}

// Cuts a body into text, parameter and stringize pieces. Returns 0 or a message number.
int cut_body(RapDefine& d) {
  std::string_view b = d.body;
  auto param_index = [&](std::string_view w) -> int {
    for (size_t i = 0; i < d.params.size(); ++i)
      if (d.params[i] == w) return static_cast<int>(i);
    return -1;
  };
  std::string text;
  auto flush = [&] {
    if (!text.empty()) d.pieces.push_back({RapDefine::Piece::TEXT, std::move(text), 0});
    text.clear();
  };
  bool glue_next = false;  // after ##: leading blanks of what follows are dropped
  size_t i = 0;
  while (i < b.size()) {
    char c = b[i];
    if (glue_next && is_space(c)) {
      ++i;
      continue;
    }
    glue_next = false;
    if (c == '"') {  // quoted text is copied as it stands: no parameters inside strings
      size_t j = i + 1;
      while (j < b.size() && b[j] != '"') ++j;
      j = j < b.size() ? j + 1 : j;
      text.append(b.substr(i, j - i));
      i = j;
      continue;
    }
    if (c == '#' && i + 1 < b.size() && b[i + 1] == '#') {
      drop_trailing_space(text);
      i += 2;
      glue_next = true;
      continue;
    }
    if (c == '#') {
      size_t j = i + 1;
      while (j < b.size() && (b[j] == ' ' || b[j] == '\t')) ++j;
      size_t k = j;
      while (k < b.size() && rap_is_name_char(static_cast<unsigned char>(b[k]))) ++k;
      if (k > j && rap_is_name_start(static_cast<unsigned char>(b[j]))) {
        std::string_view w = b.substr(j, k - j);
        int p = param_index(w);
        if (p >= 0) {
          flush();
          d.pieces.push_back({RapDefine::Piece::STRINGIZE, {}, p});
        } else {
          text.push_back('"');
          text.append(w);
          text.push_back('"');
        }
        i = k;
        continue;
      }
      text.push_back(c);
      ++i;
      continue;
    }
    if (rap_is_name_start(static_cast<unsigned char>(c))) {
      size_t k = i + 1;
      while (k < b.size() && rap_is_name_char(static_cast<unsigned char>(b[k]))) ++k;
      std::string_view w = b.substr(i, k - i);
      int p = d.has_params ? param_index(w) : -1;
      if (p >= 0) {
        if (k < b.size() && b[k] == '#' && (k + 1 >= b.size() || b[k + 1] != '#')) {
          std::fputs("Cannot Handle single# in defines\n", stderr);
          return RAPMSG_BAD_DEFINE;
        }
        flush();
        d.pieces.push_back({RapDefine::Piece::PARAM, {}, p});
      } else {
        text.append(w);
      }
      i = k;
      continue;
    }
    if (c >= '0' && c <= '9') {  // a number's letters (0x1F, 1e5) are never parameters
      size_t k = i + 1;
      while (k < b.size() && rap_is_name_char(static_cast<unsigned char>(b[k]))) ++k;
      text.append(b.substr(i, k - i));
      i = k;
      continue;
    }
    text.push_back(c);
    ++i;
  }
  flush();
  return 0;
}
}  // namespace

void RapDefine::def_Substitute(std::vector<std::string> const& args, std::string& out) const {
  static std::string const none;
  for (Piece const& p : pieces) {
    std::string const& arg = p.kind == Piece::TEXT ? none : (p.index < static_cast<int>(args.size()) ? args[p.index] : none);
    switch (p.kind) {
      case Piece::TEXT: out.append(p.text); break;
      case Piece::PARAM: out.append(arg); break;
      case Piece::STRINGIZE:
        out.push_back('"');
        out.append(arg);
        out.push_back('"');
        break;
    }
  }
}

int RapDefList::def_Define(std::string_view text, std::string* previous) {
  text = trim(text);
  size_t i = 0;
  while (i < text.size() && rap_is_name_char(static_cast<unsigned char>(text[i]))) ++i;
  if (i == 0 || !rap_is_name_start(static_cast<unsigned char>(text[0]))) return RAPMSG_BAD_DEFINE;
  RapDefine d;
  d.name.assign(text.substr(0, i));
  if (i < text.size() && text[i] == '(') {  // parameters only when the parenthesis touches the name
    d.has_params = true;
    size_t close = text.find(')', i);
    if (close == std::string_view::npos) return RAPMSG_EXPECTED_PARMS;
    std::string_view list = trim(text.substr(i + 1, close - i - 1));
    while (!list.empty()) {
      size_t comma = list.find(',');
      std::string_view p = trim(list.substr(0, comma));
      if (p.empty() || !rap_is_name_start(static_cast<unsigned char>(p[0]))) return RAPMSG_EXPECTED_PARMS;
      for (char c : p)
        if (!rap_is_name_char(static_cast<unsigned char>(c))) return RAPMSG_EXPECTED_PARMS;
      d.params.emplace_back(p);
      if (comma == std::string_view::npos) break;
      list.remove_prefix(comma + 1);
      if (trim(list).empty()) return RAPMSG_EXPECTED_PARMS;
    }
    i = close + 1;
  }
  // The game drops the spaces between the name and the body, and only spaces: a tab there
  // belongs to the body and comes out wherever the macro is used. The rest of the body is kept
  // as written, up to its trailing blanks.
  std::string_view body = text.substr(i);
  while (!body.empty() && body.front() == ' ') body.remove_prefix(1);
  while (!body.empty() && is_space(body.back())) body.remove_suffix(1);
  d.body.assign(body);
  if (int r = cut_body(d)) return r;
  auto it = _map.find(std::string_view(d.name));
  if (it == _map.end()) {
    std::string key = d.name;
    _map.emplace(std::move(key), std::move(d));
    return 0;
  }
  RapDefine& old = it->second;
  // A body that differs only in the blanks it starts with says the same thing.
  bool same = trim(old.body) == trim(d.body) || same_integer(old.body, d.body);
  if (same && old.params == d.params && old.has_params == d.has_params) return 0;
  if (previous) *previous = old.body;
  old = std::move(d);
  return RAPMSG_DEFINE_ALTERED;
}

bool RapDefList::def_Undefine(std::string_view name) {
  auto it = _map.find(trim(name));
  if (it == _map.end()) return false;
  _map.erase(it);
  return true;
}
