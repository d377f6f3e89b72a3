class A {
 class B: A {};
 x[] = {{{{}}}};
};;
