#include "text/BisTokens.h"

#include <cctype>
#include <cstring>
#include <strings.h>

#include <algorithm>
#include <cwchar>
#include <string>
#include <vector>

#include "text/CString8.h"
#include "text/FileStringA.h"

BisToken::BisToken(char const* text, unsigned flags) : _text(text), _flags(flags) {
  if (flags & 2) _text.str_ToLower();
}

namespace {

// The piece [b, e) without leading and trailing white space.
void trim_piece(char const*& b, char const*& e) {
  while (b < e && std::isspace(static_cast<unsigned char>(*b))) ++b;
  while (e > b && std::isspace(static_cast<unsigned char>(e[-1]))) --e;
}

// Relinks the elements of `list` in the given order.
template <class T>
void relink(Chains& list, std::vector<T*> const& order) {
  for (T* t : order) list.UnlinkChain(t);
  for (T* t : order) list.AddChain(t);
}

// Selection by key, earlier element first among equals: exactly a stable sort.
template <class T, class Key>
void sort_list(Chains& list, int how, Key key) {
  std::vector<T*> order;
  order.reserve(list.GetCount());
  for (Chain* c = list.GetFirst(); c; c = c->GetNext()) order.push_back(static_cast<T*>(c));
  auto bytes = [&](T* a, T* b) { return std::strcmp(key(a), key(b)); };
  switch (how) {
    case 0:
      std::stable_sort(order.begin(), order.end(), [&](T* a, T* b) { return bytes(a, b) < 0; });
      break;
    case 1:
      std::stable_sort(order.begin(), order.end(), [&](T* a, T* b) { return bytes(a, b) > 0; });
      break;
    case 2:
      std::stable_sort(order.begin(), order.end(),
                       [&](T* a, T* b) { return std::strlen(key(a)) > std::strlen(key(b)); });
      break;
    default:
      return;
  }
  relink(list, order);
}

}  // namespace

int BisTokens::tkn_add(char const* text, unsigned flags) {
  if (tkn_find(text, (flags & 1) ? 1 : 0)) return 0;
  AddChain(new BisToken(text, flags));
  return 1;
}

int BisTokens::tkn_add(wchar_t const* text, unsigned flags) { return tkn_add(CString8(text).c_str(), flags); }

void BisTokens::tkn_add(BisTokens const* other) {
  if (!other || other == this) return;
  for (BisToken* t = other->GetFirstToken(); t; t = t->GetNext()) tkn_add(t->c_str());
}

BisToken* BisTokens::tkn_find(char const* text, int case_sensitive) const {
  for (BisToken* t = GetFirstToken(); t; t = t->GetNext())
    if (t->tkn_text().Compare(text, case_sensitive != 0)) return t;
  return nullptr;
}

int BisTokens::tkn_find_index(char const* text, int case_sensitive) const {
  int i = 0;
  for (BisToken* t = GetFirstToken(); t; t = t->GetNext(), ++i)
    if (t->tkn_text().Compare(text, case_sensitive != 0)) return i;
  return -1;
}

void BisTokens::tkn_make_lower() {
  for (BisToken* t = GetFirstToken(); t; t = t->GetNext()) t->tkn_text().str_ToLower();
}

void BisTokens::tkn_sort(int how) {
  sort_list<BisToken>(*this, how, [](BisToken* t) { return t->c_str(); });
}

BisToken* BisTokens::tkn_convert_csv(char const* text) {
  Clear();
  if (!text || !*text) return nullptr;
  FileStringA file(text);
  if (file.fs_FileExists()) {
    FileStringA content;
    if (!content.fs_ReadTextFile(text)) return nullptr;
    return tkn_common_convert(content.c_str());
  }
  return tkn_common_convert(text);
}

BisToken* BisTokens::tkn_convert_csv(wchar_t const* text) {
  if (!text) return tkn_convert_csv(static_cast<char const*>(nullptr));
  return tkn_convert_csv(CString8(text).c_str());
}

BisToken* BisTokens::tkn_common_convert(char const* text) {
  GenString list;
  list.Format("%s,", text ? text : "");
  char const* p = list.c_str();
  for (char const* comma; (comma = std::strchr(p, ',')) != nullptr; p = comma + 1) {
    char const* b = p;
    char const* e = comma;
    trim_piece(b, e);
    if (b == e) continue;  // "a,,b": an empty piece names nothing
    GenString piece;
    piece.str_MemDup(b, static_cast<size_t>(e - b));
    tkn_add(piece.c_str());
  }
  // A bare extension in a list means "files of that kind": make it match by extension.
  static char const* const bare[] = {"wss", "ogg", "jpg", "wav", "fsm", "paa", "pac"};
  for (BisToken* t = GetFirstToken(); t;) {
    BisToken* next = t->GetNext();
    for (char const* ext : bare) {
      if (!t->tkn_text().Compare(ext)) continue;
      GenString dotted;
      dotted.Format(".%s", t->c_str());
      if (tkn_find(dotted.c_str()))
        DeleteChain(t);  // ".wss" was listed as well: keep one
      else
        t->tkn_text() = dotted;
      break;
    }
    t = next;
  }
  return GetFirstToken();
}

BisToken* BisTokens::tkn_convert_cat(char const* text) {
  Clear();
  if (!text) return nullptr;
  for (char const* p = text; *p; p += std::strlen(p) + 1) {
    char const* b = p;
    char const* e = p + std::strlen(p);
    trim_piece(b, e);
    if (b == e) continue;
    GenString piece;
    piece.str_MemDup(b, static_cast<size_t>(e - b));
    tkn_add(piece.c_str());
  }
  return GetFirstToken();
}

BisToken* BisTokens::tkn_convert_cat(wchar_t const* text) {
  Clear();
  if (!text) return nullptr;
  // The wide list is also a run of terminated strings ended by an empty one: convert each.
  std::string bytes;
  for (wchar_t const* p = text; *p; p += std::wcslen(p) + 1) {
    bytes += CString8::from_wide(p);
    bytes.push_back('\0');
  }
  bytes.push_back('\0');
  return tkn_convert_cat(bytes.c_str());
}
