#pragma once
#include <string>
#include <vector>

class BisFileIO;
class Sembric;
class Vendrak;
class rap_entry;

// Checks, and where it can repairs, the content of an addon's config.cpp on its built tree: the
// addon's units[] and weapons[] lists, its terrain declarations in cfgWorlds and the surface clutter
// tables those terrains use. Faults are reported through the binariser's callbacks; the result is 0
// or a message number (53 terrain name, 56 clutter, 57 units), or the status of a warning made an
// error.
//
// Which classes a rebuilt units[] or weapons[] lists: the classes of cfgVehicles (cfgWeapons)
// whose scope is protected or public (1 or 2). A class's scope is its own, else that of the nearest
// class of its inheritance chain inside this config that states one; a class whose chain states
// none inherits from another addon and is listed (retextures of public classes are the common
// case). cfgAmmo and cfgMagazines are never listed.
class ConfigChecks {
 public:
  // `pbo`, the archive being built, is not consulted yet: the lists come from the config alone.
  ConfigChecks(Sembric& rap, Vendrak* pbo);

  // Every check in turn; the first fault's number, though every check runs and reports.
  int cc_run();
  int cc_units();
  int cc_required_addons();
  int cc_worlds();
  // Tolerance of the probability sum: float probabilities that add up to 1 on paper may not in bits.
  static constexpr double kProbabilitySlack = 1e-5;

 private:
  int _clutter(rap_entry& world);
  int _rebuild(rap_entry& addon, char const* list, char const* from);
  rap_entry* _addon();
  void _add_world(rap_entry& world);

  Sembric& _rap;
  BisFileIO& _io;
  rap_entry& _root;
};
