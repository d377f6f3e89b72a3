#pragma once
#include <new>

class Vendrak;
class Kaltor;
class Glyvard;
class Lorvix;
class Grindel;
class Morvane;
class Tessak;
class Hollin;
class Sembric;
class KinterNew;
class BisSound;
class BisTools;

// The library context: owns one object of each tool, created on first request and destroyed with
// the context in a fixed order. Tools reach their siblings only through the context they were
// built with.
class BisDLL {
 public:
  enum Slot : int {
    SLOT_VENDRAK = 0, SLOT_KALTOR, SLOT_GLYVARD, SLOT_LORVIX, SLOT_GRINDEL, SLOT_MORVANE,
    SLOT_TESSAK, SLOT_HOLLIN, SLOT_SEMBRIC, SLOT_KINTER, SLOT_SONMAR, SLOT_BISTOOLS, SLOT_COUNT
  };

  BisDLL();
  ~BisDLL();
  BisDLL(BisDLL const&) = delete;
  BisDLL& operator=(BisDLL const&) = delete;

  // Each getter is defined beside its tool class, so the context does not depend on every format.
  Vendrak* dll_GetVendrak();
  Kaltor* dll_GetKaltor();
  Glyvard* dll_GetGlyvard();
  Lorvix* dll_GetLorvix();
  Grindel* dll_GetGrindel();
  Morvane* dll_GetMorvane();
  Tessak* dll_GetTessak();
  Hollin* dll_GetHollin();
  Sembric* dll_GetRap();
  KinterNew* dll_GetKinter();
  BisSound* dll_GetSonmar();
  BisTools* dll_GetBisTools();

  static float dll_GetVersion();
  static char const* dll_GetVersionStr();

  // Whether a slot holds a tool (for tests and diagnostics).
  bool dll_HasTool(int slot) const { return _table && slot >= 0 && slot < SLOT_COUNT && _table[slot].object; }

  // Shared by the getters: create the tool of a slot on first use. A throwing constructor leaves
  // the slot empty and passes the exception on.
  template <class Tool>
  Tool* dll_slot(int slot) {
    Entry& e = _table[slot];
    if (!e.object) {
      Tool* t = new Tool(this);
      e.object = t;
      e.destroy = [](void* p) { delete static_cast<Tool*>(p); };
    }
    return static_cast<Tool*>(e.object);
  }

 private:
  struct Entry {
    void* object = nullptr;
    void (*destroy)(void*) = nullptr;
  };
  Entry* _table = nullptr;
};
