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

TEST_F(SoundCli, InfoReportsAndInfoDispatchesBySignature) {
  std::string data = samples16(sine(8000, 1, 440, 8000, 9000));
  put_file(out("a.wav"), wav(Fmt::pcm(1, 8000, 16), data));
  put_file(out("b.wss"), wss(Fmt::pcm(1, 8000, 16), 8, std::string(8000, '\x01')));
  Outcome r = run("sound info " + out("a.wav"));
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("WAV Mono UnCompressed\nSamplesPerSec 8000\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("Playtime:     1.00 Seconds\n"), std::string::npos) << r.out;
  r = run("info --json " + out("b.wss"));
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("\"format\": \"wss\""), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("\"compression\": 8"), std::string::npos) << r.out;
  put_file(out("c.wss"), wss(Fmt::pcm(3, 8000, 16), 0, data));
  r = run("sound info " + out("c.wss"));
  EXPECT_EQ(r.status, 12);
  EXPECT_EQ(r.err, "vendrak: " + out("c.wss") + ": Sonmar: UNKNOWN_CHANNELS (12)\n");
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

TEST_F(SoundCli, LipWritesNothingWhenItCannot) {
  put_file(out("s.wav"), wav(Fmt::pcm(2, 8000, 16), samples16({5, 5})));
  Outcome r = run("sound lip " + out("s.wav") + " " + out("s.lip"));
  EXPECT_EQ(r.status, 17);
  EXPECT_EQ(r.err, "vendrak: " + out("s.wav") + ": pcm data is not 16bit mono (17)\n");
  EXPECT_FALSE(fs::exists(out("s.lip")));
}
}  // namespace
