// The bytes of whole files, by the description of the format alone.
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
  bool audio = false;
  std::string strd, strn, isft, junk;
  bool indexFirst = false;
  unsigned reserve = 32768;  // of an index that is first
  unsigned headerSize = 0;   // up to which JUNK fills, with the header of movi
};

struct Chunk {
  std::string id, stored;
  bool key;
};

inline Bytes List(char const* id, char const* type, Bytes const& content) {
  return Bytes().Cc(id).U32(content.size() + 4).Cc(type).Add(content);
}

inline Bytes Plain(char const* id, std::string const& payload) {
  return Bytes().Cc(id).U32(payload.size()).Raw(payload);
}

inline Bytes MainHeader(Shape const& s, unsigned frames, unsigned bytesPerSecond) {
  Bytes b = Bytes().Cc("avih").U32(56);
  b.U32(s.rate.den * 1000000 / s.rate.num, bytesPerSecond);      // microseconds per frame
  b.U32(0, 0x10010, frames, 0, s.audio ? 2 : 1);                 // index, captured; streams
  return b.U32(192000, 320, s.interlace ? 360 : 180).Zeros(16);  // buffer size, width, height
}

inline Bytes VideoHeaders(Shape const& s, unsigned frames) {
  unsigned const height = s.interlace ? 360 : 180;
  Bytes b = Bytes().Cc("strh").U32(56).Cc("vids").Cc("H264");
  b.U32(0, 0, 0, 10000, s.rate.num / s.rate.den * 10000);  // scale, rate: whole frames only
  b.U32(0, frames, 192000, 10000, 0);  // start, length, buffer size, quality, sample size
  b.U32(0).U16(320, height);           // frame: left/top, right, bottom
  b.Cc("strf").U32(40, 40, 320, height).U16(1, 24).Cc("H264");  // planes, bits, compression
  b.U32(320 * height * 3).Zeros(16);
  if (!s.strd.empty()) b.Add(Plain("strd", s.strd));
  if (!s.strn.empty()) b.Add(Plain("strn", s.strn));
  return List("LIST", "strl", b);
}

inline Bytes AudioHeaders(unsigned samples) {
  Bytes b = Bytes().Cc("strh").U32(56).Cc("auds").Raw(std::string("PCM\0", 4));
  b.U32(0, 0, 0, 4, 192000, 0, samples, 32000, 10000, 4).Zeros(8);  // as above
  b.Cc("strf").U32(16).U16(1, 2).U32(48000, 192000).U16(4, 16);     // rates, align, bits
  return List("LIST", "strl", b);
}

// The data and the index of chunks, from an offset on.
struct Body {
  Body(std::vector<Chunk> const& chunks, std::size_t at) {
    for (auto const& chunk : chunks) {
      std::size_t const size = chunk.stored.size();
      if (size > 0) index.Cc(chunk.id.c_str()).U32(chunk.key ? 0x10 : 0, at + movi.size(), size);
      movi.Add(Plain(chunk.id.c_str(), chunk.stored)).Zeros(size % 2);
    }
    movi = List("LIST", "movi", movi);
  }
  Bytes movi, index;
};

inline Bytes Expected(Shape const& s, std::vector<Chunk> const& chunks) {
  unsigned frames = 0, videoBytes = 0, samples = 0, ms = 0;
  for (auto const& chunk : chunks) {
    auto const size = static_cast<unsigned>(chunk.stored.size());
    bool const audio = chunk.id[2] == 'w';
    frames += !audio;
    ms += !audio && size > 0 ? 40 : 0;
    (audio ? samples : videoBytes) += audio ? size / 4 : size;
  }
  Bytes hdrl = MainHeader(s, frames, videoBytes * 1000 / std::max(ms, 1u));
  hdrl.Add(VideoHeaders(s, frames));
  if (s.audio) hdrl.Add(AudioHeaders(samples));

  Bytes riff;
  riff.Add(List("LIST", "hdrl", hdrl));
  if (!s.isft.empty()) riff.Add(List("LIST", "INFO", Plain("isft", s.isft)));
  std::string junk = s.junk;
  if (s.headerSize != 0) junk.resize(s.headerSize - 12 - (12 + riff.size()) - 8);
  if (!junk.empty() || s.headerSize != 0) riff.Add(Plain("JUNK", junk));

  unsigned const reserve = s.reserve;
  Body body(chunks, 12 + riff.size() + (s.indexFirst ? 8 + reserve : 0) + 12);
  Bytes& index = body.index;
  if (s.indexFirst) {
    // The chunk keeps the reserved size, and zeros follow the entries that fit.
    if (index.size() > reserve) index.resize(reserve - reserve % 16);
    riff.Cc("idx1").U32(reserve).Add(index).Zeros(reserve - index.size()).Add(body.movi);
  } else {
    riff.Add(body.movi).Add(Plain("idx1", {index.begin(), index.end()}));
  }
  return List("RIFF", "AVI ", riff);
}

// The tag set of a shape, with the arrays it points to.
struct Tags {
  explicit Tags(Shape const& shape) : s(shape), object(Make<base::Object>("AviVideoTags")) {
    object->Set("strdbuf", &strd[0]);
    object->Set("strdsize", &strdSize[0]);
    object->Set("strnbuf", &strn[0]);
    object->Set("strnsize", &strnSize[0]);
    object->Set("isftbuf", reinterpret_cast<unsigned char*>(s.isft.data()));
    object->Set("isftsize", static_cast<unsigned>(s.isft.size()));
    object->Set("junkbuf", reinterpret_cast<unsigned char*>(s.junk.data()));
    object->Set("junksize", static_cast<unsigned>(s.junk.size()));
    object->Set("idx1_first", static_cast<unsigned char>(s.indexFirst));
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
