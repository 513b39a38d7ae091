// kestro-avi info --plot: its pictures of a file.
#include <regex>

#include "Command.h"
#include "plot/Survey.h"

namespace kestro::tool {
namespace {

using testing::HasSubstr;

class PlotTest : public Command {
 protected:
  void SetUp() override {
    Command::SetUp();
    ASSERT_EQ(Run("record --junk 1001 -o a.avi media/clip25.h264 media/stereo48k.wav").code, 0);
  }
  std::string Draw(std::string const& avi, int code = 0) {
    Result const result = Run("info --force --plot p.svg '" + avi + "'");
    EXPECT_EQ(result.code, code) << result.err;
    EXPECT_EQ(Has("xmllint") ? Shell("xmllint --noout p.svg").err : "", "") << avi;
    return FileText(At("p.svg"));
  }
  static std::vector<std::string> All(std::string const& text, std::string const& pattern) {
    std::regex const regex(pattern);
    return {std::sregex_token_iterator(text.begin(), text.end(), regex, 1), {}};
  }
};

TEST_F(PlotTest, ShowsRatesKeyFramesAndChunks) {
  std::string const picture = Draw("a.avi");
  EXPECT_EQ(All(picture, "class=\"line t(.)\"").size(), 2u);
  EXPECT_EQ(All(picture, "class=\"band t(.)\""), std::vector<std::string>{"1"});
  auto const keys = All(picture, "path d=\"([^\"]*)\" class=\"key t0\"");
  ASSERT_EQ(keys.size(), 1u);
  EXPECT_EQ(std::count(keys[0].begin(), keys[0].end(), 'M'), 4);
  EXPECT_THAT(All(picture, "<title>(\\w+): \\d+ bytes"),
              testing::UnorderedElementsAre("header", "JUNK", "movi", "index"));
  std::uintmax_t bytes = 0;
  for (auto const& size : All(picture, "<title>\\w+: (\\d+) bytes")) bytes += std::stoul(size);
  EXPECT_EQ(bytes, fs::file_size(At("a.avi")));

  Expect("info", {{"--plot p.svg a.avi", 2, "p.svg: exists already"},
                  {"--plot a.avi --force a.avi", 2, "is the input"},
                  {"--plot none/p.svg a.avi", 3, "none/p.svg"},
                  {"--plot q.svg a.avi a.avi", 2, "one FILE"},
                  {"--force a.avi", 2, "--plot"}});
}

TEST_F(PlotTest, PlotsUnusualFiles) {
  MakeUnusual("a.avi");
  for (char const* name : {"relative.avi", "nowhere.avi", "noindex.avi", "empty.avi"}) Draw(name);
  Draw("cut.avi", 1);
  fs::copy_file(At("a.avi"), At("<&\"\x01\xFF]]>.avi"));
  EXPECT_THAT(Draw("<&\"\x01\xFF]]>.avi"), HasSubstr(">&lt;&amp;&quot;\xEF\xBF\xBD"));

  // Hours: the index entries are repeated.
  std::string bytes = FileText(At("a.avi"));
  auto const index = bytes.rfind("idx1") + 8;
  std::string const entries = bytes.substr(index);
  for (int i = 0; i < 400; ++i) bytes += entries;
  Put(bytes, index - 4, static_cast<unsigned>(bytes.size() - index));
  Put(bytes, 4, static_cast<unsigned>(bytes.size()) - 8);
  Write("long.avi", bytes);
  EXPECT_LT(Draw("long.avi").size(), 200000u);
}

TEST_F(PlotTest, SurveyCountsEveryBitAndFindsTheSkew) {
  avi::AviFile avi(At("a.avi"));
  Survey const survey(avi);
  EXPECT_DOUBLE_EQ(survey.duration, 4);
  for (std::size_t track : {0u, 1u}) {
    double bits = 0;
    for (double rate : BitRates(survey, track, 0.8)) bits += rate * 0.8;
    EXPECT_NEAR(bits, static_cast<double>(avi.Tracks()[track].bytes) * 8, 1e-3) << track;
  }
  // The audio ends a second before the video.
  auto const leads = Leads(survey, 1, 0, 1);
  EXPECT_NEAR(leads.back().low, 3 - 3.96, 1e-9);
  for (Lead const& lead : leads) EXPECT_LE(lead.offset < 500000 ? std::abs(lead.low) : 0, 0.0401);
}

}  // namespace
}  // namespace kestro::tool
