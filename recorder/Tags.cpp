#include "recorder/Tags.h"

#include <algorithm>

#include "base/IClass.h"
#include "recorder/Refusal.h"

namespace kestro::record {

static std::vector<char> Padded(std::vector<char> data) {
  data.resize((data.size() + 3) / 4 * 4);
  return data;
}

static std::vector<char> Padded(std::string const& text) {
  return Padded(std::vector<char>(text.begin(), text.end()));
}

template <class T>
void Tags::Set(char const* name, T value) {
  if (!_tags->Set(name, value))
    throw Refusal(Code::kPlugin, std::string("the plug-in's tag set refuses ") + name);
}

Tags::OfTracks Tags::ByTrack(std::vector<std::vector<char>> data, std::size_t tracks) {
  OfTracks all{std::move(data), std::vector<void*>(tracks), std::vector<unsigned>(tracks)};
  all.data.resize(tracks);
  for (std::size_t i = 0; i < tracks; ++i) {
    if (all.data[i].empty()) continue;
    all.data[i] = Padded(std::move(all.data[i]));
    all.buf[i] = all.data[i].data();
    all.size[i] = static_cast<unsigned>(all.data[i].size());
  }
  return all;
}

Tags::Tags(TagOptions const& options, std::string const& isft, std::size_t tracks,
           std::size_t video)
    : _tags(base::Make<base::Object>("AviVideoTags")) {
  if (!_tags) throw Refusal(Code::kPlugin, "the plug-in has no tag set");
  auto strd = options.strdOf, strn = options.strnOf;
  strd.resize(tracks);
  strn.resize(tracks);
  if (!options.strd.empty()) strd.at(video) = options.strd;
  if (!options.strn.empty()) strn.at(video).assign(options.strn.begin(), options.strn.end());
  _strd = ByTrack(std::move(strd), tracks);
  _strn = ByTrack(std::move(strn), tracks);
  _isft = Padded(isft);
  Set("strdbuf", _strd.buf.data());
  Set("strdsize", _strd.size.data());
  Set("strnbuf", _strn.buf.data());
  Set("strnsize", _strn.size.data());
  if (!_isft.empty()) {
    Set("isftbuf", reinterpret_cast<unsigned char*>(_isft.data()));
    Set("isftsize", static_cast<unsigned>(_isft.size()));
  }
  auto junk = options.junkData;
  junk.resize(std::max<std::size_t>(options.junk, junk.size()));
  Junk(std::move(junk));
}

void Tags::Junk(std::vector<char> data) {
  _junk = std::move(data);
  _junk.resize((_junk.size() + 1) / 2 * 2);
  Set("junkbuf", _junk.empty() ? nullptr : reinterpret_cast<unsigned char*>(_junk.data()));
  Set("junksize", static_cast<unsigned>(_junk.size()));
}

void Tags::IndexFirst() { Set("idx1_first", static_cast<unsigned char>(1)); }

}  // namespace kestro::record
