// The game's built-in names: the file, a counter, the date and time, dice and the game itself.
// __LINE__, __FILE__, __EVAL and __EXEC come before the text's own macros (RapTextReader.cpp);
// these come after them, so a text that defines one of these names keeps its own meaning.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "config/RapTextReaderImpl.h"

namespace {
enum Builtin : int {
  B_NONE,
  B_FILE_NAME,
  B_FILE_SHORT,
  B_COUNTER,
  B_COUNTER_RESET,
  B_DATE_ARR,
  B_DATE_STR,
  B_DATE_ISO,
  B_TIME,
  B_TIME_UTC,
  B_DAY,
  B_MONTH,
  B_YEAR,
  B_TIMESTAMP,
  B_RAND_I8,
  B_RAND_I16,
  B_RAND_I32,
  B_RAND_I64,
  B_RAND_U8,
  B_RAND_U16,
  B_RAND_U32,
  B_RAND_U64,
  B_GAME,
  B_HAS_INCLUDE,
};

struct Name {
  char const* name;
  Builtin which;
};

// __has_include is listed so that #ifdef knows it; it means something only inside #if.
constexpr Name kNames[] = {
    {"__FILE_NAME__", B_FILE_NAME},   {"__FILE_SHORT__", B_FILE_SHORT},
    {"__COUNTER__", B_COUNTER},       {"__COUNTER_RESET__", B_COUNTER_RESET},
    {"__DATE_ARR__", B_DATE_ARR},     {"__DATE_STR__", B_DATE_STR},
    {"__DATE_STR_ISO8601__", B_DATE_ISO}, {"__TIME__", B_TIME},
    {"__TIME_UTC__", B_TIME_UTC},     {"__DAY__", B_DAY},
    {"__MONTH__", B_MONTH},           {"__YEAR__", B_YEAR},
    {"__TIMESTAMP_UTC__", B_TIMESTAMP}, {"__RAND_INT8__", B_RAND_I8},
    {"__RAND_INT16__", B_RAND_I16},   {"__RAND_INT32__", B_RAND_I32},
    {"__RAND_INT64__", B_RAND_I64},   {"__RAND_UINT8__", B_RAND_U8},
    {"__RAND_UINT16__", B_RAND_U16},  {"__RAND_UINT32__", B_RAND_U32},
    {"__RAND_UINT64__", B_RAND_U64},  {"__ARMA__", B_GAME},
    {"__ARMA3__", B_GAME},            {"__has_include", B_HAS_INCLUDE},
};

Builtin lookup(std::string_view name) {
  if (name.size() < 7 || name[0] != '_' || name[1] != '_') return B_NONE;
  for (Name const& n : kNames)
    if (name == n.name) return n.which;
  return B_NONE;
}

// SOURCE_DATE_EPOCH, when set to a count of seconds, stands for the time of the build.
bool source_date_epoch(long long& seconds) {
  char const* v = std::getenv("SOURCE_DATE_EPOCH");
  if (!v || !*v) return false;
  char* end = nullptr;
  long long n = std::strtoll(v, &end, 10);
  if (*end || n < 0) return false;
  seconds = n;
  return true;
}

std::string two(int v) {
  char b[16];
  std::snprintf(b, sizeof b, "%02d", v);
  return b;
}

std::string clock_text(std::tm const& t) { return two(t.tm_hour) + ":" + two(t.tm_min) + ":" + two(t.tm_sec); }
}  // namespace

bool RapTextReader::Impl::is_builtin(std::string_view name) { return lookup(name) != B_NONE; }

void RapTextReader::Impl::set_clock() {
  if (clock_set) return;
  clock_set = true;
  long long fixed = 0;
  bool reproducible = source_date_epoch(fixed);
  std::time_t now = reproducible ? static_cast<std::time_t>(fixed) : std::time(nullptr);
  epoch = static_cast<long long>(now);
  gmtime_r(&now, &utc);
  // A reproducible build must not depend on the zone it runs in: its local time is UTC too.
  if (reproducible)
    local = utc;
  else
    localtime_r(&now, &local);
  // The dice follow the same rule: the same source date throws the same numbers.
  dice = std::make_unique<std::mt19937_64>(reproducible ? static_cast<uint64_t>(fixed) : std::random_device{}());
}

int RapTextReader::Impl::builtin(Tok& t, Stack& st) {
  Builtin which = lookup(t.text);
  if (which == B_NONE || which == B_HAS_INCLUDE) return 2;
  auto number = [&](long long v) {
    t.kind = TK_NUMBER;
    t.text = std::to_string(v);
    return 1;
  };
  auto quoted = [&](std::string v) {
    t.kind = TK_STRING;
    t.text = std::move(v);
    return 1;
  };
  switch (which) {
    case B_FILE_NAME:
    case B_FILE_SHORT: {
      Source const* f = top_file();
      std::string name = f ? f->name : std::string();
      size_t slash = name.find_last_of("/\\");
      if (slash != std::string::npos) name.erase(0, slash + 1);
      size_t dot = name.rfind('.');
      if (which == B_FILE_SHORT && dot != std::string::npos && dot > 0) name.resize(dot);
      return quoted(std::move(name));
    }
    case B_COUNTER: return number(static_cast<long long>(counter++));
    case B_COUNTER_RESET: counter = 0; return 0;
    case B_GAME: return number(1);
    default: break;
  }
  set_clock();
  std::tm const& l = local;
  switch (which) {
    case B_DATE_ARR: {
      // Six numbers for an array: year, month, day, hour, minute, second.
      char b[64];
      std::snprintf(b, sizeof b, "%d,%d,%d,%d,%d,%d", l.tm_year + 1900, l.tm_mon + 1, l.tm_mday, l.tm_hour, l.tm_min,
                    l.tm_sec);
      int e = push_expansion(st, b, nullptr);
      return e ? e : 0;
    }
    case B_DATE_STR:
      return quoted(std::to_string(l.tm_year + 1900) + "/" + two(l.tm_mon + 1) + "/" + two(l.tm_mday) + ", " +
                    clock_text(l));
    case B_DATE_ISO:
      return quoted(std::to_string(utc.tm_year + 1900) + "-" + two(utc.tm_mon + 1) + "-" + two(utc.tm_mday) + "T" +
                    clock_text(utc) + "Z");
    case B_TIME:
    case B_TIME_UTC: {
      // Unquoted, as the game gives it: hh:mm:ss.
      int e = push_expansion(st, clock_text(which == B_TIME ? l : utc), nullptr);
      return e ? e : 0;
    }
    case B_DAY: return number(l.tm_mday);
    case B_MONTH: return number(l.tm_mon + 1);
    case B_YEAR: return number(l.tm_year + 1900);
    case B_TIMESTAMP: return number(epoch);
    default: break;
  }
  uint64_t roll = (*dice)();
  t.kind = TK_NUMBER;
  switch (which) {
    case B_RAND_I8: t.text = std::to_string(static_cast<int8_t>(roll)); break;
    case B_RAND_I16: t.text = std::to_string(static_cast<int16_t>(roll)); break;
    case B_RAND_I32: t.text = std::to_string(static_cast<int32_t>(roll)); break;
    case B_RAND_I64: t.text = std::to_string(static_cast<int64_t>(roll)); break;
    case B_RAND_U8: t.text = std::to_string(static_cast<uint8_t>(roll)); break;
    case B_RAND_U16: t.text = std::to_string(static_cast<uint16_t>(roll)); break;
    case B_RAND_U32: t.text = std::to_string(static_cast<uint32_t>(roll)); break;
    default: t.text = std::to_string(roll); break;
  }
  return 1;
}
