#define MAJOR 3
#define MINOR 19
#define VERSION MAJOR.MINOR
#define GRID			(A / 25)
#define QUOTE(x) #x
class CfgPatches { class a { version = VERSION; n = -MAJOR; units[] = {}; y = 1.5 * GRID;
#if __has_include("\x\cba\addons\main\script_component.hpp")
  cba = 1;
#else
  cba = 0;
#endif
#if MAJOR > 2 && MINOR >= 19
  q = QUOTE(a    b); arr[] = {MAJOR.MINOR, __COUNTER__, __ARMA3__};
#endif
}; };
