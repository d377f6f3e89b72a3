#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <tuple>

#include "DecodeHelpers.h"

namespace {

TEST(KaltorText, LayoutOfEveryEntryKind) {
  std::pair<ClsPtr, char const*> const cases[] = {
      {cls("", {cls("A")}), "class A{};\r\n"},
      {cls("", {cls("B", {}, "A")}), "class B: A{};\r\n"},
      {cls("", {cls("A", {v_i("x", -7)})}), "class A\r\n{\r\n\tx = -7;\r\n};\r\n"},
      {cls("", {cls("A", {cls("B", {v_i("x", 1)}, "C")})}),
       "class A\r\n{\r\n\tclass B: C\r\n\t{\r\n\t\tx = 1;\r\n\t};\r\n};\r\n"},
      {cls("", {v_str("s", "say \"hi\"\nbye")}), "s = \"say \"\"hi\"\"\" \\n \"bye\";\r\n"},
      {cls("", {v_str("s", "")}), "s = \"\";\r\n"},
      {cls("", {v_f("f", 0.1f), v_f("g", 2.0f)}), "f = 0.1;\r\ng = 2.0;\r\n"},
      {cls("", {v_d("d", 1.0 / 3), v_l("l", -9000000000LL)}), "d = 0.3333333333333333;\r\nl = -9000000000;\r\n"},
      {cls("", {v_i("lo", INT_MIN), v_i("hi", INT_MAX)}), "lo = -2147483648;\r\nhi = 2147483647;\r\n"},
      {cls("", {arr("a", {e_i(1), e_str("x"), e_f(2.5f)})}), "a[] = {1,\"x\",2.5};\r\n"},
      {cls("", {arr("e", {})}), "e[] = {};\r\n"},
      {cls("", {arr("n", {e_arr({e_i(1), e_arr({e_d(2)})}), e_arr({})})}), "n[] = {{1,{2.0}},{}};\r\n"},
      {cls("", {arr("p", {e_l(5)}, true)}), "p[] += {5};\r\n"},
      {cls("", {ext("E"), del("D")}), "class E;\r\ndelete D;\r\n"},
      {cls("", {v_i("x", 1)}, "Base"), ": Base\r\nx = 1;\r\n"},
  };
  for (auto const& [root, expected] : cases) {
    Decoded d = decode(arma(root));
    EXPECT_EQ(d.code, 0) << expected;
    EXPECT_EQ(d.body, expected);
  }
  EXPECT_EQ(decode(arma(cls("", {cls("A", {cls("B", {v_i("x", 1)})})})), false).body,
            "class A\r\n{\r\n class B\r\n {\r\n  x = 1;\r\n };\r\n};\r\n");
  // Arrays broken every two elements; a one-element array stays on its line.
  Bytes b = arma(cls("", {cls("C", {arr("a", {e_i(1), e_i(2), e_arr({e_i(3), e_i(4)})}), arr("one", {e_i(5)})})}));
  EXPECT_EQ(decode(b, true, 2).body,
            "class C\r\n{\r\n\ta[] =\r\n\t{\r\n\t\t1,2,\r\n\t\t{3,4}\r\n\t};\r\n\tone[] = {5};\r\n};\r\n");
}

TEST(KaltorText, ArmaEnumsPrecedeClasses) {
  Enums e{{"a", 1}, {"  ", -2}};
  Decoded d = decode(arma(cls("", {v_i("x", 1)}), &e));
  EXPECT_EQ(d.code, 0);
  EXPECT_EQ(d.body, "//(2 Enums)\r\nenum {\r\n\ta = 1,\r\n\tOrdinalEnum = -2\r\n};\r\n\r\nx = 1;\r\n");
  e.clear();
  EXPECT_EQ(decode(arma(cls("", {v_i("x", 1)}), &e)).body, "x = 1;\r\n");
}

TEST(KaltorText, OfpIndexedStringsAndOrdinalEnums) {
  OfpWriter w;
  w.cls("", 4);
  w.v_i("version", 13);
  w.v_str("mode", "ARCADE");
  w.cls("Inner", 2, "Base");
  w.v_str("mode", "mode");  // both the name and the value come from the index
  w.arr_str("list", {"ARCADE", "x"});
  w.cls("Empty", 0);
  put_enums(w.b, {{"b", 1}, {"a", 0}});
  Decoded d = decode(w.b);
  ASSERT_EQ(d.code, 0) << d.messages;
  EXPECT_NE(d.text.find("#define _OFP_\r\n\r\n"), std::string::npos);
  EXPECT_EQ(d.body,
            "//(2 Enums)\r\nenum {\r\n\ta,\t//0\r\n\tb,\t//1\r\n};\r\n"
            "//class  {\r\nversion = 13;\r\nmode = \"ARCADE\";\r\nclass Inner: Base {\r\n\tmode = \"mode\";\r\n"
            "\tlist[] = {\"ARCADE\",\"x\"};\r\n};\r\nclass Empty {};\r\n//};\r\n");
}

Bytes with(Bytes b, size_t at, uint32_t v) {
  put_at(b, at, v);
  return b;
}
Bytes edited(Bytes b, auto edit) {
  edit(b);
  return b;
}
ClsPtr nest(int depth) {
  ClsPtr c = cls("leaf");
  for (int i = 0; i < depth; ++i) c = cls("c", {c});
  return cls("", {c});
}
Bytes deep_array(int depth) {
  Bytes e = e_i(1);
  for (int i = 0; i < depth; ++i) e = e_arr({e});
  return arma(cls("", {arr("a", {e})}));
}
Bytes ofp_enums(Enums const& e) {
  OfpWriter w;
  w.cls("", 0);
  put_enums(w.b, e);
  return w.b;
}

TEST(KaltorText, FaultsGiveTheirCodes) {
  Enums e{{"a", 1}};
  Bytes two = arma(cls("", {cls("A", {v_i("x", 1)}), cls("B")}));
  uint32_t body_a;
  std::memcpy(&body_a, &two[21], 4);
  // Root body at 16: parent "" (16), count (17), class A: type (18), "A" (19-20), offset (21-24).
  std::tuple<char const*, Bytes, int, char const*> const cases[] = {  // what, bytes, code, message
      {"six bytes", Bytes{0, 'r', 'a', 'P', 0, 0}, 100, ""},
      {"no signature", Bytes{0, 'r', 'a', 'X', 0, 0, 0, 0, 8, 0, 0, 0, 0, 0}, 100, ""},
      {"entry type 6", arma(cls("", {Bytes{6}})), 10, ""},
      {"value subtype 4", arma(cls("", {Bytes{1, 4, 'x', 0, 0, 0, 0, 0}})), 10, ""},
      {"element subtype 4", arma(cls("", {arr("a", {Bytes{4}})})), 11, ""},
      {"unnamed array", arma(cls("", {arr("", {})})), 12, ""},
      {"named nested array", arma(cls("", {Bytes{1, 3, 'x', 0, 0}})), 13, ""},
      {"unnamed value", arma(cls("", {v_i("", 1)})), 14, ""},
      {"cut inside a value", edited(arma(cls("", {v_i("x", 1)})), [](Bytes& b) { b.erase(b.end() - 7, b.end()); }), 1, ""},
      {"residual bytes", edited(arma(cls("", {}), &e), [](Bytes& b) { b.push_back(0); }), 7, ""},
      {"enum offset beyond the end", with(arma(cls("", {})), 12, 9999), 7, ""},
      {"body outside the file", with(arma(cls("", {cls("A")})), 21, 100000), 3, "lies outside the file"},
      {"body is the root body", with(arma(cls("", {cls("A")})), 21, 16), 3, "points back"},
      {"body is its own entry", with(arma(cls("", {cls("A")})), 21, 18), 3, "points back"},
      {"two classes, one body", with(two, 28, body_a), 3, "points back"},
      {"classes nested too deep", arma(nest(Kaltor::kMaxDepth + 5)), 3, "deeper than"},
      {"arrays nested too deep", deep_array(Kaltor::kMaxDepth + 5), 3, "deeper than"},
      {"ofp enum beyond the count", ofp_enums({{"a", 0}, {"b", 5}}), 7, "enum 1  (5) exceeds defcount\r\n"},
      {"ofp negative enum", ofp_enums({{"a", 0}, {"b", -1}}), 7, "exceeds defcount"},
      {"ofp enums missing", ofp_enums({{"a", 1}, {"b", 1}}), 7, "Not all enums set\r\n"},
  };
  for (auto const& [what, bytes, code, message] : cases) {
    Decoded d = decode(bytes);
    EXPECT_EQ(d.code, code) << what;
    EXPECT_NE(d.messages.find(message), std::string::npos) << what << ": " << d.messages;
  }
  EXPECT_EQ(decode(arma(nest(Kaltor::kMaxDepth - 2))).code, 0);
  // The text decoded before a fault is kept, and ends with the error line.
  Decoded d = decode(arma(cls("", {v_i("x", 1), Bytes{9}})));
  EXPECT_EQ(d.code, 10);
  EXPECT_EQ(d.body, "x = 1;\r\n//dll Unknown throw Error\r\n");
}

// A spaced file: every zero after the signature replaced by the spacer byte.
Bytes spaced(Bytes b, uint8_t spacer) {
  for (size_t i = 4; i < b.size(); ++i)
    if (!b[i]) b[i] = spacer;
  b[0] = spacer;
  return b;
}

TEST(KaltorText, SpacedFiles) {
  Bytes plain = arma(cls("", {cls("A", {v_str("s", "t"), v_i("x", 2)})}));
  Decoded d = decode(spaced(plain, 0xEE));
  EXPECT_EQ(d.code, 0);
  EXPECT_EQ(d.body, decode(plain).body);
  Bytes bad = spaced(plain, 0xEE);
  bad[10] = 0;
  d = decode(bad);
  EXPECT_EQ(d.code, 100);
  EXPECT_EQ(d.messages.rfind("bullshit zero in spaced rap\r\n", 0), 0u) << d.messages;
}

TEST(KaltorText, XboxSignature) {
  unsigned char const key[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  unsigned char const other[16] = {9};
  Bytes signed_file = xbox(cls("", {v_i("x", 1)}), key);
  BisDLL dll;
  Kaltor* k = dll.dll_GetKaltor();
  k->drp_GetIO()->io_SetStdioCallBack(capture_msg);
  // what, key, bytes, code, signature state, "not verified" warned
  std::tuple<char const*, unsigned char const*, Bytes, int, Kaltor::Signature, bool> const cases[] = {
      {"right key", key, signed_file, 0, Kaltor::SIG_VERIFIED, false},
      {"wrong key", other, signed_file, 15, Kaltor::SIG_NONE, false},
      {"no key", nullptr, signed_file, 0, Kaltor::SIG_UNVERIFIED, true},
      {"empty root", key, xbox(cls("", {}), key), 0, Kaltor::SIG_VERIFIED, false},
  };
  for (auto const& [what, with_key, bytes, code, sig, warned] : cases) {
    g_msgs.clear();
    k->drp_SetXboxKey(with_key);
    GenString text;
    EXPECT_EQ(k->drp_Decode(bytes.data(), bytes.size(), text), code) << what;
    EXPECT_EQ(k->drp_GetSignature(), sig) << what;
    EXPECT_EQ(g_msgs.find("not verified") != std::string::npos, warned) << what;
    if (!code) {
      EXPECT_NE(std::string(text.c_str()).find("#define _XBOX_ WithSignature\r\n\r\n"), std::string::npos);
      EXPECT_EQ(k->drp_GetDialect(), Kaltor::DIALECT_XBOX);
    }
  }
  // A signed file whose head does not continue as an Arma file.
  Bytes meta = signed_file;
  meta[28] = 9;
  sign_xbox(meta, key);
  k->drp_SetXboxKey(key);
  GenString text;
  EXPECT_EQ(k->drp_Decode(meta.data(), meta.size(), text), 101);
}

}  // namespace
