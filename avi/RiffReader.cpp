#include "avi/RiffReader.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>

#include "avi/Error.h"
#include "base/File.h"
#include "base/LittleEndian.h"

namespace kestro::avi {

using base::Convert4;

// Headers are tens of kilobytes apart: reading more than a page would be wasted.
static constexpr int kBlock = 4096;

std::string CodeText(unsigned code) {
  std::string text;
  for (int i = 0; i < 4; ++i) text += static_cast<char>(code >> 8 * i & 0xFF);
  while (!text.empty() && (text.back() == '\0' || text.back() == ' ')) text.pop_back();
  for (char& c : text)
    if (c < 0x20 || c > 0x7E) c = '.';
  return text;
}

bool IsDataCode(unsigned code) {
  auto at = [code](int i) { return static_cast<int>(code >> 8 * i & 0xFF); };
  return std::isdigit(at(0)) && std::isdigit(at(1)) && at(2) < 0x80 && std::isalpha(at(2)) &&
         at(3) < 0x80 && std::isalnum(at(3));
}

// The host would read "S:/name" as a name on a drive. Opening a pipe would block.
std::unique_ptr<base::IO> OpenFile(std::string const& path) {
  std::error_code failed;
  auto const status = std::filesystem::status(path, failed);
  if (!std::filesystem::exists(status))
    throw Error(kIo, path + ": " + (failed ? failed.message() : "no such file"));
  if (std::filesystem::is_directory(status)) throw Error(kIo, path + ": is a directory");
  if (!std::filesystem::is_regular_file(status) && !std::filesystem::is_block_file(status))
    throw Error(kIo, path + ": is not a file");
  auto file = std::make_unique<base::FileIO>(std::filesystem::absolute(path).c_str(), "rb");
  if (!file->Opened()) throw Error(kIo, path + ": " + std::strerror(file->Error()));
  return file;
}

RiffReader::RiffReader(std::string const& path) : RiffReader(OpenFile(path), path) {}

RiffReader::RiffReader(std::unique_ptr<base::IO> file, std::string const& name)
    : _file(std::move(file)), _reader(*_file, kBlock), _size(_file->Size()) {
  if (_size < 0) throw Error(kIo, name + ": its size is unknown");
}

unsigned RiffReader::Read(int64 offset, void* data, unsigned size) {
  if (offset < 0 || offset >= _size) return 0;
  size = static_cast<unsigned>(std::min<int64>(size, _size - offset));
  base::IO* const io = size < kBlock ? static_cast<base::IO*>(&_reader) : _file.get();
  if (!io->Seek(offset, base::IO::kBegin)) return 0;
  unsigned const n = io->Read(data, size);
  return n == base::IO::kFailed ? 0 : n;
}

bool RiffReader::Header(int64 offset, int64 limit, Chunk& chunk) {
  unsigned char head[12];
  if (offset < 0 || limit - offset < 8 || Read(offset, head, 8) != 8) return false;
  chunk = Chunk();
  chunk.id = base::Load32(head);
  chunk.size = base::Load32(head + 4);
  chunk.offset = offset;
  if (chunk.id == Convert4("RIFF") || chunk.id == Convert4("LIST")) {
    if (limit - offset < 12 || Read(offset, head, 12) != 12) return false;
    chunk.type = base::Load32(head + 8);
  }
  chunk.end = std::clamp(chunk.Payload() + chunk.size, chunk.Data(), limit);
  return true;
}

int64 RiffReader::Next(Chunk const& chunk) {
  if (chunk.size % 2 == 0) return chunk.end;
  unsigned char next = 0;
  bool const padded = Read(chunk.end, &next, 1) == 0 || !std::isalnum(next);
  return chunk.end + (padded ? 1 : 0);
}

int64 RiffReader::ScanData(int64 begin, int64 end, DataSink const& sink) {
  Chunk chunk;
  int64 at = begin;
  while (Header(at, end, chunk)) {
    if (chunk.id == Convert4("LIST") && chunk.type == Convert4("rec ")) {
      at = chunk.Data();
      continue;
    }
    bool const data = IsDataCode(chunk.id);
    bool const other = chunk.id == Convert4("JUNK") || (chunk.id & 0xFFFF) == Convert4("ix");
    if ((!data && !other) || chunk.Cut()) break;
    if (data) sink(chunk);
    at = Next(chunk);
  }
  return at;
}

}  // namespace kestro::avi
