#pragma once
#include <cstdint>

#include "text/GenString.h"
#include "text/TokenPairs.h"

// One node of a decoded config tree: a name = value pair (the value as text), linked to its next sibling,
// its first child and its enclosing class. Classes keep their parent's name as value; scalars keep
// their text (and their binary value, so nothing is lost to formatting); arrays hold their
// elements as unnamed children, nested arrays as unnamed child arrays.
//
// A node owns its children. The root node is the caller's; it owns the whole tree, and the memory
// of every other node and of their names and values.
class rap_entry : public TokenPair {
 public:
  enum Type : int {
    RPE_CLASS = 0,
    RPE_ARRAY = 2,
    RPE_EXTERN = 3,
    RPE_DELETE = 4,
    RPE_APPEND = 5,  // array "+="
    RPE_STRING = 256,
    RPE_FLOAT = 257,
    RPE_INT = 258,
    RPE_DOUBLE = 261,
    RPE_INT64 = 262,
    RPE_ANY = 263,  // wildcard in lookups
  };

  // A fresh root: an unnamed class.
  rap_entry();
  ~rap_entry() override;
  rap_entry(rap_entry const&) = delete;
  rap_entry& operator=(rap_entry const&) = delete;

  int rpe_GetType() const { return _type; }
  TokenPair& rpe_get_token_pair() { return *this; }
  bool rpe_is_root() const { return !_enclosing; }
  bool rpe_has_externs() const;

  // Binary values of scalars (0 for other types).
  float rpe_get_float() const;
  double rpe_get_double() const;
  int64_t rpe_get_int() const;

  // ---- links ----------------------------------------------------------------
  rap_entry* rpe_get_first_child() const { return _child; }
  rap_entry* rpe_get_next_sibling() const { return _next; }
  rap_entry* rpe_get_enclosing() const { return _enclosing; }
  // The next sibling of the same type.
  rap_entry* rpe_get_next() const;
  uint64_t rpe_count_children() const { return _child_count; }

  // ---- queries --------------------------------------------------------------
  // Child class by name (compared as GenString does, without case); empty or null: first class.
  rap_entry* rpe_get_class(char const* name) const;
  rap_entry* rpe_get_array(char const* name) const;
  // First child with that name and type (RPE_ANY: any type); null name: first child of the type.
  rap_entry* rpe_get_entry(char const* name, int type) const;
  // First element of the named array.
  rap_entry* rpe_get_array_contents(char const* name) const;
  // The class named as this class's parent, found by scope search and cached.
  rap_entry* rpe_find_inherited_class();
  // Scope search from this node's enclosing class outward, through inherited classes. With flag 0
  // the enclosing class's own children are skipped (only its inheritance chain is searched at
  // that first level), so a class that extends a same-named inherited class does not find itself.
  rap_entry* rpe_find_nearest_class(char const* name, int flag);
  rap_entry* rpe_find_nearest_extern(char const* name);
  // The dotted path from the root ("CfgPatches.mine"), without a trailing dot.
  char const* rpe_whoami(GenString& path) const;

  // ---- builders -------------------------------------------------------------
  // Returns the existing child class of that name if there is one (bodies merge).
  rap_entry* rpe_add_class(char const* name, char const* parent);
  rap_entry* rpe_add_extern(char const* name);
  rap_entry* rpe_add_delete(char const* name);
  rap_entry* rpe_add_string(char const* name, char const* value);
  rap_entry* rpe_add_int(char const* name, int32_t value);
  rap_entry* rpe_add_int64(char const* name, int64_t value);
  rap_entry* rpe_add_float(char const* name, float value);
  rap_entry* rpe_add_double(char const* name, double value);
  // Type 2, or 5 for "+=". Elements are added to the returned node with the adders above (null
  // or empty names), nested arrays with rpe_add_array(nullptr, false).
  rap_entry* rpe_add_array(char const* name, bool append);

  // Drops every child.
  void rpe_clear();

 private:
  struct Root;
  struct ClassIndex;
  rap_entry(rap_entry* enclosing, int type, char const* name);
  rap_entry* _append(int type, char const* name);
  rap_entry* _find_scoped(char const* name, int type, int flag);
  rap_entry* _child_of(char const* name, int type) const;
  // The value's text, copied into the tree's own memory.
  void _set_value(char const* text);
  void _set_number(int64_t value);

  rap_entry* _next = nullptr;
  rap_entry* _child = nullptr;
  rap_entry* _last_child = nullptr;
  rap_entry* _enclosing = nullptr;
  Root* _root = nullptr;  // shared by the whole tree, owned by the root node
  ClassIndex* _class_index = nullptr;  // by name, once a class holds many classes
  uint32_t _class_count = 0;
  uint32_t _child_count = 0;  // kept as children come, so the writer need not walk them to count
  rap_entry* _inherited = nullptr;
  bool _inherited_done = false;
  bool _resolving = false;
  int _type = RPE_CLASS;
  union {
    float f;
    double d;
    int64_t i;
  } _bin{};
};
