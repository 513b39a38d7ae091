// One unit of data of one track.
#pragma once

#include <cstddef>

#include "base/Reference.h"
#include "stream/IMedia.h"

namespace kestro::stream {

// The sizes of a packet's memory: payload bytes, alignment of the start of the payload (a power of
// two), and unused bytes after the payload.
struct PacketAlloc {
  PacketAlloc(int payload, int alignment, int slack)
      : size(payload), align(alignment), pad(slack) {}
  int size, align, pad;
};

// Header and payload in one allocation, or a header for a payload in other memory.
// Reference-counted. The fields belong to whoever handles the packet at the moment. The packet
// holds a reference to its media.
//
//   PacketAlloc alloc(bytes, 64, 64);
//   auto* packet = new (alloc) Packet(alloc);      // one reference, the caller's
//   packet->Release();
class KESTRO_API Packet final : public base::Reference {
 public:
  enum Flag : unsigned {
    kKey = 1,            // decoding can start here
    kEndOfStream = 2,    // the last packet of its track
    kDiscontinuity = 4,  // the first packet after a seek
  };

  explicit Packet(PacketAlloc const& alloc);
  static void* operator new(std::size_t size, PacketAlloc const& alloc);
  static void operator delete(void* memory, PacketAlloc const&) { operator delete(memory); }
  static void operator delete(void* memory);

  // Creates a packet with `size` bytes of its own, uninitialised unless `data` is given.
  [[nodiscard]] static base::Ref<Packet> New(int size, void const* data = nullptr);
  // Creates a packet for memory that `owner` keeps alive; the packet takes a reference to it. If
  // `owner` is null, the memory must outlive every packet that uses it.
  [[nodiscard]] static base::Ref<Packet> Wrap(void* data, int size,
                                              base::Reference* owner = nullptr);
  // Creates a second packet with the same payload and its own copy of the fields.
  [[nodiscard]] base::Ref<Packet> Share();

  // Prefetches the memory that the receiver of the packet reads first: its beginning, and one cache
  // line of each of the next pages. A payload that comes from a device is not in the cache.
  void Prefetch() const;

  // Whether nobody else can access the payload.
  bool Exclusive() const { return _owner == nullptr && Count() == 1; }

  // Returned by a source if reading failed, as opposed to null, the end of the stream.
  static Packet* ReadFailure() { return reinterpret_cast<Packet*>(-1); }

  unsigned char* Data() { return _base + _offset; }
  unsigned char const* Data() const { return _base + _offset; }
  int Size() const { return _size; }
  void Size(int size);  // limited by the memory after the start
  int Offset() const { return _offset; }
  void Offset(int offset);  // moves the start of the data and keeps its end

  bool IsKey() const { return (_flags & kKey) != 0; }
  unsigned Flags() const { return _flags; }
  void Flags(unsigned flags) { _flags = flags; }
  base::int64 Pts() const { return _pts; }  // nanoseconds
  void Pts(base::int64 ns) { _pts = ns; }
  base::int64 Duration() const { return _duration; }  // nanoseconds
  void Duration(base::int64 ns) { _duration = ns; }
  unsigned Seq() const { return _seq; }
  void Seq(unsigned seq) { _seq = seq; }
  IMedia* Media() const { return _media.get(); }
  void Media(IMedia* media) { _media = base::Ref<IMedia>::Share(media); }

 private:
  Packet(unsigned char* data, int size, base::Reference const* owner);
  ~Packet() override;

  unsigned char* _base;
  int _offset = 0, _size, _capacity;
  base::Reference const* _owner = nullptr;
  base::int64 _pts = 0, _duration = 0;
  unsigned _flags = 0, _seq = 0;
  base::Ref<IMedia> _media;
};

}  // namespace kestro::stream
