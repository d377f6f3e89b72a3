#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "DecodeHelpers.h"

namespace {

struct LayoutCase {
  char const* what;
  ClsPtr root;
  char const* expected;
};

TEST(KaltorText, LayoutOfEveryEntryKind) {
  LayoutCase const cases[] = {
      {"empty class", cls("", {cls("A")}), "class A{};\r\n"},
      {"empty class with parent", cls("", {cls("B", {}, "A")}), "class B: A{};\r\n"},
      {"class with a value", cls("", {cls("A", {v_i("x", -7)})}), "class A\r\n{\r\n\tx = -7;\r\n};\r\n"},
      {"nested classes", cls("", {cls("A", {cls("B", {v_i("x", 1)}, "C")})}),
       "class A\r\n{\r\n\tclass B: C\r\n\t{\r\n\t\tx = 1;\r\n\t};\r\n};\r\n"},
      {"quotes doubled, newline token", cls("", {v_str("s", "say \"hi\"\nbye")}),
       "s = \"say \"\"hi\"\"\" \\n \"bye\";\r\n"},
      {"empty string", cls("", {v_str("s", "")}), "s = \"\";\r\n"},
      {"floats keep a point", cls("", {v_f("f", 0.1f), v_f("g", 2.0f)}), "f = 0.1;\r\ng = 2.0;\r\n"},
      {"double and int64", cls("", {v_d("d", 0.5), v_l("l", -9000000000LL)}), "d = 0.5;\r\nl = -9000000000;\r\n"},
      {"int extremes", cls("", {v_i("lo", INT_MIN), v_i("hi", INT_MAX)}),
       "lo = -2147483648;\r\nhi = 2147483647;\r\n"},
      {"mixed array", cls("", {arr("a", {e_i(1), e_str("x"), e_f(2.5f)})}), "a[] = {1,\"x\",2.5};\r\n"},
      {"empty array", cls("", {arr("e", {})}), "e[] = {};\r\n"},
      {"nested arrays", cls("", {arr("n", {e_arr({e_i(1), e_arr({e_d(2)})}), e_arr({})})}),
       "n[] = {{1,{2.0}},{}};\r\n"},
      {"array append", cls("", {arr("p", {e_l(5)}, true)}), "p[] += {5};\r\n"},
      {"extern and delete", cls("", {ext("E"), del("D")}), "class E;\r\ndelete D;\r\n"},
      {"root parent", cls("", {v_i("x", 1)}, "Base"), ": Base\r\nx = 1;\r\n"},
  };
  for (auto const& c : cases) {
    Decoded d = decode(arma(c.root));
    EXPECT_EQ(d.code, 0) << c.what;
    EXPECT_EQ(d.body, c.expected) << c.what;
  }
}

TEST(KaltorText, SpacesInsteadOfTabs) {
  Decoded d = decode(arma(cls("", {cls("A", {cls("B", {v_i("x", 1)})})})), false);
  EXPECT_EQ(d.body, "class A\r\n{\r\n class B\r\n {\r\n  x = 1;\r\n };\r\n};\r\n");
}

TEST(KaltorText, ElementsPerLine) {
  Bytes b = arma(cls("", {cls("C", {arr("a", {e_i(1), e_i(2), e_arr({e_i(3), e_i(4)})}), arr("one", {e_i(5)})})}));
  BisDLL dll;
  Kaltor* k = dll.dll_GetKaltor();
  k->drp_SetElementsPerLine(2);
  GenString text;
  ASSERT_EQ(k->drp_Decode(b.data(), b.size(), text), 0);
  EXPECT_NE(std::string(text.c_str()).find("class C\r\n{\r\n\ta[] =\r\n\t{\r\n\t\t1,2,\r\n\t\t{3,4}\r\n\t};\r\n"
                                           "\tone[] = {5};\r\n};\r\n"),
            std::string::npos)
      << text.c_str();
}

TEST(KaltorText, ArmaEnumsPrecedeClasses) {
  Enums e{{"a", 1}, {"  ", -2}};
  Decoded d = decode(arma(cls("", {v_i("x", 1)}), &e));
  EXPECT_EQ(d.code, 0);
  EXPECT_EQ(d.body, "//(2 Enums)\r\nenum {\r\n\ta = 1,\r\n\tOrdinalEnum = -2\r\n};\r\n\r\nx = 1;\r\n");
  Enums none;
  EXPECT_EQ(decode(arma(cls("", {v_i("x", 1)}), &none)).body, "x = 1;\r\n");
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
  w.enums({{"b", 1}, {"a", 0}});
  Decoded d = decode(w.b);
  ASSERT_EQ(d.code, 0) << d.messages;
  EXPECT_NE(d.text.find("#define _OFP_\r\n\r\n"), std::string::npos);
  EXPECT_EQ(d.body,
            "//(2 Enums)\r\nenum {\r\n\ta,\t//0\r\n\tb,\t//1\r\n};\r\n"
            "//class  {\r\n"
            "version = 13;\r\n"
            "mode = \"ARCADE\";\r\n"
            "class Inner: Base {\r\n"
            "\tmode = \"mode\";\r\n"
            "\tlist[] = {\"ARCADE\",\"x\"};\r\n"
            "};\r\n"
            "class Empty {};\r\n"
            "//};\r\n");
}

TEST(KaltorText, OfpEnumFaults) {
  struct {
    Enums enums;
    char const* message;
  } const cases[] = {
      {{{"a", 0}, {"b", 5}}, "enum 1  (5) exceeds defcount\r\n"},
      {{{"a", 0}, {"b", -1}}, "exceeds defcount"},
      {{{"a", 1}, {"b", 1}}, "Not all enums set\r\n"},
  };
  for (auto const& c : cases) {
    OfpWriter w;
    w.cls("", 0);
    w.enums(c.enums);
    Decoded d = decode(w.b);
    EXPECT_EQ(d.code, 7) << c.message;
    EXPECT_NE(d.messages.find(c.message), std::string::npos) << d.messages;
  }
}

Bytes with(Bytes b, size_t at, uint32_t v) {
  std::memcpy(&b[at], &v, 4);
  return b;
}
Bytes with_extra(Bytes b) {
  b.push_back(0);
  return b;
}
Bytes truncated(Bytes b, size_t n) {
  b.resize(n);
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

TEST(KaltorText, FaultsGiveTheirCodes) {
  Enums e{{"a", 1}};
  Bytes two = arma(cls("", {cls("A", {v_i("x", 1)}), cls("B")}));
  uint32_t body_a;
  std::memcpy(&body_a, &two[21], 4);
  // Root body at 16: parent "" (16), count (17), class A: type (18), "A" (19-20), offset (21-24).
  struct {
    char const* what;
    Bytes bytes;
    int code;
    char const* message;
  } const cases[] = {
      {"six bytes", Bytes{0, 'r', 'a', 'P', 0, 0}, 100, nullptr},
      {"no signature", Bytes{0, 'r', 'a', 'X', 0, 0, 0, 0, 8, 0, 0, 0, 0, 0}, 100, nullptr},
      {"entry type 6", arma(cls("", {Bytes{6}})), 10, nullptr},
      {"value subtype 4", arma(cls("", {Bytes{1, 4, 'x', 0, 0, 0, 0, 0}})), 10, nullptr},
      {"element subtype 4", arma(cls("", {arr("a", {Bytes{4}})})), 11, nullptr},
      {"unnamed array", arma(cls("", {arr("", {})})), 12, nullptr},
      {"named nested array", arma(cls("", {Bytes{1, 3, 'x', 0, 0}})), 13, nullptr},
      {"unnamed value", arma(cls("", {v_i("", 1)})), 14, nullptr},
      {"cut inside a value", truncated(arma(cls("", {v_i("x", 1)})), 23), 1, nullptr},
      {"residual bytes", with_extra(arma(cls("", {}), &e)), 7, nullptr},
      {"enum offset beyond the end", with(arma(cls("", {})), 12, 9999), 7, nullptr},
      {"body outside the file", with(arma(cls("", {cls("A")})), 21, 100000), 3, "lies outside the file"},
      {"body is the root body", with(arma(cls("", {cls("A")})), 21, 16), 3, "points back"},
      {"body is its own entry", with(arma(cls("", {cls("A")})), 21, 18), 3, "points back"},
      {"two classes, one body", with(two, 28, body_a), 3, "points back"},
      {"classes nested too deep", arma(nest(Kaltor::kMaxDepth + 5)), 3, "deeper than"},
      {"arrays nested too deep", deep_array(Kaltor::kMaxDepth + 5), 3, "deeper than"},
  };
  for (auto const& c : cases) {
    Decoded d = decode(c.bytes);
    EXPECT_EQ(d.code, c.code) << c.what;
    if (c.message) {
      EXPECT_NE(d.messages.find(c.message), std::string::npos) << c.what << ": " << d.messages;
    }
  }
  // Depth within the limit is fine.
  EXPECT_EQ(decode(arma(nest(Kaltor::kMaxDepth - 2))).code, 0);
}

TEST(KaltorText, FaultKeepsTextAndEndsWithErrorLine) {
  Decoded d = decode(arma(cls("", {v_i("x", 1), Bytes{9}})));
  EXPECT_EQ(d.code, 10);
  EXPECT_EQ(d.body, "x = 1;\r\n//dll Unknown throw Error\r\n");
  EXPECT_STREQ(Kaltor::ErrorString(-10), "Kaltor: Unknown Entry type");
  EXPECT_STREQ(Kaltor::ErrorString(101), "Kaltor: xbox meta file");
  EXPECT_STREQ(Kaltor::ErrorString(7), "residual bytes in file");
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
  k->drp_GetIO()->io_SetStdioCallBack(capture);
  struct {
    char const* what;
    unsigned char const* key;
    Bytes bytes;
    int code;
    Kaltor::Signature sig;
    bool warned;
  } const cases[] = {
      {"right key", key, signed_file, 0, Kaltor::SIG_VERIFIED, false},
      {"wrong key", other, signed_file, 15, Kaltor::SIG_NONE, false},
      {"no key", nullptr, signed_file, 0, Kaltor::SIG_UNVERIFIED, true},
      {"empty root", key, xbox(cls("", {}), key), 0, Kaltor::SIG_VERIFIED, false},
  };
  for (auto const& c : cases) {
    captured().clear();
    k->drp_SetXboxKey(c.key);
    GenString text;
    EXPECT_EQ(k->drp_Decode(c.bytes.data(), c.bytes.size(), text), c.code) << c.what;
    EXPECT_EQ(k->drp_GetSignature(), c.sig) << c.what;
    EXPECT_EQ(captured().find("not verified") != std::string::npos, c.warned) << c.what;
    if (!c.code) {
      EXPECT_NE(std::string(text.c_str()).find("#define _XBOX_ WithSignature\r\n\r\n"), std::string::npos);
      EXPECT_EQ(k->drp_GetDialect(), Kaltor::DIALECT_XBOX);
    }
  }
  // A signed file whose head does not continue as an Arma file.
  Bytes meta = signed_file;
  meta[28] = 9;
  unsigned int len = 0;
  HMAC(EVP_sha1(), key, 16, meta.data() + 24, meta.size() - 24, meta.data() + 4, &len);
  k->drp_SetXboxKey(key);
  GenString text;
  EXPECT_EQ(k->drp_Decode(meta.data(), meta.size(), text), 101);
}

}  // namespace
