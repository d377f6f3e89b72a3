#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <utility>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "core/BisCallback.h"
#include "core/BisDLL.h"
#include "core/BisTools.h"
#include "core/DosTimer.h"
#include "core/GenericError.h"
#include "core/GuardedCall.h"
#include "io/BisFileIO.h"

namespace {

// ---- context ------------------------------------------------------------

std::vector<int>& destroyed() {
  static std::vector<int> v;
  return v;
}

// Stands in for a tool: remembers its slot and whether BisTools still existed when it went.
template <int Slot>
struct FakeTool {
  explicit FakeTool(BisDLL* dll) : dll(dll) {}
  ~FakeTool() { destroyed().push_back(dll->dll_HasTool(BisDLL::SLOT_BISTOOLS) ? Slot : -Slot); }
  BisDLL* dll;
};

struct ThrowingTool {
  explicit ThrowingTool(BisDLL*) { throw std::runtime_error("no"); }
};

template <int... Slots>
void fill(BisDLL& dll, std::integer_sequence<int, Slots...>) {
  ((Slots == BisDLL::SLOT_BISTOOLS ? void() : void(dll.dll_slot<FakeTool<Slots>>(Slots))), ...);
}

TEST(BisDLL, CreatesOnlyBisToolsAndHandsOutOneObjectPerSlot) {
  BisDLL dll;
  for (int s = 0; s < BisDLL::SLOT_COUNT; ++s) EXPECT_EQ(dll.dll_HasTool(s), s == BisDLL::SLOT_BISTOOLS) << s;
  BisTools* tools = dll.dll_GetBisTools();
  EXPECT_EQ(tools->bt_GetDll(), &dll);
  EXPECT_TRUE(tools->bt_GetExe(7).empty());
  auto* a = dll.dll_slot<FakeTool<0>>(BisDLL::SLOT_VENDRAK);
  auto* b = dll.dll_slot<FakeTool<1>>(BisDLL::SLOT_KALTOR);
  EXPECT_EQ(dll.dll_slot<FakeTool<0>>(BisDLL::SLOT_VENDRAK), a);
  EXPECT_EQ(dll.dll_slot<FakeTool<1>>(BisDLL::SLOT_KALTOR), b);
  EXPECT_EQ(dll.dll_GetBisTools(), tools);
  EXPECT_EQ(a->dll, &dll);
}

TEST(BisDLL, DestroysInFixedOrderWithBinariserLast) {
  destroyed().clear();
  {
    BisDLL dll;
    fill(dll, std::make_integer_sequence<int, BisDLL::SLOT_COUNT>{});
  }
  // Slot numbers; negative once BisTools (slot 11) had already gone.
  std::vector<int> want = {0, 1, 2, 3, 4, 5, 6, 7, 9, 10, -8};
  EXPECT_EQ(destroyed(), want);
}

TEST(BisDLL, ThrowingConstructorLeavesSlotEmpty) {
  BisDLL dll;
  EXPECT_THROW(dll.dll_slot<ThrowingTool>(BisDLL::SLOT_MORVANE), std::runtime_error);
  EXPECT_FALSE(dll.dll_HasTool(BisDLL::SLOT_MORVANE));
}

TEST(BisDLL, Version) {
  EXPECT_FLOAT_EQ(BisDLL::dll_GetVersion(), 6.54f);
  EXPECT_STREQ(BisDLL::dll_GetVersionStr(), "6.54");
}

// ---- result codes ---------------------------------------------------------

TEST(GenericError, Messages) {
  struct Case {
    int code;
    char const* text;
  } cases[] = {
      {0, "No Error(s)"},
      {1, "Generic error or premature EOF"},
      {2, "Out of memory"},
      {3, "invalid file"},
      {-3, "invalid file"},
      {4, "debug trap (you shouldn't see this)"},
      {5, "Internally generated code bug detection"},
      {6, "cannot write to file"},
      {7, "residual bytes in file"},
      {8, "the dll recieved an unknown exception trap"},
      {-9, "User cancelled"},
      {10, "dll Unknown throw Error"},
      {10000, "dll Unknown throw Error"},
      {-10000, "dll Unknown throw Error"},
      {INT_MIN, "dll Unknown throw Error"},
  };
  for (auto const& c : cases) EXPECT_STREQ(GenericError::ErrorString(c.code), c.text) << c.code;
  EXPECT_EQ(GenericError::caught(GE_RESIDUAL_BYTES), 7);
}

// ---- the guarded call -------------------------------------------------------

std::string g_err;
bool err_sink(char const* format, ...) {
  char buf[1024];
  va_list ap;
  va_start(ap, format);
  std::vsnprintf(buf, sizeof buf, format, ap);
  va_end(ap);
  g_err += buf;
  return true;
}
bool cancel_sink(char const*, ...) { throw GE_USER_CANCELLED; }

enum PboErrors : int { PBO_FIRST_OWN = 10, PBO_BAD_HEADER = 17 };

TEST(GuardedCall, MapsEveryKindOfFailureToItsCode) {
  struct Case {
    char const* what;
    std::function<int()> work;
    int code;
    char const* reported;
  } cases[] = {
      {"normal", [] { return 0; }, 0, ""},
      {"own result", [] { return 42; }, 42, ""},
      {"generic", []() -> int { throw GE_INVALID_FILE; }, 3, ""},
      {"tool's own", []() -> int { throw PBO_BAD_HEADER; }, 17, ""},
      {"message", []() -> int { throw "bad thing"; }, 31, "bad thing\r\n"},
      {"mutable message", []() -> int { static char t[] = "bad\nline"; throw static_cast<char*>(t); }, 31,
       "bad\r\nline\r\n"},
      {"composed message", []() -> int { bis_throw_message("entry %d of %s", 4, "x.pbo"); }, 31,
       "entry 4 of x.pbo\r\n"},
      {"other exception", []() -> int { throw std::runtime_error("x"); }, 23, ""},
      {"plain int", []() -> int { throw 5; }, 23, ""},
  };
  for (auto const& c : cases) {
    BisFileIO io;
    io.io_SetErrCallBack(err_sink);
    g_err.clear();
    EXPECT_EQ(bis_guarded_call<PboErrors>(io, 31, 23, c.work), c.code) << c.what;
    EXPECT_EQ(g_err, c.reported) << c.what;
  }
}

TEST(GuardedCall, ToolsWithoutOwnCodesAndCancelWhileReporting) {
  BisFileIO io;
  EXPECT_EQ(bis_guarded_call<Generic_Errors>(io, 5, GE_UNKNOWN_EXCEPTION, []() -> int { throw 1.5; }), 8);
  EXPECT_EQ(bis_guarded_call<NoToolErrors>(io, 5, 8, []() -> int { throw GE_EOF; }), 1);
  io.io_SetErrCallBack(cancel_sink);
  EXPECT_EQ(bis_guarded_call<PboErrors>(io, 31, 23, []() -> int { throw "x"; }), 9);
}

// ---- cancelling from the console ---------------------------------------------

// Puts a pseudo-terminal on standard input for the test's duration.
class FakeConsole {
 public:
  FakeConsole() {
    _master = posix_openpt(O_RDWR | O_NOCTTY);
    if (_master < 0 || grantpt(_master) != 0 || unlockpt(_master) != 0) return;
    _slave = open(ptsname(_master), O_RDWR | O_NOCTTY);
    _saved = dup(STDIN_FILENO);
    dup2(_slave, STDIN_FILENO);
  }
  ~FakeConsole() {
    if (_saved >= 0) dup2(_saved, STDIN_FILENO), close(_saved);
    if (_slave >= 0) close(_slave);
    if (_master >= 0) close(_master);
  }
  bool ok() const { return _slave >= 0 && isatty(STDIN_FILENO); }
  void type(char const* keys) { EXPECT_GT(write(_master, keys, strlen(keys)), 0); }
  int pending() const {
    int n = 0;
    ioctl(STDIN_FILENO, FIONREAD, &n);
    return n;
  }

