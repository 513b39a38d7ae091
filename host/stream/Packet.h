// One unit of data of one track.
#pragma once

#include <cstddef>

#include "base/Reference.h"
#include "stream/IMedia.h"

namespace kestro::stream {

// What a packet's memory is made of: payload bytes, the alignment of their start (a power of two)
// and bytes of slack behind them.
struct PacketAlloc {
  PacketAlloc(int payload, int alignment, int slack)
      : size(payload), align(alignment), pad(slack) {}
  int size, align, pad;
};

// Header and payload in one allocation, or a header over another's payload. Reference-counted; the
// fields belong to whoever handles the packet at the moment. Holds its media.
//
//   PacketAlloc alloc(bytes, 64, 64);
//   auto* packet = new (alloc) Packet(alloc);      // one reference, the caller's
//   packet->Release();
class KESTRO_API Packet final : public base::Reference {
 public:
  enum Flag : unsigned {
    kKey = 1,            // decoding can start here
    kEndOfStream = 2,    // the last packet of its track
    kDiscontinuity = 4,  // the first after a seek
  };

  explicit Packet(PacketAlloc const& alloc);
  static void* operator new(std::size_t size, PacketAlloc const& alloc);
  static void operator delete(void* memory, PacketAlloc const&) { operator delete(memory); }
  static void operator delete(void* memory);

  // A packet with `size` bytes of its own, uninitialised unless `data` is given.
  [[nodiscard]] static base::Ref<Packet> New(int size, void const* data = nullptr);
  // A packet over memory that `owner` keeps alive: it takes a reference on it, and null means that
  // the memory outlives every packet over it.
  [[nodiscard]] static base::Ref<Packet> Wrap(void* data, int size,
                                              base::Reference* owner = nullptr);
  // A second packet over the same payload, with fields of its own, copied from this one.
  [[nodiscard]] base::Ref<Packet> Share();

  // Asks for the memory that whoever takes the packet looks at first: its beginning, and a line of
  // each of the next pages. A payload is cold when it comes from a device.
  void Prefetch() const;

  // Whether nobody else can see the payload.
  bool Exclusive() const { return _owner == nullptr && Count() == 1; }

  // What a source returns when reading failed, as opposed to null, the end of the stream.
  static Packet* ReadFailure() { return reinterpret_cast<Packet*>(-1); }

  unsigned char* Data() { return _base + _offset; }
  unsigned char const* Data() const { return _base + _offset; }
  int Size() const { return _size; }
  void Size(int size);  // up to what the memory holds behind the start
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
