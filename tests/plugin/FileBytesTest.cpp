// The bytes of whole files.
#include <gmock/gmock.h>
#include <unistd.h>

#include "base/File.h"
#include "support/Bytes.h"
#include "support/Recording.h"

namespace kestro::test {
namespace {

// What one file is made from.
struct Shape {
  base::Fraction rate{25, 1};
  bool interlace = false;
  bool sound = false;
  std::string strd, strn, isft, junk;
  bool indexFirst = false;
};

struct Chunk {
  char const* id;
  std::string stored;
  bool key;
};

Bytes List(char const* id, char const* type, Bytes const& content) {
  return Bytes().Cc(id).U32(static_cast<unsigned>(content.size()) + 4).Cc(type).Add(content);
}

Bytes Plain(char const* id, std::string const& payload) {
  return Bytes().Cc(id).U32(static_cast<unsigned>(payload.size())).Raw(payload);
}

Bytes MainHeader(Shape const& s, unsigned frames, unsigned bytesPerSecond) {
  return Bytes()
      .Cc("avih")
      .U32(56)
      .U32(static_cast<unsigned>(s.rate.den * 1000000 / s.rate.num))  // microseconds per frame
      .U32(bytesPerSecond)                                            // maximum bytes per second
      .U32(0)                                                         // padding granularity
      .U32(0x10010)                                                   // flags: index, captured
      .U32(frames)                                                    // total frames
      .U32(0)                                                         // initial frames
      .U32(s.sound ? 2 : 1)                                           // streams
      .U32(192000)                                                    // suggested buffer size
      .U32(320)                                                       // width
      .U32(s.interlace ? 360 : 180)                                   // height
      .Zeros(16);                                                     // reserved
}

Bytes VideoHeaders(Shape const& s, unsigned frames) {
  unsigned const height = s.interlace ? 360 : 180;
  Bytes b;
  b.Cc("strh").U32(56);
  b.Cc("vids").Cc("H264").U32(0);                                 // type, handler, flags
  b.U32(0).U32(0);                                                // priority/language, initial
  b.U32(10000);                                                   // scale
  b.U32(static_cast<unsigned>(s.rate.num / s.rate.den) * 10000);  // rate: whole frames only
  b.U32(0).U32(frames).U32(192000);                               // start, length, buffer size
  b.U32(10000).U32(0);                                            // quality, sample size
  b.U32(0).U16(320).U16(height);                                  // frame: left/top, right, bottom
  b.Cc("strf").U32(40);
  b.U32(40).U32(320).U32(height);                     // header size, width, height
  b.U16(1).U16(24).Cc("H264").U32(320 * height * 3);  // planes, bits, compression, image
  b.Zeros(16);                                        // resolution, colours
  if (!s.strd.empty()) b.Add(Plain("strd", s.strd));
  if (!s.strn.empty()) b.Add(Plain("strn", s.strn));
  return List("LIST", "strl", b);
}

Bytes SoundHeaders(unsigned samples) {
  Bytes b;
  b.Cc("strh").U32(56);
  b.Cc("auds").Raw(std::string("PCM\0", 4)).U32(0);  // type, handler, flags
  b.U32(0).U32(0).U32(4).U32(192000);                // priority, initial, scale, rate
  b.U32(0).U32(samples).U32(32000);                  // start, length, buffer size
  b.U32(10000).U32(4).Zeros(8);                      // quality, sample size, frame
  b.Cc("strf").U32(16);
  b.U16(1).U16(2).U32(48000).U32(192000).U16(4).U16(16);  // format, channels, rates, align, bits
  return List("LIST", "strl", b);
}

// The whole file, from the layout's description alone.
Bytes Expected(Shape const& s, std::vector<Chunk> const& chunks) {
  unsigned frames = 0;
  unsigned videoBytes = 0;
  unsigned samples = 0;
  for (auto const& chunk : chunks) {
    auto const size = static_cast<unsigned>(chunk.stored.size());
    if (chunk.id[2] == 'w') {
      samples += size / 4;
    } else {
      ++frames;
      videoBytes += size;
    }
  }
  Bytes hdrl = MainHeader(s, frames, videoBytes * 1000 / (frames * 40));
  hdrl.Add(VideoHeaders(s, frames));
  if (s.sound) hdrl.Add(SoundHeaders(samples));

  Bytes riff;
  riff.Add(List("LIST", "hdrl", hdrl));
  if (!s.isft.empty()) riff.Add(List("LIST", "INFO", Plain("isft", s.isft)));
  if (!s.junk.empty()) riff.Add(Plain("JUNK", s.junk));

  unsigned const reserve = 32768;
  auto position = static_cast<unsigned>(12 + riff.size() + (s.indexFirst ? 8 + reserve : 0) + 12);
  Bytes movi, entries;
  for (auto const& chunk : chunks) {
    auto const size = static_cast<unsigned>(chunk.stored.size());
    entries.Cc(chunk.id).U32(chunk.key ? 0x10 : 0).U32(position).U32(size);
    movi.Cc(chunk.id).U32(size).Raw(chunk.stored).Zeros(size % 2);
    position += 8 + size + size % 2;
  }
  Bytes const data = List("LIST", "movi", movi);
  if (s.indexFirst) {
    // The reserved size stays in the header, and zeros behind the entries.
    riff.Cc("idx1").U32(reserve).Add(entries).Zeros(reserve - entries.size()).Add(data);
  } else {
    riff.Add(data).Cc("idx1").U32(static_cast<unsigned>(entries.size())).Add(entries);
  }
  return List("RIFF", "AVI ", riff);
}

// The tag set of a shape, with the arrays it points to.
struct Tags {
  explicit Tags(Shape const& shape) : s(shape), object(Make()) {
    char* const* first = &bytes[0];
    data[0] = *first;
    data[2] = bytes[1];
    sizes[0] = static_cast<unsigned>(s.strd.size());
    sizes[2] = static_cast<unsigned>(s.strn.size());
    object->Set("strdbuf", static_cast<void**>(&data[0]));
    object->Set("strdsize", &sizes[0]);
    object->Set("strnbuf", static_cast<void**>(&data[2]));
    object->Set("strnsize", &sizes[2]);
    object->Set("isftbuf", reinterpret_cast<unsigned char*>(s.isft.data()));
    object->Set("isftsize", static_cast<unsigned>(s.isft.size()));
    object->Set("junkbuf", reinterpret_cast<unsigned char*>(s.junk.data()));
    object->Set("junksize", static_cast<unsigned>(s.junk.size()));
    object->Set("idx1_first", static_cast<unsigned char>(s.indexFirst));
  }
  static base::Object* Make() {
    RegisterClasses();
    return dynamic_cast<base::Object*>(base::Object::New("AviVideoTags"));
  }

