#define QUOTE(x) #x
#define ADD(a,b) a##b
#ifdef NOPE
class Skipped {};
#else
class ADD(My,Class) { text = QUOTE(hello); n = __LINE__; e = __EVAL(1 + 2 * 3); };
#endif
class Old { init = _this exec {\x\y.sqs}; a[] = {,db-10,1}; x = 1
};
