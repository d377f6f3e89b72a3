#pragma once
#include "text/Chains.h"
#include "text/GenString.h"

class BisFileIO;

// One name = value pair.
class TokenPair : public Chain {
 public:
  TokenPair(char const* name = nullptr, char const* value = nullptr);
  // Reads two consecutive zero-terminated strings: name, then value.
  explicit TokenPair(BisFileIO& io);
  GenString& tkn_name() { return _name; }
  GenString& tkn_value() { return _value; }
  char const* name() const { return _name.c_str(); }
  char const* value() const { return _value.c_str(); }
  TokenPair* GetNext() const { return static_cast<TokenPair*>(Chain::GetNext()); }

 private:
  GenString _name;
  GenString _value;
};

// An ordered list of pairs with unique names (compared without regard to case).
class TokenPairs : public Chains {
 public:
  int tkn_add(char const* name, char const* value);
  int tkn_add(wchar_t const* name, wchar_t const* value);
  int tkn_add(TokenPair* pair);  // takes ownership when added; deletes it otherwise
  void tkn_add(TokenPairs const* other);
  TokenPair* tkn_find(char const* name, int case_sensitive = 0) const;
  char const* tkn_find_value(char const* name, int case_sensitive = 0) const;
  void tkn_sort(int how);
  int tkn_add_token_equals(char const* line);
  TokenPair* GetFirstPair() const { return static_cast<TokenPair*>(GetFirst()); }
};
