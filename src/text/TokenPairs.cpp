#include "text/TokenPairs.h"

#include <cstdio>
#include <cstring>
#include <strings.h>

#include <algorithm>
#include <vector>

#include "io/BisFileIO.h"
#include "text/CString8.h"

TokenPair::TokenPair(char const* name, char const* value) : _name(name), _value(value) {}

TokenPair::TokenPair(BisFileIO& io) {
  // Copies: a pair outlives the buffer it was read from (archive properties, for one).
  _name.str_dup(io.io_ReadAsciiz());
  _value.str_dup(io.io_ReadAsciiz());
}

int TokenPairs::tkn_add(char const* name, char const* value) {
  if (tkn_find(name)) return 0;
  AddChain(new TokenPair(name, value));
  return 1;
}

int TokenPairs::tkn_add(wchar_t const* name, wchar_t const* value) {
  return tkn_add(CString8(name).c_str(), CString8(value).c_str());
}

int TokenPairs::tkn_add(TokenPair* pair) {
  if (!pair) return 0;
  if (tkn_find(pair->name())) {
    delete pair;
    return 0;
  }
  AddChain(pair);
  return 1;
}

void TokenPairs::tkn_add(TokenPairs const* other) {
  if (!other || other == this) return;
  for (TokenPair* p = other->GetFirstPair(); p; p = p->GetNext()) tkn_add(p->name(), p->value());
}

TokenPair* TokenPairs::tkn_find(char const* name, int case_sensitive) const {
  for (TokenPair* p = GetFirstPair(); p; p = p->GetNext())
    if (p->tkn_name().Compare(name, case_sensitive != 0)) return p;
  return nullptr;
}

char const* TokenPairs::tkn_find_value(char const* name, int case_sensitive) const {
  TokenPair* p = tkn_find(name, case_sensitive);
  return p ? p->value() : nullptr;
}

void TokenPairs::tkn_sort(int how) {
  std::vector<TokenPair*> order;
  order.reserve(GetCount());
  for (TokenPair* p = GetFirstPair(); p; p = p->GetNext()) order.push_back(p);
  // A selection that takes the earlier of equal names first is a stable sort.
  auto less = [how](TokenPair* a, TokenPair* b) {
    switch (how) {
      case 0:
        return std::strcmp(a->name(), b->name()) < 0;
      case 1:
        return std::strcmp(a->name(), b->name()) > 0;
      default:
        return std::strlen(a->name()) > std::strlen(b->name());
    }
  };
  if (how < 0 || how > 2) return;
  std::stable_sort(order.begin(), order.end(), less);
  for (TokenPair* p : order) UnlinkChain(p);
  for (TokenPair* p : order) AddChain(p);
}

int TokenPairs::tkn_add_token_equals(char const* text) {
  if (!text) return 1;
  GenString copy(text);
  copy.str_replace_char('\t', ' ');
  char* line = copy.str_GetBuffer();
  if (!line) return 1;
  // Line ends and trailing blanks carry nothing; leading blanks are indentation.
  size_t n = std::strlen(line);
  while (n && (line[n - 1] == ' ' || line[n - 1] == '\r' || line[n - 1] == '\n')) line[--n] = 0;
  while (*line == ' ') ++line;
  if (!*line || *line == '#') return 1;

  char* p = line;
  GenString name;
  if (*p == '"') {
    char* close = std::strchr(p + 1, '"');
    if (!close || close == p + 1) return 0;
    name.str_MemDup(p + 1, static_cast<size_t>(close - p - 1));
    p = close + 1;
  } else {
    char* end = p + std::strcspn(p, " =");
    if (!*end || end == p) return 0;
    name.str_MemDup(p, static_cast<size_t>(end - p));
    p = end;
  }

  while (*p == ' ') ++p;
  bool assigned = false;
  if (*p == '=') {
    assigned = true;
    ++p;
    while (*p == ' ') ++p;
  }
  if (!*p) return -1;

  GenString value;
  if (*p == '"') {
    char* close = std::strchr(p + 1, '"');
    if (!close || close[1] != 0 || close == p + 1) return 0;
    value.str_MemDup(p + 1, static_cast<size_t>(close - p - 1));
  } else {
    value.str_dup(p);
  }
  if (assigned) {
    char* v = value.str_GetBuffer();
    size_t len = std::strlen(v);
    if (len && v[len - 1] == ';') v[--len] = 0;
    if (!len) return 0;
  }

  if (tkn_add(name.c_str(), value.c_str())) return 1;
  TokenPair* existing = tkn_find(name.c_str());
  if (existing->tkn_value().Compare(value.c_str())) return 1;
  std::fprintf(stderr, "attempt to change tokenlist '%s' value\n", name.c_str());
  std::fprintf(stderr, "from: '%s'\n", existing->value());
  std::fprintf(stderr, "to: '%s'\n", value.c_str());
  return 0;
}
