#include "stream/Packet.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace kestro::stream {

namespace {
std::size_t Alignment(PacketAlloc const& alloc) {
  return static_cast<std::size_t>(std::max(alloc.align, 1));
}
}  // namespace

// Allocates the header with malloc, plus room to align the payload after it. Aligned allocation
// costs more than that room and leaves fragments that make every free slower.
void* Packet::operator new(std::size_t header, PacketAlloc const& alloc) {
  void* const memory =
      std::malloc(header + Alignment(alloc) - 1 + static_cast<std::size_t>(alloc.size) +
                  static_cast<std::size_t>(alloc.pad));
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void Packet::operator delete(void* memory) { std::free(memory); }

Packet::Packet(PacketAlloc const& alloc) : _size(alloc.size), _capacity(alloc.size) {
  auto const align = Alignment(alloc);
  auto const headerEnd = reinterpret_cast<std::uintptr_t>(this + 1);
  _base = reinterpret_cast<unsigned char*>(this + 1) + (align - headerEnd % align) % align;
}

Packet::Packet(unsigned char* data, int size, base::Reference const* owner)
    : _base(data), _size(std::max(size, 0)), _capacity(_size), _owner(owner) {
  if (_owner != nullptr) _owner->Hold();
}

Packet::~Packet() {
  if (_owner != nullptr) _owner->Release();
}

base::Ref<Packet> Packet::New(int size, void const* data) {
  PacketAlloc const alloc(std::max(size, 0), 64, 0);
  auto packet = base::Ref<Packet>::Take(new (alloc) Packet(alloc));
  if (data != nullptr && size > 0) std::memcpy(packet->_base, data, static_cast<std::size_t>(size));
  return packet;
}

base::Ref<Packet> Packet::Wrap(void* data, int size, base::Reference* owner) {
  return base::Ref<Packet>::Take(new (PacketAlloc(0, 1, 0))
                                     Packet(static_cast<unsigned char*>(data), size, owner));
}

base::Ref<Packet> Packet::Share() {
  base::Reference const* payload = _owner != nullptr ? _owner : this;
  auto other =
      base::Ref<Packet>::Take(new (PacketAlloc(0, 1, 0)) Packet(_base, _capacity, payload));
  other->_offset = _offset;
  other->_size = _size;
  other->_pts = _pts;
  other->_duration = _duration;
  other->_flags = _flags;
  other->_seq = _seq;
  other->_media = _media;
  return other;
}

void Packet::Prefetch() const {
  constexpr int kLine = 64, kPage = 4096;
  unsigned char const* const data = Data();
  for (int at = 0; at < std::min(_size, 1024); at += kLine) __builtin_prefetch(data + at);
  for (int at = kPage; at < std::min(_size, 8 * kPage); at += kPage) __builtin_prefetch(data + at);
}

void Packet::Size(int size) { _size = std::clamp(size, 0, _capacity - _offset); }

void Packet::Offset(int offset) {
  int const end = _offset + _size;
  _offset = std::clamp(offset, 0, end);
  _size = end - _offset;
}

}  // namespace kestro::stream
