// Error lines in an application's log name the same file and function, wherever the code moves.
#include <gmock/gmock.h>

#include <functional>
#include <regex>

#include "common/DataChunks.h"
#include "common/VideoHeader.h"
#include "customize/VFIAviMuxer.h"
#include "support/FaultIO.h"
#include "support/FileLayout.h"

namespace kestro::test {
namespace {

using namespace plugin::avi;

enum Way { kPlain, kInPlace, kImage };

// A muxer that can lose its stream.
struct Losing : VFIAviMuxer {
  void LoseStream() { _io = nullptr; }
};

struct Rig {
  explicit Rig(Way way, base::IO* to, base::Ref<IMedia> media = VideoMedia())
      : tags(std::make_unique<Tags>(ShapeOf(way))),
        r(to, way == kPlain ? "AviMuxer-avi-muxer" : Registered()) {
    auto& m = *r.muxer;
    m.Set("vidtag", tags->object.get());
    m.Set("periodicSyncEn", way == kImage);
    m.Set("reservedSize", way == kInPlace ? 16 : 1028 + 24);
    m.Set("periodicSyncHeaderSize", 1028);
    m.Set("periodicSyncIdx1Size", 24);
    if (media) r.Track(std::move(media));
    r.Open();
  }
  static Shape ShapeOf(Way way) {
    Shape shape;
    shape.indexFirst = way == kImage;
    return shape;
  }
  static char const* Registered() {
    RegisterClasses();
    static auto const* const once =
        base::TClass<Losing>::Register("Losing-muxer", VFIAviMuxer::Properties());
    return once->Alias().c_str();
  }
  Losing& Vfi() { return dynamic_cast<Losing&>(*r.muxer); }
  bool Push() { return r.Push(0, KeyFrame("x"), true); }

  std::unique_ptr<Tags> tags;
  Recording r;
};

// Replaces the caching writer in the registry: by none, or by one without properties.
class NoWriter {
 public:
  explicit NoWriter(bool made) {
    Alias("io-cache-writer") = "aside";
    auto* const record = base::TClass<Deaf>::Register("io-cache-writer", {});
    if (made) record->Constructor<Deaf, base::IO*, int, int>();
  }
  ~NoWriter() {
    Alias("io-cache-writer") = "no-writer-" + std::to_string(++count);
    Alias("aside") = "io-cache-writer";
  }

