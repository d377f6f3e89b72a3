#include "core/BisDLL.h"

#include "core/BisTools.h"

BisDLL::BisDLL() : _table(new Entry[SLOT_COUNT]) {
  try {
    dll_GetBisTools();
  } catch (...) {
    delete[] _table;
    _table = nullptr;
    throw;
  }
}

BisDLL::~BisDLL() {
  if (!_table) return;
  // The binariser goes last: the other tools may still hand work to it while they shut down.
  static constexpr int order[] = {SLOT_VENDRAK, SLOT_KALTOR,  SLOT_GLYVARD, SLOT_LORVIX,
                                  SLOT_GRINDEL, SLOT_MORVANE, SLOT_TESSAK,  SLOT_HOLLIN,
                                  SLOT_KINTER,  SLOT_SONMAR,  SLOT_BISTOOLS, SLOT_SEMBRIC};
  for (int slot : order) {
    Entry& e = _table[slot];
    if (e.object) {
      e.destroy(e.object);
      e.object = nullptr;
    }
  }
  delete[] _table;
  _table = nullptr;
}

BisTools* BisDLL::dll_GetBisTools() { return dll_slot<BisTools>(SLOT_BISTOOLS); }

float BisDLL::dll_GetVersion() { return 6.54f; }
char const* BisDLL::dll_GetVersionStr() { return "6.54"; }
