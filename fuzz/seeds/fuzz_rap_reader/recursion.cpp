#define A B
#define B A
A
#define D(x) x x
D(D(D(D(D(1)))))
#undef Q
#pragma x
