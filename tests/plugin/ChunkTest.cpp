// The chunk tree: fields, searches, what is kept of a file. Whole files show what is written, and
// the hostile ones what parsing costs.
#include <gmock/gmock.h>

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

// What the parsed tree holds, as nested names.
std::string Names(IList* node) {
  std::string text;
  for (; node != nullptr; node = node->Next()) {
    unsigned const code = node->ListType() != 0 ? node->ListType() : node->Id();
    for (int i = 0; i < 4; ++i) text += static_cast<char>(code >> (8 * i));
    if (node->Child() != nullptr) text += "(" + Names(node->Child()) + ")";
    if (node->Next() != nullptr) text += " ";
  }
  return text;
}

TEST(Parsing, KeepsWhatItKnows) {
  auto const header = [](char const* type) {
    return Bytes().Cc("strh").U32(56).Cc(type).Zeros(52);
  };
  auto const hdrl = [](Bytes const& content) { return List("LIST", "hdrl", content); };
  Bytes const format = Plain("strf", Ramp(40)), avih = Plain("avih", "");
  Bytes const strl = List("LIST", "strl", Joined({header("vids"), format}));
  Bytes const text = List("LIST", "strl", Joined({header("txts"), format}));
  Bytes const movi = List("LIST", "movi", Plain("00dc", "abc"));
  Bytes const junk = Bytes().Cc("JUNK").U32(16).Add(avih).Add(avih);
  struct Case {
    char const* name;
    Bytes content;
    char const* tree;
  } const cases[] = {
      {"an ordinary file", Joined({hdrl(strl), movi, Plain("idx1", Ramp(16))}),
       "AVI (hdrl(strl(strh strf)) movi idx1)"},
      {"an unknown list is passed over", Joined({List("LIST", "what", avih), movi}), "AVI (movi)"},
      {"an unknown leaf ends its list, not the file",
       Joined({hdrl(Joined({Plain("vprp", ""), strl})), movi}), "AVI (hdrl movi)"},
      {"a text stream's format ends its list", hdrl(Joined({text, strl})),
       "AVI (hdrl(strl(strh) strl(strh strf)))"},
      {"a format without a header", Joined({hdrl(List("LIST", "strl", format)), movi}),
       "AVI (hdrl(strl) movi)"},
      {"isft is not known when read", Joined({List("LIST", "INFO", Plain("isft", "soft")), movi}),
       "AVI (INFO movi)"},
      {"JUNK within the file is passed over", Joined({junk, movi}), "AVI (JUNK movi)"},
  };
  for (auto const& c : cases) {
    Bytes const file = List("RIFF", "AVI ", c.content);
    MemoryIO io({file.begin(), file.end()});
    croot root;
    root.Size(static_cast<unsigned>(io.Size()));
    EXPECT_EQ(1, root.Parse(io, true));
    EXPECT_EQ(c.tree, Names(root.Child())) << c.name;
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
