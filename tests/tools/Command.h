// The program as people run it, in a folder of the test.
#pragma once

#include <gmock/gmock.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <string>
#include <vector>

#include "avi/AviFile.h"
#include "base/LittleEndian.h"
#include "support/MemoryIO.h"

namespace kestro::tool {

namespace fs = std::filesystem;

using test::FileText;

inline std::string FromHex(std::string const& digits) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
    bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  return bytes;
}

class Command : public testing::Test {
 protected:
  struct Result {
    int code;
    std::string out, err;
  };

  void SetUp() override {
    std::string pattern = fs::temp_directory_path() / "kestro-avi-XXXXXX";
    _folder = mkdtemp(pattern.data());
    fs::create_symlink(TEST_MEDIA, _folder / "media");
  }
  void TearDown() override { fs::remove_all(_folder); }

  Result Run(std::string const& arguments) { return Shell(_program + " " + arguments); }
  Result Shell(std::string const& line) {
    std::string const command =
        "cd " + _folder.string() + " && { " + line + "; } >stdout.txt 2>stderr.txt </dev/null";
    int const status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, FileText(At("stdout.txt")),
            FileText(At("stderr.txt"))};
  }
  static bool Has(std::string const& program) {
    return std::system(("command -v " + program + " >/dev/null").c_str()) == 0;
  }
  fs::path At(std::string const& name) const { return _folder / name; }
  void Write(std::string const& name, std::string const& bytes) {
    std::ofstream(At(name), std::ios::binary) << bytes;
  }

  // The index, or only a track of it.
  std::vector<avi::IndexEntry> Entries(std::string const& name, int track = -1) {
    std::vector<avi::IndexEntry> entries;
    avi::AviFile(At(name)).ForEachEntry([&](avi::IndexEntry const& entry) {
      if (track < 0 || avi::TrackOfCode(entry.id) == track) entries.push_back(entry);
    });
    return entries;
  }
  // The chunks of a track, by the index.
  std::vector<std::string> Payloads(std::string const& name, int track) {
    std::string const bytes = FileText(At(name));
    std::vector<std::string> payloads;
    avi::AviFile avi(At(name));
    for (avi::IndexEntry const& entry : Entries(name, track))
      payloads.push_back(
          bytes.substr(static_cast<std::size_t>(entry.offset) + 8, avi.DataSize(entry)));
    return payloads;
  }
  std::string Payload(std::string const& name, int track) {
    std::string payload;
    for (std::string const& chunk : Payloads(name, track)) payload += chunk;
    return payload;
  }

  // Exit code and output of a call of the verb; errors are on the error stream only.
  struct Call {
    std::string arguments;
    int code;
    char const* said;
  };
  void Expect(std::string const& verb, std::vector<Call> const& calls) {
    for (Call const& call : calls) {
      Result const result = Run(verb + " " + call.arguments);
      EXPECT_EQ(result.code, call.code) << call.arguments << "\n" << result.err;
      EXPECT_THAT(call.code > 1 ? result.err : result.out + result.err,
                  testing::HasSubstr(call.said))
          << call.arguments;
    }
  }

  static void Put(std::string& bytes, std::size_t at, unsigned value) {
    base::Store32(reinterpret_cast<unsigned char*>(&bytes.at(at)), value);
  }
  static unsigned Get(std::string const& bytes, std::size_t at) {
    return base::Load32(reinterpret_cast<unsigned char const*>(&bytes.at(at)));
  }
  // A copy of an AVI file with one field of its index changed.
  enum Field { kId, kFlags, kOffset, kSize };
  void Damage(std::string const& from, std::string const& to, unsigned entry, Field field,
              unsigned value) {
    std::string bytes = FileText(At(from));
    Put(bytes, bytes.rfind("idx1") + 8 + entry * 16 + field * 4, value);
    Write(to, bytes);
  }
  // Copies as other writers or accidents leave them.
  void MakeUnusual(std::string const& from) {
    std::string const bytes = FileText(At(from));
    auto const index = bytes.rfind("idx1"), movi = bytes.find("movi");
    std::string relative = bytes, flagged = bytes, empty = bytes.substr(0, index + 8);
    for (auto at = index + 8; at < bytes.size(); at += 16) {
      Put(relative, at + 8, Get(bytes, at + 8) - static_cast<unsigned>(movi));
      if (bytes[at + 2] == 'd') Put(flagged, at + 4, Get(bytes, at + 4) | 2);
    }
    Put(empty, index + 4, 0);
    Put(empty, 4, static_cast<unsigned>(empty.size()) - 8);
    Write("relative.avi", relative);             // its index counts from movi
    Write("flagged.avi", flagged);               // it flags every frame
    Damage(from, "nowhere.avi", 0, kOffset, 5);  // its first entry leads elsewhere
    Write("noindex.avi", Replaced(bytes, "idx1", "JUNK"));
    Write("empty.avi", empty);  // an index of no entries
    Write("cut.avi", bytes.substr(0, movi + 30000));
    Write("nostrl.avi", Replaced(bytes, "strl", "none"));
    Write("text.avi", "no film");
    Write("wave.avi", Replaced(bytes, "AVI ", "WAVE"));
  }
  static std::string Replaced(std::string bytes, std::string const& what, std::string const& with) {
    for (auto at = bytes.find(what); at != bytes.npos; at = bytes.find(what, at + with.size()))
      bytes.replace(at, what.size(), with);
    return bytes;
  }

  fs::path _folder;
  std::string _program = TEST_TOOL;
};

}  // namespace kestro::tool
