 #define A 1
#define B -2
#define GT(a,b) a > b
#if A && !(B == 2) || (A != 0 && GT(3, B)) <= 1
x = 1;
#else
#if __has_include("\x\nowhere.hpp") || __has_include(<a.h>)
y = 2;
#endif
#endif
#ifdef __ARMA3__
z = __ARMA__;
#endif
#if 0
#if (
#endif
#endif
#elif 1