 private:
  int _master = -1, _slave = -1, _saved = -1;
};

// The pty hands typed keys over asynchronously: poll the callback, as a long operation would.
int emit_until_consumed(BisFileIO& io, FakeConsole& con) {
  return bis_guarded_call<NoToolErrors>(io, 5, 8, [&] {
    for (int i = 0; i < 5000 && con.pending(); ++i) io.io_callback("progress %d\n", i);
    return con.pending() ? -1 : 0;
  });
}

TEST(DefaultCallback, EscapeCancelsOtherKeysAreSwallowed) {
  FakeConsole con;
  if (!con.ok()) GTEST_SKIP() << "no pseudo-terminal";
  termios t;
  tcgetattr(STDIN_FILENO, &t);
  t.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  tcsetattr(STDIN_FILENO, TCSANOW, &t);
  BisFileIO io;  // no callback installed
  con.type("x");
  for (int i = 0; i < 5000 && !con.pending(); ++i) usleep(1000);
  EXPECT_EQ(emit_until_consumed(io, con), 0);
  con.type("\x1b");
  for (int i = 0; i < 5000 && !con.pending(); ++i) usleep(1000);
  EXPECT_EQ(emit_until_consumed(io, con), 9);
}

TEST(DefaultCallback, SilentWithoutConsole) {
  if (isatty(STDIN_FILENO)) GTEST_SKIP();
  EXPECT_TRUE(bis_default_callback("%s", "anything"));
}

TEST(DosTimer, ReportsWholeSeconds) {
  DosTimer t;
  testing::internal::CaptureStderr();
  t.PrintTimeDiff();
  std::string out = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(out == "Elapsed : 0 secs\n" || out == "Elapsed : 1 secs\n") << out;
}

}  // namespace
