// The text of a marker.
#include "avi/KeepMarker.h"

#include <gtest/gtest.h>

namespace kestro::test {
namespace {

using avi::KeepMarker;

TEST(KeepMarker, ReadsWhatItWroteAndNothingDamaged) {
  KeepMarker marker;
  marker.events = {{"\xC3\xA9\t\\/", "t", "f", "g"}, {"", "", "", ""}};
  marker.from = "f";
  std::string const text = marker.Compose();
  auto const again = KeepMarker::Parse(text);
  EXPECT_EQ(again.Compose(), text);
  for (std::size_t size = 0; size + 2 < text.size(); ++size)
    for (bool const zeros : {false, true}) {
      std::string damaged = text;
      damaged.replace(size, zeros ? 1 : text.npos, zeros ? 1 : 0, '\0');
      EXPECT_TRUE(KeepMarker::Parse(damaged).events.empty()) << size << " " << zeros;
    }
  EXPECT_EQ(KeepMarker::Label(std::string(199, 'x') + "\xC3\xA9"), std::string(199, 'x'));
  for (std::string const character :
       {"\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEF\xBF\xBF",
        "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"})
    EXPECT_EQ(KeepMarker::Label(character), character);
  for (std::string const none :
       {"\x80", "\xC1\xBF", "\xC3(", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xE2\x82(",
        "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xC3"})
    EXPECT_EQ(KeepMarker::Label(none).find("\xEF\xBF\xBD"), 0) << none;
  struct {
    char const* text;
    char const* label;  // null: damaged
  } const cases[] = {
      {" {\"label\":\"x\",\"other\":[1,-2.5e3,{\"a\":null}],\"events\":[]} ", "x"},
      {"{\"label\":\"\\u00e9\\ud83d\\ude00\\n\"}", "\xC3\xA9\xF0\x9F\x98\x80\n"},
      {"{\"label\":\"\\u007f\\u0080\\u07ff\"}", "\x7F\xC2\x80\xDF\xBF"},
      {"{\"label\":\"\\u0800\\uffff\\ud800\\udc00\"}", "\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80"},
      {"{\"label\":\"x\",\"window\":{\"zone\":[1]}}", "x"},
      {"{}", ""},
      {"{\"label\":\"\\ud83d\"}", nullptr},
      {"{\"label\":\"\\x\"}", nullptr},
      {"{\"label\":7}", nullptr},
      {"{\"events\":[[]]}", nullptr},
      {"{\"label\":\"x\",}", nullptr},
      {"{\"label\":\"x\"}}", nullptr},
      {"[]", nullptr},
  };
  for (auto const& c : cases) {
    auto const read = KeepMarker::Parse(c.text);
    EXPECT_EQ(read.events.empty(), c.label == nullptr) << c.text;
    EXPECT_TRUE(read.events.empty() || read.events[0].label == c.label) << c.text;
  }
  std::string const deep(100000, '[');
  EXPECT_TRUE(KeepMarker::Parse("{\"x\":" + deep).events.empty());
}

}  // namespace
}  // namespace kestro::test
