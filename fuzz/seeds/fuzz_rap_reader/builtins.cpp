@#define GRID			(A / 25)
#define QUOTE(x) #x
#define MAJOR 3
#define MINOR 19
y = SafeZoneY + 1.5 * GRID;
v = MAJOR.MINOR; n = -MAJOR;
q = QUOTE(first;\
        second;);
c = __COUNTER__ __COUNTER__ __COUNTER_RESET__ __COUNTER__; f = __FILE_NAME__ __FILE_SHORT__;
d[] = {__DATE_ARR__}; s = __DATE_STR__ __DATE_STR_ISO8601__ __TIME__ __TIME_UTC__ __DAY__ __MONTH__ __YEAR__ __TIMESTAMP_UTC__;
r = __RAND_INT8__ __RAND_UINT64__;
