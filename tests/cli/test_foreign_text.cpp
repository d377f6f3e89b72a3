// Names that are not UTF-8 (older files carry the Windows code page) through every listing and
// every --json writer: never an abort, text that a JSON reader takes, and the exact bytes beside it.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <random>

#include "TextOut.h"
#include "cli/ToolRun.h"
#include "pbo/PboBuilder.h"

namespace {
using namespace toolrun;

struct Shape {
  char const* name;
  std::string bytes;  // as stored
  std::string text;   // as printed
};

std::vector<Shape> const kShapes = {
    {"ascii", "scripts\\init.sqf", "scripts\\init.sqf"},
    {"utf8", "mise\xc3\xa0_jour.sqf", "mise\xc3\xa0_jour.sqf"},
    {"windows1252", "M\xfc" "ller\\caf\xe9.sqf", "M\xc3\xbc" "ller\\caf\xc3\xa9.sqf"},
    {"euro_and_quotes", "\x80\x93\x94.txt", "\xe2\x82\xac\xe2\x80\x9c\xe2\x80\x9d.txt"},
    {"lone_ff", "a\xff" "b.sqf", "a\xc3\xbf" "b.sqf"},
    {"undefined_1252_byte", "x\x81.sqf", "x\xc2\x81.sqf"},
    {"control_character", "bell\x07.sqf", "bell\x07.sqf"},
};

TEST(ForeignText, ConvertsOnlyWhatIsNotUtf8) {
  for (auto const& s : kShapes) {
    EXPECT_EQ(text_to_utf8(s.bytes), s.text) << s.name;
    EXPECT_TRUE(text_is_utf8(text_to_utf8(s.bytes))) << s.name;
    // A name typed in UTF-8 finds the 1252 form again; a plain ASCII name needs no second form.
    std::string back;
    if (s.bytes != s.text) {
      EXPECT_TRUE(text_to_1252(s.text, back)) << s.name;
      EXPECT_EQ(back, s.bytes) << s.name;
    }
  }
  std::string unused;
  EXPECT_FALSE(text_to_1252("scripts\\init.sqf", unused));
  EXPECT_FALSE(text_to_1252("\xe4\xb8\xad.sqf", unused));  // a character the code page does not have
  // Not UTF-8: overlong forms, surrogates, a cut sequence.
  for (std::string bad : {"\xc0\xaf", "\xed\xa0\x80", "\xe2\x82", "\xf4\x90\x80\x80"}) EXPECT_FALSE(text_is_utf8(bad));
  EXPECT_EQ(text_for_display("a\x1b[31mb\tc"), "a?[31mb\tc");
}

TEST(ForeignText, JsonWritersNeverThrowOnRandomBytes) {
  std::mt19937 random(7);
  for (int round = 0; round < 2000; ++round) {
    std::string name(random() % 24, '\0');
    for (char& c : name) c = char(random());
    nlohmann::ordered_json j = {{"name", name}, {"list", {name, name}}};
    j["properties"][name] = name;
    std::string text;
    ASSERT_NO_THROW(text = json_text(j)) << round;
    nlohmann::json back;
    ASSERT_NO_THROW(back = nlohmann::json::parse(text)) << round;
    EXPECT_EQ(back["name"], text_to_utf8(name)) << round;
    if (!text_is_utf8(name)) {
      EXPECT_EQ(back["name_bytes"], text_hex(name)) << round;
    }
  }
}

TEST(ForeignText, ListingsAndJsonOfAnArchiveWithEveryShape) {
  Scratch s;
  pbotest::Builder b;
  b.prop("prefix", "names").prop("author", "J\xfcrgen");
  for (auto const& shape : kShapes) b.file(shape.bytes, shape.name);
  b.seal(pbotest::Builder::SHA);
  spit(s / "names.pbo", b.build());
  std::string archive = (s / "names.pbo").string();

  for (auto const& command : {std::vector<std::string>{"list", "--json", archive}, {"info", "--json", archive}}) {
    Result r = run(command, s.path);
    ASSERT_EQ(r.status, 0) << command[0] << r.err;
    nlohmann::json j = nlohmann::json::parse(r.out);
    ASSERT_EQ(j["entries"].size(), kShapes.size()) << command[0];
    for (size_t i = 0; i < kShapes.size(); ++i) {
      EXPECT_EQ(j["entries"][i]["name"], kShapes[i].text) << kShapes[i].name;
      EXPECT_EQ(j["entries"][i].contains("name_bytes"), kShapes[i].bytes != kShapes[i].text) << kShapes[i].name;
    }
    EXPECT_EQ(j["properties"]["author"], "J\xc3\xbcrgen");
    EXPECT_EQ(j["properties"]["author_bytes"], text_hex("J\xfcrgen"));
  }

  Result names = run({"list", "--names", archive}, s.path);
  ASSERT_EQ(names.status, 0);
  EXPECT_NE(names.out.find(kShapes[2].text + "\n"), std::string::npos);
  EXPECT_NE(names.out.find("bell?.sqf\n"), std::string::npos);  // no raw control characters on a terminal

  // A name typed in UTF-8 finds the entry stored in 1252, and the exact bytes find it too.
  for (auto const& typed : {kShapes[2].text, kShapes[2].bytes}) {
    Result cat = run({"cat", archive, typed}, s.path);
    EXPECT_EQ(cat.status, 0) << cat.err;
    EXPECT_EQ(cat.out, "windows1252");
  }
  // Extraction writes the stored bytes as the file name, so that packing again gives them back.
  Result x = run({"extract", "-q", "--files", kShapes[2].text, archive, (s / "out").string()}, s.path);
  ASSERT_EQ(x.status, 0) << x.err;
  EXPECT_TRUE(fs::exists(s / "out" / "names" / "M\xfc" "ller" / "caf\xe9.sqf")) << x.out;
}

TEST(ForeignText, CatFindsAnEntryByItsWholePathOnly) {
  Scratch s;
  pbotest::Builder b;
  b.prop("prefix", "z\\mod\\addons\\weather");
  b.file("functions\\script_component.hpp", "the functions' one").file("script_component.hpp", "the root one");
  spit(s / "w.pbo", b.build());
  std::string archive = (s / "w.pbo").string();
  struct {
    char const* typed;
    int status;
    char const* out;
  } const rows[] = {
      {"script_component.hpp", 0, "the root one"},
      {"functions\\script_component.hpp", 0, "the functions' one"},
      {"FUNCTIONS/Script_Component.hpp", 0, "the functions' one"},
      {"other/script_component.hpp", 27, ""},
      {"component.hpp", 27, ""},
  };
  for (auto const& row : rows) {
    Result r = run({"cat", archive, row.typed}, s.path);
    EXPECT_EQ(r.status, row.status) << row.typed;
    EXPECT_EQ(r.out, row.out) << row.typed;
    if (row.status) {
      EXPECT_NE(r.err.find("no entry"), std::string::npos) << r.err;
    }
  }
}

}  // namespace
