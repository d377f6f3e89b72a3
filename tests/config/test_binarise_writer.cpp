#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "DecodeHelpers.h"
#include "config/Sembric.h"

namespace fs = std::filesystem;

namespace {
using T = rap_entry;

Bytes output(Sembric* s, int flags) {
  Bytes out;
  EXPECT_EQ(s->rap_Output(out, flags), 0);
  return out;
}

// Every kind of node the format holds, with the texts that trip string writers up.
void fill(Sembric* s) {
  T* patches = s->rap_add_class("CfgPatches", nullptr);
  T* addon = patches->rpe_add_class("mine", nullptr);
  addon->rpe_add_array("units", false);
  addon->rpe_add_float("requiredVersion", 1.5f);
  addon->rpe_add_string("author", "say \"hi\"\nnext line");
  T* derived = s->rap_add_class("Derived", "CfgPatches");
  derived->rpe_add_int("i", -7);
  derived->rpe_add_int64("l", int64_t{1} << 40);
  derived->rpe_add_double("d", 0.1);
  derived->rpe_add_string("author", "say \"hi\"\nnext line");  // the same text again: indexed once
  T* a = derived->rpe_add_array("mixed", false);
  a->rpe_add_string(nullptr, "mine");
  a->rpe_add_float(nullptr, -0.0f);
  T* inner = a->rpe_add_array(nullptr, false);
  inner->rpe_add_int(nullptr, 3);
  inner->rpe_add_array(nullptr, false);
  derived->rpe_add_array("items", true)->rpe_add_string(nullptr, "x");
  derived->rpe_add_class("Empty", nullptr);
  s->rap_get_root()->rpe_add_extern("Outside");
  s->rap_get_root()->rpe_add_delete("Gone");
  s->rap_add_enum("First", 0);
  s->rap_add_enum(nullptr, 1);
}

TEST(BinariseWriter, EveryNodeKindSurvivesTheDecoderInBothDialects) {
  for (int flags : {0, Sembric::RAPO_ARMA}) {
    BisDLL dll;
    Sembric* s = dll.dll_GetRap();
    fill(s);
    Bytes first = output(s, flags);
    // Read back through the decoder and written again, the bytes must not move.
    ASSERT_EQ(s->rap_Create("x.bin", 0, nullptr, reinterpret_cast<char const*>(first.data()),
                            static_cast<unsigned>(first.size())),
              0);
    EXPECT_EQ(output(s, flags), first) << "flags " << flags;
    Decoded d = decode(first);
    ASSERT_EQ(d.code, 0) << d.messages;
    EXPECT_NE(d.text.find("author = \"say \"\"hi\"\"\" \\n \"next line\";"), std::string::npos) << d.text;
    EXPECT_NE(d.text.find("items[] += {\"x\"};"), std::string::npos);
    EXPECT_NE(d.text.find(flags ? "\tOrdinalEnum = 1\r\n" : "\t,\t//1\r\n"), std::string::npos) << d.text;
  }
}

TEST(BinariseWriter, ExactLayout) {
  struct Case {
    char const* what;
    void (*build)(Sembric*);
    int flags;
    Bytes expected;
  };
  auto u32 = [](uint32_t v) { return Bytes{uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)}; };
  auto cat = [](std::initializer_list<Bytes> parts) {
    Bytes b;
    for (auto const& p : parts) b.insert(b.end(), p.begin(), p.end());
    return b;
  };
  Bytes arma_head = {0, 'r', 'a', 'P', 0, 0, 0, 0, 8, 0, 0, 0};
  Case cases[] = {
      {"nested bodies follow depth first, end words cover the subtree; empty bodies are 00 00 and the end word",
       [](Sembric* s) {
         s->rap_add_class("A", nullptr)->rpe_add_class("B", nullptr);
         s->rap_add_class("C", nullptr);
       },
       Sembric::RAPO_ARMA,
       cat({arma_head, u32(61), {0, 2, 0, 'A', 0}, u32(36), {0, 'C', 0}, u32(55), u32(61),
            {0, 1, 0, 'B', 0}, u32(49), u32(55), {0, 0}, u32(55), {0, 0}, u32(61), u32(0)})},
      {"OFP: the root inline, texts indexed on first use, parent names plain",
       [](Sembric* s) {
         T* a = s->rap_add_class("A", "A");
         a->rpe_add_string("A", "A");
         s->rap_add_enum("OrdinalEnum", 0);
       },
       0,
       cat({{0, 'r', 'a', 'P', 4, 0, 0, 0, 0, 0, 0, 1}, {0, 1, 'A', 0, 'A', 0, 1}, {1, 0, 1, 1}, u32(1), {0},
            u32(0)})},
  };
  for (auto const& c : cases) {
    BisDLL dll;
    Sembric* s = dll.dll_GetRap();
    c.build(s);
    EXPECT_EQ(output(s, c.flags), c.expected) << c.what;
  }
}

TEST(BinariseWriter, CountsBeyondSevenBitsTakeMoreBytes) {
  for (int n : {127, 128, 16384}) {
    BisDLL dll;
    Sembric* s = dll.dll_GetRap();
    T* c = s->rap_add_class("C", nullptr);
    for (int i = 0; i < n; ++i) c->rpe_add_int(("v" + std::to_string(i)).c_str(), i);
    Bytes out = output(s, Sembric::RAPO_ARMA);
    auto count = out.begin() + 30;  // C's body: behind the head, the root body and C's parent name
    Bytes want = n == 127 ? Bytes{0x7F} : n == 128 ? Bytes{0x80, 0x01} : Bytes{0x80, 0x80, 0x01};
    EXPECT_EQ(Bytes(count, count + static_cast<long>(want.size())), want) << n;
  }
}

TEST(BinariseWriter, RefusalsAndUnwritableFiles) {
  BisDLL dll;
  Sembric* s = dll.dll_GetRap();
  std::string out = ::testing::TempDir() + "sembric_" + std::to_string(getpid()) + ".bin";
  EXPECT_EQ(s->rap_Output(out.c_str(), Sembric::RAPO_ARMA), RAPMSG_NO_CLASSES);
  s->rap_add_class("A", nullptr);
  EXPECT_EQ(s->rap_Output((out + ".d/no/such.bin").c_str(), 1), RAPMSG_CANNOT_WRITE);
  EXPECT_EQ(s->rap_Output(out.c_str(), Sembric::RAPO_ARMA), 0);
  EXPECT_EQ(fs::file_size(out), 39u);
  fs::remove(out);
}

TEST(BinariseWriter, BrokenBinarisedInputIsPrebinarisedError) {
  BisDLL dll;
  Sembric* s = dll.dll_GetRap();
  g_msgs.clear();
  Bytes bad = {0, 'r', 'a', 'P', 0, 0, 0, 0, 8, 0, 0, 0, 16, 0, 0, 0, 0, 1, 9};
  EXPECT_EQ(s->rap_Create("bad.bin", 0, capture_msg, reinterpret_cast<char const*>(bad.data()),
                          static_cast<unsigned>(bad.size())),
            RAPMSG_PREBINARISED);
  EXPECT_NE(g_msgs.find("PreBinarised error=Kaltor: Unknown Entry type\r\n"), std::string::npos) << g_msgs;
  EXPECT_EQ(s->rap_get_root(), nullptr);
}
}  // namespace
