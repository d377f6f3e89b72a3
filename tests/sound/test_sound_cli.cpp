// The sound commands of the tool, run as a user would.
#include <gtest/gtest.h>

#include "SoundFixture.h"
#include "support/CliRun.h"

using namespace soundtest;

namespace {
using Outcome = clirun::CliRun;

struct SoundCli : SoundTest {
  Outcome run(std::string const& args) { return clirun::run_tool(args, out("tool")); }
};

// Reports, dispatch by signature, and failures named with their path and code.
TEST_F(SoundCli, InfoAndLipReportsAndStatuses) {
  put_file(out("a.wav"), wav(Fmt::pcm(1, 8000, 16), samples16(sine(8000, 1, 440, 8000, 9000))));
  put_file(out("b.wss"), wss(Fmt::pcm(1, 8000, 16), 8, std::string(8000, '\x01')));
  put_file(out("c.wss"), wss(Fmt::pcm(3, 8000, 16), 0, samples16({1, 2, 3})));
  put_file(out("s.wav"), wav(Fmt::pcm(2, 8000, 16), samples16({5, 5})));
  struct Case {
    std::string args;
    int status;
    std::vector<std::string> out;  // pieces of standard output
    std::string err;               // the whole of standard error
  } const cases[] = {
      {"sound info " + out("a.wav"), 0, {"WAV Mono UnCompressed\nSamplesPerSec 8000\n", "Playtime:     1.00 Seconds\n"}, ""},
      {"info --json " + out("b.wss"), 0, {"\"format\": \"wss\"", "\"compression\": 8"}, ""},
      {"sound info " + out("c.wss"), 12, {}, "vendrak: " + out("c.wss") + ": Sonmar: UNKNOWN_CHANNELS (12)\n"},
      {"sound lip " + out("s.wav") + " " + out("s.lip"), 17, {},
       "vendrak: " + out("s.wav") + ": pcm data is not 16bit mono (17)\n"},
  };
  for (auto const& c : cases) {
    Outcome r = run(c.args);
    EXPECT_EQ(r.status, c.status) << c.args << "\n" << r.err;
    for (auto const& piece : c.out) EXPECT_NE(r.out.find(piece), std::string::npos) << c.args << "\n" << r.out;
    EXPECT_EQ(r.err, c.err) << c.args;
  }
  EXPECT_FALSE(fs::exists(out("s.lip")));  // a lip file that cannot be made is not written
}

TEST_F(SoundCli, ConvertFollowsTheExtensionAndKeepsExistingFiles) {
  std::string data = samples16(sine(4000, 2, 440, 22050, 9000));
  put_file(out("a.wav"), wav(Fmt::pcm(2, 22050, 16), data));
  Outcome r = run("sound convert " + out("a.wav") + " " + out("b.wss"));
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(get_file(out("b.wss")), wss(Fmt::pcm(2, 22050, 16), 0, data));
  // A different existing file stays unless forced.
  EXPECT_NE(run("sound convert " + out("a.wav") + " " + out("b.wss") + " --to wss-nibble").status, 0);
  EXPECT_EQ(get_file(out("b.wss")), wss(Fmt::pcm(2, 22050, 16), 0, data));
  EXPECT_EQ(run("sound convert -f " + out("a.wav") + " " + out("b.wss") + " --to wss-nibble").status, 0);
  EXPECT_EQ(get_file(out("b.wss")).size(), 26u + 4000);
  r = run("sound convert " + out("a.wav") + " " + out("c.ogg") + " --rate 11025");
  ASSERT_EQ(r.status, 0) << r.err;
  ASSERT_EQ(open_file(out("c.ogg")), 0);
  EXPECT_EQ(tool->wss_GetFormat().samples_per_sec, 11025u);
  EXPECT_NE(get_file(out("c.ogg")).find("Ostrel_=c.ogg"), std::string::npos);
  EXPECT_EQ(run("sound convert " + out("a.wav") + " " + out("d.snd")).status, 64);
  EXPECT_EQ(run("sound convert " + out("a.wav") + " " + out("d.wss") + " --to mp3").status, 64);
  r = run("sound convert " + out("a.wav") + " - --to wav");
  EXPECT_EQ(r.out, wav(Fmt::pcm(2, 22050, 16), data));
}

}  // namespace
