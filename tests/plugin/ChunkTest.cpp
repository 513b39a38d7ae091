// The chunk tree: fields, searches, and what hostile files cost. Whole files show what is written.
#include <gmock/gmock.h>

#include "common/DataChunks.h"
#include "common/HeaderChunks.h"
#include "common/IndexChunks.h"
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
    MemoryIO blank, in(Ramp(c.size)), cut(Ramp(8)), out;
    fresh->Fill(blank, true);
    chunk->parse(in);
    EXPECT_EQ(c.size, in.Tell());
    EXPECT_EQ(c.size, unsigned(chunk->Fill(out, true)));
    EXPECT_EQ("", Difference(Bytes().Cc(c.id).U32(c.size).Raw(Ramp(c.size)), out.bytes));
    fresh->parse(cut);
    MemoryIO again;
    fresh->Fill(again, true);
    std::copy_n(cut.bytes.begin(), 8, blank.bytes.begin() + 8);
    EXPECT_EQ("", Difference(blank.bytes, again.bytes));
  }
}

Bytes Leaf8(char const* id) { return Bytes().Cc(id).U32(0); }
Bytes StreamHeader(char const* type) { return Bytes().Cc("strh").U32(56).Cc(type).Zeros(52); }
Bytes VideoFormat() { return Bytes().Cc("strf").U32(40).Raw(Ramp(40)); }

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

std::string Parsed(Bytes const& file, int* result = nullptr) {
  MemoryIO io(std::string(file.begin(), file.end()));
  croot root;
  root.Size(static_cast<unsigned>(io.Size()));
  int const ok = root.Parse(io, true);
  if (result != nullptr) *result = ok;
  return Names(root.Child());
}

TEST(Parsing, KeepsWhatItKnows) {
  Bytes const strl = List("LIST", "strl", Bytes().Add(StreamHeader("vids")).Add(VideoFormat()));
  Bytes const text = List("LIST", "strl", Bytes().Add(StreamHeader("txts")).Add(VideoFormat()));
  Bytes const movi = List("LIST", "movi", Bytes().Cc("00dc").U32(3).Raw("abc"));
  Bytes const index = Bytes().Cc("idx1").U32(16).Cc("00dc").Zeros(12);
  Bytes const unknownList = List("LIST", "what", Bytes().Add(Leaf8("avih")));
  Bytes const isft = List("LIST", "INFO", Bytes().Cc("isft").U32(4).Raw("soft"));
  struct Case {
    char const* name;
    Bytes content;
    char const* tree;
  } const cases[] = {
      {"an ordinary file", Bytes().Add(List("LIST", "hdrl", strl)).Add(movi).Add(index),
       "AVI (hdrl(strl(strh strf)) movi idx1)"},
      {"an unknown list is passed over", Bytes().Add(unknownList).Add(movi), "AVI (movi)"},
      {"an unknown leaf ends its list, not the file",
       Bytes().Add(List("LIST", "hdrl", Bytes().Add(Leaf8("vprp")).Add(strl))).Add(movi),
       "AVI (hdrl movi)"},
      {"a text stream's format ends its list",
       Bytes().Add(List("LIST", "hdrl", Bytes().Add(text).Add(strl))),
       "AVI (hdrl(strl(strh) strl(strh strf)))"},
      {"a format without a header",
       Bytes().Add(List("LIST", "hdrl", List("LIST", "strl", VideoFormat()))).Add(movi),
       "AVI (hdrl(strl) movi)"},
      {"isft is not known when read", Bytes().Add(isft).Add(movi), "AVI (INFO movi)"},
      {"JUNK within the file is passed over",
       Bytes().Cc("JUNK").U32(16).Add(Leaf8("avih")).Add(Leaf8("avih")).Add(movi),
       "AVI (JUNK movi)"},
  };
  for (auto const& c : cases) EXPECT_EQ(c.tree, Parsed(List("RIFF", "AVI ", c.content))) << c.name;
}

TEST(Parsing, BoundsWhatAFileCosts) {
  Bytes nested = Leaf8("avih");
  for (int i = 0; i < 40; ++i) nested = List("LIST", "hdrl", nested);
  Bytes deep;
  for (int i = 0; i < 10000; ++i) deep.Cc("LIST").U32(0x7FFFFFFF).Cc("hdrl");
  Bytes junk, lists;
  for (int i = 0; i < 200000; ++i) {
    junk.Add(Leaf8("JUNK"));
    lists.Cc("LIST").U32(4).Cc("what");
  }
  int ok = 0;
  EXPECT_LE(Parsed(nested, &ok).size(), 16u * 6);
  Parsed(deep, &ok);
  EXPECT_EQ(1, ok);
  EXPECT_EQ(65536u * 5 - 1, Parsed(junk, &ok).size()) << "65,536 chunks: \"JUNK JUNK ...\"";
  Parsed(lists, &ok);
  EXPECT_EQ("", Parsed(Bytes(), &ok));
  EXPECT_EQ(0, ok) << "an empty stream";
}

TEST(Parsing, EveryTruncationEnds) {
  Bytes const strl = List("LIST", "strl", Bytes().Add(StreamHeader("vids")).Add(VideoFormat()));
  Bytes const whole =
      List("RIFF", "AVI ", Bytes().Add(List("LIST", "hdrl", strl)).Add(Leaf8("idx1")));
  for (std::size_t size = 1; size < whole.size(); ++size) {
    int ok = 0;
    Bytes cut = whole;
    cut.resize(size);
    Parsed(cut, &ok);
    EXPECT_EQ(1, ok) << size;
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
  EXPECT_EQ(strh, root.Find("strh"));
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
