#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <stdexcept>
#include <utility>
#include <vector>

#include "core/BisDLL.h"
#include "core/BisTools.h"
#include "core/GenericError.h"
#include "core/GuardedCall.h"
#include "io/BisFileIO.h"
#include "io/BisFileIO_test_util.h"

namespace {

std::vector<int> g_destroyed;

// Stands in for a tool: logs its slot when destroyed, negated once BisTools had already gone.
template <int Slot>
struct FakeTool {
  explicit FakeTool(BisDLL* dll) : dll(dll) {}
  ~FakeTool() { g_destroyed.push_back(dll->dll_HasTool(BisDLL::SLOT_BISTOOLS) ? Slot : -Slot); }
  BisDLL* dll;
};

struct ThrowingTool {
  explicit ThrowingTool(BisDLL*) { throw std::runtime_error("no"); }
};

template <int... Slots>
void fill(BisDLL& dll, std::integer_sequence<int, Slots...>) {
  ((Slots == BisDLL::SLOT_BISTOOLS ? void() : void(dll.dll_slot<FakeTool<Slots>>(Slots))), ...);
}

TEST(BisDLL, OneObjectPerSlotCreatedOnDemand) {
  BisDLL dll;
  for (int s = 0; s < BisDLL::SLOT_COUNT; ++s) EXPECT_EQ(dll.dll_HasTool(s), s == BisDLL::SLOT_BISTOOLS) << s;
  BisTools* tools = dll.dll_GetBisTools();
  EXPECT_EQ(tools->bt_GetDll(), &dll);
  auto* a = dll.dll_slot<FakeTool<0>>(BisDLL::SLOT_VENDRAK);
  dll.dll_slot<FakeTool<1>>(BisDLL::SLOT_KALTOR);
  EXPECT_EQ(dll.dll_slot<FakeTool<0>>(BisDLL::SLOT_VENDRAK), a);
  EXPECT_EQ(dll.dll_GetBisTools(), tools);
  EXPECT_THROW(dll.dll_slot<ThrowingTool>(BisDLL::SLOT_MORVANE), std::runtime_error);
  EXPECT_FALSE(dll.dll_HasTool(BisDLL::SLOT_MORVANE));
  EXPECT_STREQ(BisDLL::dll_GetVersionStr(), "6.54");
  EXPECT_FLOAT_EQ(BisDLL::dll_GetVersion(), 6.54f);
}

TEST(BisDLL, DestroysInFixedOrderWithBinariserLast) {
  g_destroyed.clear();
  {
    BisDLL dll;
    fill(dll, std::make_integer_sequence<int, BisDLL::SLOT_COUNT>{});
  }
  EXPECT_EQ(g_destroyed, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 9, 10, -8}));
}

TEST(GenericError, Messages) {
  std::pair<int, char const*> cases[] = {{0, "No Error(s)"}, {-3, "invalid file"},  // negated codes too
                                         {8, "the dll recieved an unknown exception trap"}, {9, "User cancelled"},
                                         {10, "dll Unknown throw Error"}, {INT_MIN, "dll Unknown throw Error"}};
  for (auto const& [code, text] : cases) EXPECT_STREQ(GenericError::ErrorString(code), text) << code;
}

enum PboErrors : int { PBO_BAD_HEADER = 17 };
bool cancel_sink(char const*, ...) { throw GE_USER_CANCELLED; }

TEST(GuardedCall, MapsEveryKindOfFailureToItsCode) {
  static char mutable_text[] = "bad\nline";
  struct { char const* what; std::function<int()> work; int code; char const* reported; } cases[] = {
      {"normal", [] { return 42; }, 42, ""},
      {"generic", []() -> int { throw GE_INVALID_FILE; }, 3, ""},
      {"tool's own", []() -> int { throw PBO_BAD_HEADER; }, 17, ""},
      {"message", []() -> int { throw "bad thing"; }, 31, "bad thing\r\n"},
      {"char*", []() -> int { throw static_cast<char*>(mutable_text); }, 31, "bad\r\nline\r\n"},
      {"composed", []() -> int { bis_throw_message("entry %d of %s", 4, "x.pbo"); }, 31, "entry 4 of x.pbo\r\n"},
      {"other", []() -> int { throw std::runtime_error("x"); }, 23, ""},
      {"int", []() -> int { throw 5; }, 23, ""},
  };
  for (auto const& c : cases) {
    BisFileIO io;
    io.io_SetErrCallBack(capture_err);
    clear_captured();
    EXPECT_EQ(bis_guarded_call<PboErrors>(io, 31, 23, c.work), c.code) << c.what;
    EXPECT_EQ(g_errs, c.reported) << c.what;
  }
  BisFileIO io;
  EXPECT_EQ(bis_guarded_call<Generic_Errors>(io, 5, GE_UNKNOWN_EXCEPTION, []() -> int { throw 1.5; }), 8);
  io.io_SetErrCallBack(cancel_sink);  // Escape while the message is shown
  EXPECT_EQ(bis_guarded_call<PboErrors>(io, 31, 23, []() -> int { throw "x"; }), 9);
}

// A pseudo-terminal on standard input for the test's duration, in character mode.
struct FakeConsole {
  int master = posix_openpt(O_RDWR | O_NOCTTY), slave = -1, saved = -1;
  FakeConsole() {
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) return;
    slave = open(ptsname(master), O_RDWR | O_NOCTTY);
    saved = dup(STDIN_FILENO);
    dup2(slave, STDIN_FILENO);
    termios t;
    tcgetattr(STDIN_FILENO, &t);
    t.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    tcsetattr(STDIN_FILENO, TCSANOW, &t);
  }
  ~FakeConsole() {
    if (saved >= 0) dup2(saved, STDIN_FILENO), close(saved);
    if (slave >= 0) close(slave);
    if (master >= 0) close(master);
  }
  int pending() const {
    int n = 0;
    ioctl(STDIN_FILENO, FIONREAD, &n);
    return n;
  }
  // Types a key and lets an operation emit progress (default callback) until the key is read.
  int type_during_operation(char const* key) {
    EXPECT_EQ(write(master, key, 1), 1);
    for (int i = 0; i < 5000 && !pending(); ++i) usleep(1000);  // the pty delivers asynchronously
    BisFileIO io;
    return bis_guarded_call<NoToolErrors>(io, 5, 8, [&] {
      for (int i = 0; i < 5000 && pending(); ++i) io.io_callback("progress %d\n", i);
      return pending() ? -1 : 0;
    });
  }
};

TEST(DefaultCallback, EscapeCancelsOtherKeysAreSwallowed) {
  FakeConsole con;
  if (con.slave < 0 || !isatty(STDIN_FILENO)) GTEST_SKIP() << "no pseudo-terminal";
  EXPECT_EQ(con.type_during_operation("x"), 0);
  EXPECT_EQ(con.type_during_operation("\x1b"), 9);
}

TEST(CommandLine, Version) {
  std::string out, cmd = std::string(VENDRAK_CLI_PATH) + " --version";
  FILE* p = popen(cmd.c_str(), "r");
  for (int c; p && (c = std::fgetc(p)) != EOF;) out += char(c);
  EXPECT_EQ(p ? pclose(p) : -1, 0);
  EXPECT_EQ(out, "vendrak 6.54\n");
}

}  // namespace
