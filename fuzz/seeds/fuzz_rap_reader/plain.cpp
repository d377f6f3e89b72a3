enum { a, b = 3 };
class C: B { delete X; class D; v = -1; s = "x""y"; };
