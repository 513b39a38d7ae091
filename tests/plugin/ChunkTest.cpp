// The chunk tree: bytes written, bytes read, searches, and what hostile files cost.
#include <gmock/gmock.h>

#include <chrono>

#include "common/DataChunks.h"
#include "common/HeaderChunks.h"
#include "common/IndexChunks.h"
#include "common/ListChunks.h"
#include "support/Bytes.h"
#include "support/MemoryIO.h"

namespace kestro::test {
namespace {

using namespace plugin::avi;

std::string Text(Bytes const& b) { return std::string(b.begin(), b.end()); }

// A payload whose bytes tell their position.
std::string Ramp(int size) {
  std::string text;
  for (int i = 0; i < size; ++i) text += static_cast<char>(i * 7 + 1);
  return text;
}

struct Leaf {
  char const* code;  // for the factory
  char const* id;    // in the file
  int payload;
};

void PrintTo(Leaf const& leaf, std::ostream* os) { *os << leaf.code; }

class FixedChunks : public testing::TestWithParam<Leaf> {};

// Read from known bytes and written again, every field stands where it stood; a short chunk leaves
// the fields it does not reach as they were.
TEST_P(FixedChunks, ReadAndWrittenBack) {
  auto const [code, id, payload] = GetParam();
  std::unique_ptr<IList> fresh(IList::New(code)), chunk(IList::New(code)), cut(IList::New(code));
  MemoryIO in(Ramp(payload));
  chunk->Size(static_cast<unsigned>(payload));
  chunk->parse(in);
  EXPECT_EQ(payload, in.Tell());
  MemoryIO out;
  EXPECT_EQ(payload, chunk->Fill(out, true));
  Bytes const expected = Bytes().Cc(id).U32(static_cast<unsigned>(payload)).Raw(Ramp(payload));
  EXPECT_EQ("", Difference(expected, out.bytes));

  MemoryIO shortIn(Ramp(8)), cutOut, freshOut;
  cut->parse(shortIn);
  cut->Fill(cutOut, true);
  fresh->Fill(freshOut, true);
  std::copy_n(Ramp(8).begin(), 8, freshOut.bytes.begin() + 8);
  EXPECT_EQ("", Difference(Bytes(std::string(freshOut.bytes.begin(), freshOut.bytes.end())),
                           cutOut.bytes));
}

INSTANTIATE_TEST_SUITE_P(All, FixedChunks,
                         testing::Values(Leaf{"avih", "avih", 56}, Leaf{"strh", "strh", 56},
                                         Leaf{"vids", "strf", 40}, Leaf{"auds", "strf", 16}));

TEST(Chunks, TextFormatIs64Bytes) {
  ctstrf format;
  MemoryIO in(Ramp(64)), out;
  format.parse(in);
  EXPECT_EQ(64, format.Fill(out, true));
  EXPECT_EQ(Text(Bytes().Cc("strf").U32(64).Raw(Ramp(64))),
            std::string(out.bytes.begin(), out.bytes.end()));
}

TEST(Chunks, DataChunksWriteWhatTheyAreGiven) {
  unsigned char data[] = "odd";
  cisft isft(data, 3);
  cjunk junk(data, 3);
  junk.AddSize(9);
  junk.AddSize(2);  // replaces
  MemoryIO out;
  isft.Fill(out, true);
  junk.Fill(out, true);
  Bytes expected;
  expected.Cc("isft").U32(3).Raw("odd");  // no padding
  expected.Cc("JUNK").U32(5).Raw("odd").Zeros(2);
  EXPECT_EQ("", Difference(expected, out.bytes));
}

TEST(Chunks, FactoryKnowsItsCodesOnly) {
  for (char const* code : {"RIFF", "hdrl", "avih", "strl", "strh", "vids", "auds", "strd", "strn",
                           "INFO", "movi", "idx1", "JUNK", "root"})
    EXPECT_TRUE(std::unique_ptr<IList>(IList::New(code))) << code;
  for (char const* code : {"", "txts", "isft", "strf", "LIST", "Junk", "AVI "})
    EXPECT_FALSE(std::unique_ptr<IList>(IList::New(code))) << code;
}

// Lists nest; sizes count types, headers and odd payloads as they are.
TEST(Chunks, TreeIsWrittenWithItsSizes) {
  unsigned char name[] = "abc";
  croot root;
  IList* riff = root.Add(new criff);
  IList* hdrl = riff->Add(new chdrl);
  hdrl->Add(new cstrl)->Add(new cstrn(name, 3));
  riff->Add(new cmovi);
  EXPECT_EQ(nullptr, riff->Add(nullptr));
  MemoryIO out;
  root.Fill(out, true);
  Bytes expected;
  expected.Cc("RIFF").U32(51).Cc("AVI ");
  expected.Cc("LIST").U32(27).Cc("hdrl");
  expected.Cc("LIST").U32(15).Cc("strl");
  expected.Cc("strn").U32(3).Raw("abc");
  expected.Cc("LIST").U32(4).Cc("movi");  // at an odd offset
  EXPECT_EQ("", Difference(expected, out.bytes));
  EXPECT_EQ(27u, hdrl->Size());
}

Bytes ListOf(char const* type, Bytes const& content, char const* id = "LIST") {
  return Bytes().Cc(id).U32(static_cast<unsigned>(content.size()) + 4).Cc(type).Add(content);
}
Bytes Leaf8(char const* id) { return Bytes().Cc(id).U32(0); }
Bytes StreamHeader(char const* type) { return Bytes().Cc("strh").U32(56).Cc(type).Zeros(52); }
Bytes VideoFormat() { return Bytes().Cc("strf").U32(40).Raw(Ramp(40)); }

// What the parsed tree holds, as nested names.
std::string Shape(IList* node) {
  std::string text;
  for (; node != nullptr; node = node->Next()) {
    unsigned const code = node->ListType() != 0 ? node->ListType() : node->Id();
    for (int i = 0; i < 4; ++i) text += static_cast<char>(code >> (8 * i));
    if (node->Child() != nullptr) text += "(" + Shape(node->Child()) + ")";
    if (node->Next() != nullptr) text += " ";
  }
  return text;
}

std::string Parsed(Bytes const& file, int* result = nullptr) {
  MemoryIO io(Text(file));
  croot root;
  root.Size(static_cast<unsigned>(io.Size()));
  int const ok = root.Parse(io, true);
  if (result != nullptr) *result = ok;
  return Shape(root.Child());
}

TEST(Parsing, KeepsWhatItKnows) {
  Bytes const strl = ListOf("strl", Bytes().Add(StreamHeader("vids")).Add(VideoFormat()));
  Bytes const text = ListOf("strl", Bytes().Add(StreamHeader("txts")).Add(VideoFormat()));
  Bytes const movi = ListOf("movi", Bytes().Cc("00dc").U32(3).Raw("abc"));
  Bytes const index = Bytes().Cc("idx1").U32(16).Cc("00dc").Zeros(12);
  Bytes const unknownList = ListOf("what", Bytes().Add(Leaf8("avih")));
  Bytes const isft = ListOf("INFO", Bytes().Cc("isft").U32(4).Raw("soft"));
  struct Case {
    char const* name;
    Bytes content;
    char const* tree;
  } const cases[] = {
      {"an ordinary file", Bytes().Add(ListOf("hdrl", strl)).Add(movi).Add(index),
       "AVI (hdrl(strl(strh strf)) movi idx1)"},
      {"an unknown list is passed over", Bytes().Add(unknownList).Add(movi), "AVI (movi)"},
      {"an unknown leaf ends its list, not the file",
       Bytes().Add(ListOf("hdrl", Bytes().Add(Leaf8("vprp")).Add(strl))).Add(movi),
       "AVI (hdrl movi)"},
      {"a text stream's format ends its list",
       Bytes().Add(ListOf("hdrl", Bytes().Add(text).Add(strl))),
       "AVI (hdrl(strl(strh) strl(strh strf)))"},
      {"a format without a header",
       Bytes().Add(ListOf("hdrl", ListOf("strl", VideoFormat()))).Add(movi),
       "AVI (hdrl(strl) movi)"},
      {"isft is not known when read", Bytes().Add(isft).Add(movi), "AVI (INFO movi)"},
      {"JUNK within the file is passed over",
       Bytes().Cc("JUNK").U32(16).Add(Leaf8("avih")).Add(Leaf8("avih")).Add(movi),
       "AVI (JUNK movi)"},
  };
  for (auto const& c : cases)
    EXPECT_EQ(c.tree, Parsed(ListOf("AVI ", c.content, "RIFF"))) << c.name;
}

TEST(Parsing, BoundsWhatAFileCosts) {
  Bytes nested = Leaf8("avih");
  for (int i = 0; i < 10000; ++i) nested = i < 40 ? ListOf("hdrl", nested) : nested;
  Bytes deep;
  for (int i = 0; i < 10000; ++i) deep.Cc("LIST").U32(0x7FFFFFFF).Cc("hdrl");
  Bytes junk, lists;
  for (int i = 0; i < 200000; ++i) {
    junk.Add(Leaf8("JUNK"));
    lists.Cc("LIST").U32(4).Cc("what");
  }
  auto const start = std::chrono::steady_clock::now();
  int ok = 0;
  EXPECT_LE(Parsed(nested, &ok).size(), 16u * 6);
  Parsed(deep, &ok);
  EXPECT_EQ(1, ok);
  EXPECT_EQ(65536u * 5 - 1, Parsed(junk, &ok).size()) << "65,536 chunks: \"JUNK JUNK ...\"";
  Parsed(lists, &ok);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  EXPECT_EQ("", Parsed(Bytes(), &ok));
  EXPECT_EQ(0, ok) << "an empty stream";
}

TEST(Parsing, EveryTruncationEnds) {
  Bytes const strl = ListOf("strl", Bytes().Add(StreamHeader("vids")).Add(VideoFormat()));
  Bytes const whole = ListOf("AVI ", Bytes().Add(ListOf("hdrl", strl)).Add(Leaf8("idx1")), "RIFF");
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
  EXPECT_EQ(nullptr, root.Find("strl")) << "list types are not ids";
  std::string text;
  base::ostream_string os(text);
  *avih >> os;
  EXPECT_EQ(
      "plugin/avi/common/IList/31/operator>>:\tavih\n"
      "kestro::plugin::avi::IList*(nullptr)kestro::plugin::avi::cstrl(unknow)",
      text);
}

// A wide and deep tree without a match: the search is linear.
TEST(Search, FailsInLinearTime) {
  croot root;
  for (int i = 0; i < 10; ++i) {
    IList* list = root.Add(new chdrl);
    for (int j = 0; j < 2000; ++j) list->Add(new cjunk(nullptr, 0));
  }
  EXPECT_EQ(nullptr, root.Find("idx1"));
}

}  // namespace
}  // namespace kestro::test
