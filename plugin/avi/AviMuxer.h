// The element that records AVI files.
#pragma once

#include <vector>

#include "common/IAviMuxer.h"
#include "stream/IMuxer.h"

namespace kestro::plugin::avi {

// Registered as "AviMuxer-avi-muxer". See IMuxer for how an application records with it.
//
// The file is opened by the first packet, and by the next one again when that failed. Everything is
// written through a caching writer, made for each file over the stream of IMuxer. Packets with the
// media of another track than the inputs' are refused.
//
// "constFrameRate" must be set before the first packet of a file with video. AAC, text and motion
// JPEG tracks go behind the others: a track's number counts what readers make streams of.
//
// Refused with an error: a packet that would carry the finished file past 4 GiB - 1, every packet
// after it, large or small, and every packet after a write has failed. The file can still be
// closed. Close returns when the file is durable: after a true result it survives a power cut. Then
// the element takes packets again once Open has been called.
//
// Packets may come from any thread. Properties are used while none comes: also "sizeGet", unless by
// the thread that pushes.
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
  // Makes the current file's caching writer; null, or the condition that failed.
  char const* NewWriter();
  // The last steps of opening and of closing a file. `source` is what an error line names.
  void BeginFile();
  bool CloseStream(char const* source);
  // Reports what puts nothing recorded at risk.
  void Warn(char const* text, base::AttrSet* attrs = nullptr) {
    SendMessageUp("warning", text, attrs);
  }
  void WarnIndexFull();  // once per file
  // Frees all that belongs to one file.
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
  bool _full = false;  // the file has refused a packet for its size
};

}  // namespace kestro::plugin::avi
