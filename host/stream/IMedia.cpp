#include "stream/IMedia.h"

#include <algorithm>
#include <cstring>

namespace kestro::stream {

namespace {

bool OneOf(std::string const& codec, std::initializer_list<char const*> names) {
  return std::any_of(names.begin(), names.end(), [&](char const* name) { return codec == name; });
}

bool IsVideoCodec(std::string const& codec) {
  return OneOf(codec, {"h264", "H264", "avc1", "hevc", "h265", "hev1", "jpeg", "mjpg", "jpg"});
}

bool IsAudioCodec(std::string const& codec) {
  return OneOf(codec, {"pcm", "PCM", "sowt", "s16le", "mp4a", "aac"});
}

}  // namespace

IMedia* IMedia::New(char const* codec) {
  return codec != nullptr && *codec != '\0' ? new IMedia(codec) : nullptr;
}

IMedia::IMedia(char const* codec)
    : Object("media"),
      _codec(codec),
      _kind(IsVideoCodec(_codec)   ? Kind::kVideo
            : IsAudioCodec(_codec) ? Kind::kAudio
                                   : Kind::kOther) {
  _keys.reserve(8);  // as many as most codecs have
}

bool IMedia::Extra(void const* data, unsigned size) {
  if (data == nullptr || size == 0) return false;
  auto const* from = static_cast<unsigned char const*>(data);
  auto const copy = std::make_shared<std::vector<unsigned char> const>(from, from + size);
  auto const within = [](unsigned char const* p, unsigned char const* begin, std::size_t bytes) {
    return p >= begin && p < begin + bytes;
  };
  std::lock_guard lock(_mutex);
  auto const& last = *_extras.back();
  for (auto key = _keys.begin(); key != _keys.end();) {
    unsigned char const* pointer = nullptr;
    if (key->second.IsPointer()) key->second.To(&pointer, typeid(pointer));
    if (within(pointer, from, size)) {
      pointer = copy->data() + (pointer - from);
      key->second.From(&pointer, typeid(pointer));
    } else if (within(pointer, last.data(), last.size())) {
      key = _keys.erase(key);
      continue;
    }
    ++key;
  }
  _extras.push_back(copy);
  return true;
}

IMedia::Bytes IMedia::ExtraData() const {
  std::lock_guard lock(_mutex);
  return _extras.back();
}

bool IMedia::Set(char const* name, void* value, std::type_info const* type) {
  base::Value taken;
  if (name == nullptr || !taken.From(value, *type)) return false;
  std::lock_guard lock(_mutex);
  for (auto& key : _keys)
    if (key.first == name) {
      key.second = taken;
      return true;
    }
  _keys.emplace_back(name, taken);
  return true;
}

bool IMedia::Get(char const* name, void* value, std::type_info const* type) {
  std::lock_guard lock(_mutex);
  for (auto const& key : _keys)
    if (key.first == name) return key.second.To(value, *type);
  return false;
}

}  // namespace kestro::stream
