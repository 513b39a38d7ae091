// The chunk tree: fields and searches. Whole files show what is written, and the hostile ones what
// is kept of a file that is read.
#include <gtest/gtest.h>

#include "common/DataChunks.h"
#include "common/HeaderChunks.h"
#include "common/ListChunks.h"
#include "support/FileLayout.h"

namespace kestro::test {
namespace {

using namespace plugin::avi;

// A payload whose bytes tell their position.
std::string Ramp(unsigned size) {
  std::string text;
  for (unsigned i = 0; i < size; ++i) text += static_cast<char>(i * 7 + 1);
  return text;
}

// Read from known bytes and written again, every field stands where it stood; a short chunk leaves
// the fields it does not reach as they were.
TEST(Chunks, FixedOnesAreReadAndWrittenBack) {
  struct Case {
    char const *code, *id;  // for the factory, in the file
    unsigned size;
  } const cases[] = {
      {"avih", "avih", 56}, {"strh", "strh", 56}, {"vids", "strf", 40}, {"auds", "strf", 16}};
  for (auto const& c : cases) {
    SCOPED_TRACE(c.code);
    std::unique_ptr<IList> fresh(IList::New(c.code)), chunk(IList::New(c.code));
    MemoryIO blank, in(Ramp(c.size)), cut(Ramp(8)), out, again;
    fresh->Fill(blank, true);
    chunk->parse(in);
    EXPECT_EQ(c.size, unsigned(chunk->Fill(out, true)));
    EXPECT_EQ("", Difference(Plain(c.id, Ramp(c.size)), out.bytes));
    fresh->parse(cut);
    fresh->Fill(again, true);
    std::copy_n(cut.bytes.begin(), 8, blank.bytes.begin() + 8);
    EXPECT_EQ("", Difference(blank.bytes, again.bytes));
  }
}

TEST(Search, FindsInOrder) {
  croot root;
  IList* riff = root.Add(new criff);
  IList* hdrl = riff->Add(new chdrl);
  IList* avih = hdrl->Add(new cavih);
  IList* strl = hdrl->Add(new cstrl);
  IList* strh = strl->Add(new cstrh);
  IList* junk = riff->Add(new cjunk(nullptr, 0));
  EXPECT_EQ(hdrl, root.Find("LIST"));
  EXPECT_EQ(strh, avih->Find("strh")) << "a leaf goes on with its siblings";
  EXPECT_EQ(nullptr, hdrl->Find("JUNK")) << "a list does not";
  EXPECT_EQ(junk, root.Find("JUNK"));
  for (int i = 0; i < 20000; ++i) (i % 2 != 0 ? riff : hdrl)->Add(new cjunk(nullptr, 0));
  EXPECT_EQ(nullptr, root.Find("idx1")) << "in linear time";
  EXPECT_EQ(nullptr, root.Find("strl")) << "list types are not ids";
  std::string text;
  base::ostream_string os(text);
  *avih >> os;
  EXPECT_EQ(
      "plugin/avi/common/IList/31/operator>>:\tavih\n"
      "kestro::plugin::avi::IList*(nullptr)kestro::plugin::avi::cstrl(unknow)",
      text);
}

}  // namespace
}  // namespace kestro::test
