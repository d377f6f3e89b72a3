#pragma once
#include "text/Chains.h"
#include "text/GenString.h"

// One token of a BisTokens list.
class BisToken : public Chain {
 public:
  BisToken(char const* text, unsigned flags = 0);
  GenString& tkn_text() { return _text; }
  char const* c_str() const { return _text.c_str(); }
  BisToken* GetNext() const { return static_cast<BisToken*>(Chain::GetNext()); }

 private:
  GenString _text;
  unsigned _flags;
};

// An ordered list of unique tokens: comma lists, concatenated lists, file lists.
class BisTokens : public Chains {
 public:
  int tkn_add(char const* text, unsigned flags = 0);
  int tkn_add(wchar_t const* text, unsigned flags = 0);
  void tkn_add(BisTokens const* other);
  BisToken* tkn_find(char const* text, int case_sensitive = 0) const;
  int tkn_find_index(char const* text, int case_sensitive = 0) const;
  void tkn_make_lower();
  void tkn_sort(int how);
  BisToken* tkn_convert_csv(char const* text);
  BisToken* tkn_convert_csv(wchar_t const* text);
  BisToken* tkn_common_convert(char const* text);
  BisToken* tkn_convert_cat(char const* text);
  BisToken* tkn_convert_cat(wchar_t const* text);
  BisToken* GetFirstToken() const { return static_cast<BisToken*>(GetFirst()); }
};