  Shape s;
  char* bytes[2] = {s.strd.data(), s.strn.data()};
  void* data[4] = {};
  unsigned sizes[4] = {};
  std::unique_ptr<base::Object> object;
};

std::vector<Chunk> RecordTo(Recording& r, Shape const& s, int frames) {
  r.muxer->Set("constFrameRate", s.rate);
  std::vector<Chunk> chunks;
  EXPECT_TRUE(r.Open());
  for (int i = 0; i < frames; ++i) {
    std::string const payload(static_cast<std::size_t>(i + 1), static_cast<char>('a' + i % 26));
    bool const key = i % 3 == 0;
    EXPECT_TRUE(r.Push(0, key ? KeyFrame(payload) : Frame(payload), key));
    chunks.push_back({"00dc", key ? StoredKeyFrame(payload) : StoredFrame(payload), key});
    if (!s.sound) continue;
    std::string const sound(static_cast<std::size_t>(8 + i % 5), 's');
    EXPECT_TRUE(r.Push(1, sound, true));
    chunks.push_back({"01wb", sound, false});
  }
  EXPECT_TRUE(r.Close());
  EXPECT_TRUE(r.muxer->Check());
  return chunks;
}

Shape With(Shape s, void (*change)(Shape&)) {
  change(s);
  return s;
}

TEST(FileBytes, EveryLayoutIsExact) {
  Shape const plain;
  struct Case {
    char const* name;
    Shape shape;
  } const cases[] = {
      {"video alone", plain},
      {"with sound", With(plain, [](Shape& s) { s.sound = true; })},
      {"29.97 is stored as 29, the frame time is exact", With(plain,
                                                              [](Shape& s) {
                                                                s.rate = {30000, 1001};
                                                              })},
      {"two fields a frame", With(plain, [](Shape& s) { s.interlace = true; })},
      {"strd alone", With(plain, [](Shape& s) { s.strd = "12345678"; })},
      {"JUNK without INFO", With(plain, [](Shape& s) { s.junk = std::string(6, 'j'); })},
      {"everything, of odd sizes", With(plain,
                                        [](Shape& s) {
                                          s.sound = true;
                                          s.strd = "strd!";
                                          s.strn = "a name.";
                                          s.isft = "software 1.0!";
                                          s.junk = "junk1";
                                        })},
      {"index first", With(plain, [](Shape& s) { s.indexFirst = true; })},
      {"index first with everything", With(plain,
                                           [](Shape& s) {
                                             s.sound = s.indexFirst = true;
                                             s.strd = "1234";
                                             s.isft = "soft";
                                             s.junk = "junk";
                                           })},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    MemoryIO io;
    Tags tags(c.shape);
    Recording r(&io);
    EXPECT_TRUE(r.muxer->Set("vidtag", tags.object.get()));
    r.Track(VideoMedia("h264", 320, 180, c.shape.rate, c.shape.interlace));
    if (c.shape.sound) r.Track(SoundMedia());
    auto const chunks = RecordTo(r, c.shape, 7);
    EXPECT_EQ("", Difference(Expected(c.shape, chunks), io.bytes));
    EXPECT_THAT(r.messages, testing::IsEmpty());
  }
}

// One element, file after file, each with tags of its own.
TEST(FileBytes, NothingOfAFileIsLeftInTheNext) {
  MemoryIO io;
  Recording r(&io);
  r.Track(VideoMedia());
  Shape first, second, third;
  first.strd = "12345678";
  first.isft = "one!";
  first.junk = "filler";
  second.indexFirst = true;
  for (Shape const& shape : {first, second, third, first}) {
    Tags tags(shape);
    r.muxer->Set("vidtag", tags.object.get());
    auto const chunks = RecordTo(r, shape, 4);
    EXPECT_EQ("", Difference(Expected(shape, chunks), io.bytes));
  }
}

// Two tracks share a list that is spilled by both; the index is in file order all the same, and the
// temporary files are gone.
TEST(FileBytes, SpilledIndexIsTheSame) {
  std::string const folder = NewFolder();
  base::File::Mount('S', folder.c_str());
  Shape shape;
  shape.sound = true;
  MemoryIO io;
  Recording r(&io);
  r.muxer->Set("listfile", 1);
  r.muxer->Set("diskName", "S");
  r.Track(VideoMedia()).Track(SoundMedia());
  auto const chunks = RecordTo(r, shape, 6000);
  EXPECT_EQ("", Difference(Expected(shape, chunks), io.bytes));
  EXPECT_EQ(0, rmdir(folder.c_str())) << "a spill file is left";
  EXPECT_THAT(r.messages, testing::IsEmpty());
  base::File::Mount('S', nullptr);
}

// An empty packet is a chunk of size 0 that is counted and not indexed.
TEST(FileBytes, EmptyPacketHasNoEntry) {
  MemoryIO io;
  Recording r(&io);
  r.Track(VideoMedia());
  ASSERT_TRUE(r.Open());
  EXPECT_TRUE(r.Push(0, KeyFrame("k"), true));
  EXPECT_TRUE(r.Push(0, ""));
  EXPECT_TRUE(r.Push(0, Frame("f")));
  EXPECT_TRUE(r.Close());
  std::string const file(io.bytes.begin(), io.bytes.end());
  EXPECT_NE(std::string::npos, file.find(std::string("00dc\0\0\0\0"
                                                     "00dc\x06",
                                                     13)));
  EXPECT_EQ(3, file[0x30]) << "total frames";
  EXPECT_EQ(2 * 16, file[file.rfind("idx1") + 4]) << "index size";
}

}  // namespace
}  // namespace kestro::test
