// The element that records AVI files.
#pragma once

#include <vector>

#include "common/IAviMuxer.h"
#include "stream/IMuxer.h"

namespace kestro::plugin::avi {

// Registered as "AviMuxer-avi-muxer". IMuxer shows how an application records with it.
//
// The first packet opens the file; if that fails, the next packet tries again. Everything is
// written through a caching writer, made for each file over the stream of IMuxer. A packet whose
// media is not that of an input is refused.
//
// Set "constFrameRate" before the first packet of a file with video. Add AAC, text and motion JPEG
// tracks last: readers number only the tracks that they make streams of.
//
// A packet that would make the finished file larger than 4 GiB - 1 is refused with an error, and so
// is every packet after it, and every packet after a failed write. The file can still be closed.
// When Close returns true, the file is durable: it survives a power cut. After the next Open, the
// element takes packets again.
//
// Packets may come from any thread. Set and read properties while no packet is being pushed; the
// thread that pushes may read "sizeGet" at any time.
class AviMuxer : public stream::IMuxer, public IAviMuxer {
 public:
  AviMuxer();
  ~AviMuxer() override;

  using IAviMuxer::Close;
  using IAviMuxer::Open;
  bool Open() override;
  bool Close() override;
  virtual int64 GetTotalSize();  // the expected size of the finished file, in bytes
  virtual int64 GetDuration();   // of the longest video track, in microseconds
  bool ReceivePacket(Packet& packet, void* context) override;
  bool process(IO& io, Packet& packet) override;
  virtual bool OpenFileConfig();
  virtual bool OpenConfig(std::vector<IMedia*>& list);

  bool idx1WithTmpFileThreshold(int seconds);
  bool SizeGet(long long* out);
  bool DiskNameSet(char drive);

  static base::PropertyList Properties();

 protected:
  bool updateStream() override;
  virtual int BlockSize() const { return 0x80000; }  // of the caching writer, in bytes
  // Makes the caching writer of the current file. Returns null, or the condition that failed.
  char const* NewWriter();
  // The last steps of opening and of closing a file. `source` is what an error line names.
  void BeginFile();
  bool CloseStream(char const* source);
  // Reports a condition that puts nothing recorded at risk.
  void Warn(char const* text, base::AttrSet* attrs = nullptr) {
    SendMessageUp("warning", text, attrs);
  }
  void WarnIndexFull();  // once per file
  // Frees everything that belongs to one file.
  void FreeFile();

  int _mode = 0;               // non-zero: end-of-stream packets are counted
  unsigned _pktFlagsMask = 0;  // the flags that mark a track's last packet
  int _eosCount = 0;
  IO* _blkio = nullptr;  // the current file's caching writer
  bool _closing = false;
  long long _sizeCache = 0;
  bool _fileOpened = false;

 private:
  static constexpr unsigned kBlocks = 3;  // of the caching writer

  bool WriteFails(Packet const& packet);
  void ReportSpillFault();

  std::vector<base::Ref<IMedia>> _media;  // of the open file
  unsigned _cacheBlocks = kBlocks;
  bool _spillReported = false, _indexFull = false;
  bool _full = false;  // a packet was refused because the file would become too large
};

}  // namespace kestro::plugin::avi
