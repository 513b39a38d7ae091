// The bytes of whole files, from the layout's description alone.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/Bytes.h"
#include "support/Recording.h"

namespace kestro::test {

// What one file is made from.
struct Shape {
  base::Fraction rate{25, 1};
  bool interlace = false;
  bool sound = false;
  std::string strd, strn, isft, junk;
  bool indexFirst = false;
  unsigned reserve = 32768;  // of an index that is first
  unsigned headerSize = 0;   // what JUNK fills up to, with the head of movi
};

struct Chunk {
  char const* id;
  std::string stored;
  bool key;
};

inline Bytes List(char const* id, char const* type, Bytes const& content) {
  return Bytes().Cc(id).U32(static_cast<unsigned>(content.size()) + 4).Cc(type).Add(content);
}

inline Bytes Plain(char const* id, std::string const& payload) {
  return Bytes().Cc(id).U32(static_cast<unsigned>(payload.size())).Raw(payload);
}

inline Bytes MainHeader(Shape const& s, unsigned frames, unsigned bytesPerSecond) {
  Bytes b;
  b.Cc("avih").U32(56);
  b.U32(static_cast<unsigned>(s.rate.den * 1000000 / s.rate.num));  // microseconds per frame
  b.U32(bytesPerSecond).U32(0).U32(0x10010);            // padding, flags: index, captured
  b.U32(frames).U32(0).U32(s.sound ? 2 : 1);            // initial frames, streams
  b.U32(192000).U32(320).U32(s.interlace ? 360 : 180);  // buffer size, width, height
  return b.Zeros(16);                                   // reserved
}

inline Bytes VideoHeaders(Shape const& s, unsigned frames) {
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

inline Bytes SoundHeaders(unsigned samples) {
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
inline Bytes Expected(Shape const& s, std::vector<Chunk> const& chunks) {
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
  std::string junk = s.junk;
  if (s.headerSize != 0) junk.resize(s.headerSize - 12 - (12 + riff.size()) - 8);
  if (!junk.empty() || s.headerSize != 0) riff.Add(Plain("JUNK", junk));

  unsigned const reserve = s.reserve;
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
    // The reserved size stays in the header, and zeros behind the entries that fit.
    if (entries.size() > reserve) entries.resize(reserve / 16 * 16);
    riff.Cc("idx1").U32(reserve).Add(entries).Zeros(reserve - entries.size()).Add(data);
  } else {
    riff.Add(data).Cc("idx1").U32(static_cast<unsigned>(entries.size())).Add(entries);
  }
  return List("RIFF", "AVI ", riff);
}

// The tag set of a shape, with the arrays it points to.
struct Tags {
  explicit Tags(Shape const& shape) : s(shape), object(Make()) {
    auto const bytes = [](std::string& text) {
      return reinterpret_cast<unsigned char*>(text.data());
    };
    object->Set("strdbuf", &strd[0]);
    object->Set("strdsize", &strdSize[0]);
    object->Set("strnbuf", &strn[0]);
    object->Set("strnsize", &strnSize[0]);
    object->Set("isftbuf", bytes(s.isft));
    object->Set("isftsize", static_cast<unsigned>(s.isft.size()));
    object->Set("junkbuf", bytes(s.junk));
    object->Set("junksize", static_cast<unsigned>(s.junk.size()));
    object->Set("idx1_first", static_cast<unsigned char>(s.indexFirst));
  }
  static base::Object* Make() {
    RegisterClasses();
    return dynamic_cast<base::Object*>(base::Object::New("AviVideoTags"));
  }

  Shape s;
  // Of the first track; the others have none.
  void* strd[3] = {s.strd.data()};
  void* strn[3] = {s.strn.data()};
  unsigned strdSize[3] = {unsigned(s.strd.size())};
  unsigned strnSize[3] = {unsigned(s.strn.size())};
  std::unique_ptr<base::Object> object;
};

}  // namespace kestro::test
