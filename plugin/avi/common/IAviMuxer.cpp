#include "common/IAviMuxer.h"

#include <algorithm>
#include <ctime>

#include "base/Console.h"

namespace kestro::plugin::avi {

using base::uint64;

namespace {

// Enough for half an hour of video and audio: most recordings never move their entries. The memory
// becomes resident only as entries fill it.
constexpr std::size_t kEntries = 1 << 17;

// Compatibility: error lines and assertions name the function that applications know.
constexpr char kSource[] = "plugin/avi/common/IAviMuxer";
constexpr char kOpen[] =
    "virtual bool kestro::plugin::avi::IAviMuxer::Open("
    "kestro::base::IO&, std::vector<kestro::stream::IMedia*>&)";

}  // namespace

IAviMuxer::IAviMuxer()
    : _vidtag(nullptr), _ownTag(dynamic_cast<Object*>(Object::New("AviVideoTags"))) {
  _vidtag = _ownTag;
}

IAviMuxer::~IAviMuxer() {
  clearStream();
  delete _ownTag;
}

void IAviMuxer::Abandon() {
  clearStream();
  _list = nullptr;
  _riff = _hdrl = _movi = _idx1 = _info = nullptr;
  _junk = nullptr;
  _hasInfo = _hasJunk = _idx1First = false;
  _hasAudio = 0;
  _periodicSyncJunkSize = -1;
  _para.entries = 0;
  _para.spillFault = _para.indexLost = false;
}

bool IAviMuxer::Config() {
  if (_root != nullptr || _vidtag == nullptr) return true;
  unsigned char* isft = nullptr;
  unsigned char* junk = nullptr;
  unsigned isftSize = 0;
  unsigned junkSize = 0;
  _vidtag->Get("isftbuf", isft);
  _vidtag->Get("isftsize", isftSize);
  _vidtag->Get("junkbuf", junk);
  _vidtag->Get("junksize", junkSize);
  _hasInfo = isft != nullptr && isftSize != 0;
  _hasJunk = junk != nullptr && junkSize != 0;
  _idx1First = IndexFirst();
  if (_streamFlag0) _streamFlag1 = true;

  _root = new croot;
  _riff = _root->Add(new criff);
  _hdrl = _riff->Add(new chdrl);
  _hdrl->Add(new cavih);
  if (_hasInfo) {
    _info = _riff->Add(new cinfo);
    _info->Add(new cisft(isft, isftSize));
  }
  if (_hasJunk) _riff->Add(_junk = new cjunk(junk, junkSize));
  cidx1* index = nullptr;
  if (_idx1First) {
    auto* reserved = new cidx1_vfi(4096);
    reserved->Limit(_idx1RsvdSize);
    _idx1 = _riff->Add(index = reserved);
    _movi = _riff->Add(new cmovi);
  } else {
    _movi = _riff->Add(new cmovi);
    _idx1 = _riff->Add(index = new cidx1(4096));
  }
  _list = index->ChunkList();
  return true;
}

bool IAviMuxer::IndexFirst() const {
  unsigned char first = 0;
  return _vidtag->Get("idx1_first", first) && first != 0;
}

bool IAviMuxer::StreamConfig(IO&, std::vector<IMedia*>& media) {
  if (media.empty()) {
    KESTRO_ERROR("list.empty()");
    return false;
  }
  if (_root == nullptr) Config();
  if (_streams.empty())
    for (IMedia* track : media) AddStream(track);
  _createTime = getTimeStamp();
  return true;
}

bool IAviMuxer::AddStream(IMedia* media) {
  if (media == nullptr || _hdrl == nullptr) return false;
  KESTRO_ERROR(media->Codec());
  IStream* st = IStream::New(media->Codec(), media->Codec(), static_cast<int>(_streams.size()));
  if (st == nullptr) return false;
  st->MuxFlags(_streamFlag0, _streamFlag1, _streamFlag2);
  if (media->IsVideo()) {
    st->Set("frameRate", _frameRate);
    SetRsvdSize(st, 1);
  }
  if (media->IsAudio()) {
    _hasAudio = 1;
    SetRsvdSize(st, 0);
  }
  st->MuxReset();
  if (!st->MuxConfig(_list, media, _vidtag, &_para)) {
    KESTRO_ERROR("!st->MuxConfig(_list, media, _vidtag, &_para)");
    delete st;
    return false;
  }
  _streams.push_back(st);
  _hdrl->Add(st->Strl());
  return true;
}

bool IAviMuxer::Open(IO& io, std::vector<IMedia*>& media) {
  if (!StartFile(io, media)) return false;
  if (!WriteHead(io)) return false;
  StartMovi(io);
  return true;
}

// Builds streams and tree, and reserves memory for the index.
bool IAviMuxer::StartFile(IO& io, std::vector<IMedia*>& media) {
  _totalSize = 0;
  _fileSize = 0;
  if (!StreamConfig(io, media)) {
    KESTRO_ERROR_AT(kSource, "Open", "!StreamConfig(io, list)");
    return false;
  }
  if (_root == nullptr || _streams.empty()) {
    KESTRO_ERROR_AT(kSource, "Open", "_streams.empty(),no media was accepted");
    return false;
  }
  std::size_t entries = 0;
  for (IStream* stream : _streams) entries += stream->SpillBatch();
  if (_para.idx1WithTmpFile < 0) entries = std::max(entries, kEntries);
  _list->reserve(Reserved(entries));
  updateBox();  // a file that is cut off already has its size and rate
  return true;
}

// Writes what precedes the data.
bool IAviMuxer::WriteHead(IO& io) {
  _riff->Fill(io, false);
  _hdrl->Fill(io, true);
  if (_info != nullptr) _info->Fill(io, true);
  if (_periodicSync && !PadHead(io)) return false;
  if (!_periodicSync && _junk != nullptr) _junk->Fill(io, true);
  if (_idx1First) ReserveIdx1(io);
  return true;
}

// With periodic sync, JUNK fills the head up to the last 12 bytes of its size.
bool IAviMuxer::PadHead(IO& io) {
  if (_junk != nullptr) {
    int64 const junkEndOfs = io.Tell() + _junk->Size() + 8;
    KESTRO_ASSERT_IN(kOpen, junkEndOfs <= (int64)_periodicSyncHeaderSize);
    if (junkEndOfs > _periodicSyncHeaderSize - 12) {
      KESTRO_ERROR_AT(kSource, "Open",
                      "junkEndOfs > _periodicSyncHeaderSize - 12,no room for the movi header");
      return false;
    }
    _junk->AddSize(static_cast<unsigned>(_periodicSyncHeaderSize - 12 - junkEndOfs));
    _junk->Fill(io, true);
    return true;
  }
  int64 const curOfs = io.Tell();
  KESTRO_ASSERT_IN(kOpen, curOfs <= (int64)_periodicSyncHeaderSize);
  int64 const periodicSyncHeaderRemain = _periodicSyncHeaderSize - 12 - curOfs;
  KESTRO_ASSERT_IN(kOpen, periodicSyncHeaderRemain >= 8);
  _periodicSyncJunkSize = periodicSyncHeaderRemain - 8;
  unsigned char none = 0;
  cjunk padding(&none, 0);
  padding.AddSize(static_cast<unsigned>(_periodicSyncJunkSize));
  padding.Fill(io, true);
  return true;
}

// Begins the data. The size of the file so far makes one that is cut off readable up to here.
void IAviMuxer::StartMovi(IO& io) {
  _moviPos = io.Tell();
  _movi->Fill(io, false);
  int64 const end = _keptEnd = io.Tell();
  base::IOIntWriter(io).Write32(static_cast<unsigned>(end - 8), 4, IO::kBegin);
  _openCounter = 0;
  static_cast<void>(io.Flush());  // the writer reports what fails
  _totalSize += end;
}

// Writes the header of idx1 and zeros; the entries come later.
void IAviMuxer::ReserveIdx1(IO& io) {
  _idx1Pos = io.Tell();
  _idx1->Fill(io, false);
  io.Seek(_idx1Pos + 4, IO::kBegin);
  base::IOIntWriter(io).Write32(_idx1RsvdSize);
  WriteZeros(io, _idx1RsvdSize);
}

bool IAviMuxer::Process(IO& io, Packet& packet) {
  std::lock_guard lock(_mutex);
  for (IStream* stream : _streams)
    if (stream->AddPacket(packet, io, _streamBase)) {
      _totalSize += packet.Size();
      return process(io, packet);
    }
  return false;
}

int64 IAviMuxer::FinishedSize(IO& io, int64 more, int64 entries) const {
  return io.Size() + more + (_idx1First ? 0 : IndexedSize(EntryCount() + entries));
}

uint64 IAviMuxer::getTimeStamp() {
  // mktime(localtime(now)) equals now, so the time zone, which all threads share, is not needed.
  return static_cast<uint64>(std::time(nullptr)) + 2082844800;  // seconds from 1904 to 1970
}

}  // namespace kestro::plugin::avi