 private:
  struct Deaf : MemoryIO {
    Deaf() = default;
    Deaf(base::IO*, int, int) {}
  };
  static std::string& Alias(char const* name) {
    return const_cast<std::string&>(base::IClass::Find(name, true)->Alias());
  }
  static inline int count = 0;
};

void OpenWithoutWriter(Way way, bool made) {
  NoWriter const none(made);
  MemoryIO io;
  EXPECT_FALSE(Rig(way, &io).Push());
}

void OpenWhatCannotBeOpened(Way way) {
  Rig rig(way, nullptr);
  rig.r.muxer->Set("path", "/nowhere/at/all.avi");
  EXPECT_FALSE(rig.Push());
}

// Opens with a track whose media lack one key.
void OpenWithout(char const* codec, std::string const& key) {
  auto media = base::Ref<IMedia>::Take(IMedia::New(codec));
  for (char const* name : {"width", "height", "interlace"})
    if (key != name) media->Set(name, 0);
  MemoryIO io;
  EXPECT_FALSE(Rig(kPlain, &io, media).Push());
}

void ReadWhatCannotBeRead(char const* codec) {
  std::unique_ptr<IList> const strl(NewVideoStrl("any ", 25, 64, 48));
  RegisterClasses();
  std::unique_ptr<IStream> const stream(IStream::New(codec, codec, 0));
  ASSERT_TRUE(stream->DemuxConfig(strl.get(), nullptr));
  ChunkParam chunk;
  stream->AddListChunk(chunk);
  stream->DemuxReset();
  FaultIO io;
  io.Fail({FaultIO::kRead, 1});
  EXPECT_EQ(Packet::ReadFailure(), stream->GetPacket(io, 0));
}

// Syncs without a file, or after the stream is gone.
void SyncWithout(Way way, bool writer) {
  MemoryIO io;
  Rig rig(way, &io);
  if (writer) {
    EXPECT_TRUE(rig.Push());
    rig.Vfi().LoseStream();
  } else {
    EXPECT_FALSE(rig.Vfi().PeriodicSyncUpdateIdx1(VFIAviMuxer::kImage));
  }
  EXPECT_FALSE(rig.Vfi().UpdateIdx1());
}

void FillTheIndex() {
  MemoryIO io;
  Rig rig(kInPlace, &io);
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(rig.Push());
  rig.r.Close();
}

// The lines of a console, with "#" for line numbers other than those that are fixed.
std::vector<std::string> Lines(std::string text) {
  std::vector<std::string> lines;
  std::string const end = "\n\033[0m";
  for (std::size_t at; (at = text.find(end)) != text.npos; text.erase(0, at + end.size())) {
    std::string const line = text.substr(0, at);
    bool const given = line.find("/31/") != line.npos || line.find("/87/") != line.npos;
    lines.push_back(given ? line : std::regex_replace(line, std::regex("/[0-9]+/"), "/#/"));
  }
  return lines;
}

TEST(ErrorLines, TagsArePrintedWithTheirLines) {
  Tags const tags{Shape{}};
  std::string text;
  base::ostream_string os(text);
  *tags.object >> os;
  std::pair<int, char const*> const lines[] = {
      {83, "strdbuf "},  {84, "strdsize "}, {85, "strnbuf "},  {86, "strnsize "}, {88, "isftbuf "},
      {89, "isftsize "}, {90, "junkbuf "},  {91, "junksize "}, {92, "idx1_first"}};
  for (auto const& [line, name] : lines)
    EXPECT_THAT(text, testing::HasSubstr("VideoTag/" + std::to_string(line) + "/operator>>:\t" +
                                         name + ": "));
}

TEST(ErrorLines, KeepTheirFileAndFunction) {
  std::string const core = "common/IAviMuxer/#/", plain = "AviMuxer/#/",
                    h264 = "common/StreamH264/#/", hevc = "common/StreamHevc/#/",
                    vfi = "customize/VFIAviMuxer/#/";
  std::string const get = "!_media->Get(\"", set =
                                                 "!_blkio->Set(\"func_error\",FuncIO([this](IO*io)"
                                                 "{return IOError(io);}))";
  struct Case {
    char const* fault;
    std::function<void()> meet;
    std::vector<std::string> lines;  // that must be printed, among others
  } const cases[] = {
      {"no width",
       [] { OpenWithout("h264", "width"); },
       {h264 + "muxConfig:\t" + get + "width\", width)",
        "common/IStream/87/MuxConfig:\t!muxConfig(vidtag)",
        core + "AddStream:\t!st->MuxConfig(_list, media, _vidtag, &_para)"}},
      {"no height",
       [] { OpenWithout("hevc", "height"); },
       {hevc + "muxConfig:\t" + get + "height\", height)"}},
      {"no interlace",
       [] { OpenWithout("hevc", "interlace"); },
       {hevc + "muxConfig:\t" + get + "interlace\", interlace)"}},
      {"a chunk that cannot be read",
       [] { ReadWhatCannotBeRead("h264"); },
       {h264 + "GetPacket:\tpkt == (Packet*)-1,IStream GetPacket error!"}},
      {"the same in HEVC",
       [] { ReadWhatCannotBeRead("hevc"); },
       {hevc + "GetPacket:\tpkt == (Packet*)-1,IStream GetPacket error!"}},
      {"no media",
       [] {
         MemoryIO io;
         EXPECT_FALSE(
             Rig(kPlain, &io, {}).r.muxer->ReceivePacket(*MakePacket(nullptr, "x"), nullptr));
       },
       {core + "StreamConfig:\tlist.empty()", core + "Open:\t!StreamConfig(io, list)",
        plain + "OpenFileConfig:\t", plain + "ReceivePacket:\t!OpenFileConfig()"}},
      {"no file",
       [] { OpenWhatCannotBeOpened(kPlain); },
       {plain + "OpenConfig:\t", plain + "OpenFileConfig:\t!OpenConfig(list)"}},
      {"no file in place",
       [] { OpenWhatCannotBeOpened(kInPlace); },
       {plain + "OpenFileConfig:\t!OpenConfig(list)",
        vfi + "OpenFileConfig:\t!AviMuxer::OpenFileConfig()"}},
      {"no file for an image",
       [] { OpenWhatCannotBeOpened(kImage); },
       {vfi + "PeriodicSyncBufferCreate:\t!OpenConfig(list)",
        vfi + "OpenFileConfig:\t!PeriodicSyncBufferCreate(_periodicSyncMode),OpenFileConfig"}},
      {"no writer", [] { OpenWithoutWriter(kPlain, false); }, {plain + "OpenFileConfig:\t!_blkio"}},
      {"no writer for an image",
       [] { OpenWithoutWriter(kImage, false); },
       {vfi + "PeriodicSyncBufferCreate:\t!_blkio"}},
      {"another writer",
       [] { OpenWithoutWriter(kPlain, true); },
       {plain + "OpenFileConfig:\t" + set}},
      {"another writer for an image",
       [] { OpenWithoutWriter(kImage, true); },
       {vfi + "PeriodicSyncBufferCreate:\t" + set}},
      {"a sync without a file",
       [] { SyncWithout(kImage, false); },
       {vfi + "PeriodicSyncUpdateIdx1:\t!_blkio"}},
      {"a sync without a stream",
       [] { SyncWithout(kImage, true); },
       {vfi + "PeriodicSyncUpdateIdx1:\t!_io",
        vfi + "UpdateIdx1:\t!PeriodicSyncUpdateIdx1(_periodicSyncMode)"}},
      {"a sync in place without a stream",
       [] { SyncWithout(kInPlace, true); },
       {vfi + "UpdateIdx1:\t!_io"}},
      {"a full index",
       FillTheIndex,
       {core + "fillIdx1:\tidx1 too small, data length over idx1 rsvd size",
        core + "fillIdx1:\t!ret"}},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.fault);
    base::ConsoleCapture console;
    c.meet();
    auto const lines = Lines(console.Text());
    for (auto const& line : c.lines)
      EXPECT_THAT(lines, testing::Contains("\033[31mplugin/avi/" + line));
  }
}

}  // namespace
}  // namespace kestro::test
