// The program as people run it.
#include "Command.h"

#include <sys/stat.h>

#include <csignal>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <thread>

#include "base/Console.h"
#include "cli/Console.h"

namespace kestro::tool {
namespace {

using nlohmann::json;
using testing::HasSubstr;

// One picture of 16x16 plain samples, in a stream without a frame rate.
std::string const kRateless(
    "\0\0\0\1\x67\x42\xC0\x0A\xDD\xE4\0\0\0\1\x68\xCE\x38\x80\0\0\0\1\x65\x88\x84\x86\x80", 27);

using CommandTest = Command;

TEST_F(CommandTest, InfoPrintsTheWholeDocument) {
  ASSERT_EQ(Run("record -o a.avi --duration 1 media/clip25.h264 media/mono8k.wav").code, 0);
  Result const info = Run("info --json a.avi");
  EXPECT_EQ(info.code, 0);
  json expected = json::parse(R"({"schema": 1, "code": 0, "messages": [], "files": [
      {"file": "a.avi", "duration_ms": 1000, "skew_ms": 0, "index": "last", "complete": true,
       "notes": [],
       "tracks": [
        {"number": 0, "type": "video", "handler": "H264", "codec": "h264", "width": 320,
         "height": 180, "frame_rate": 25, "chunks": 25, "key_chunks": 1, "duration_ms": 1000,
         "profile": "High", "level": "1.2", "bit_depth": 8, "chroma": "4:2:0",
         "sample_aspect": "1:1", "display_aspect": "16:9", "interlaced": false},
        {"number": 1, "type": "audio", "handler": "PCM", "codec": "pcm", "rate": 8000,
         "channels": 1, "bits": 16, "chunks": 25, "bytes": 16000, "duration_ms": 1000,
         "bit_rate": 128000}]}]})");
  expected["files"][0]["size"] = fs::file_size(At("a.avi"));
  std::size_t const bytes = Payload("a.avi", 0).size();
  expected["files"][0]["tracks"][0]["bytes"] = bytes;
  expected["files"][0]["tracks"][0]["bit_rate"] = 8 * bytes;
  EXPECT_EQ(json::parse(info.out), expected);
}

TEST_F(CommandTest, LoadsThePluginOfTheOptionOrTheEnvironment) {
  json const document = json::parse(Run("plugin --json").out);
  EXPECT_NE(document.dump().find(R"("name":"listfile")"), std::string::npos);
  Expect("plugin", {{"--plugin missing.so", 3, ""}, {"--plugin media", 3, ""}});
  for (char const* path : {"missing.so", TEST_PLUGIN}) {
    SCOPED_TRACE(path);
    setenv("KESTRO_PLUGIN_PATH", path, 1);
    Expect("plugin",
           {{"", path == std::string(TEST_PLUGIN) ? 0 : 3, ""}, {"--plugin " TEST_PLUGIN, 0, ""}});
  }
  unsetenv("KESTRO_PLUGIN_PATH");
}

TEST_F(CommandTest, NeedsTheMediaModuleForInputsAndContainersOnly) {
  ASSERT_EQ(
      Run("record --fps 25 -o a.avi media/clip25.h264 media/mono8k.wav media/clip15.mjpeg").code,
      0);
  fs::create_directories(At("bin/media"));
  fs::copy_file(TEST_TOOL, At("bin/kestro-avi"));
  EXPECT_EQ(FileText(TEST_TOOL).find("libavformat.so"), std::string::npos) << "is linked";
  char const* const missing = "libkestromedia.so was not found";
  _program = "bin/kestro-avi";
  Expect("", {{"--version", 0, ""},
              {"generate man", 0, ""},
              {"plugin", 0, ""},
              {"info a.avi", 0, ""},
              {"verify --deep a.avi", 0, ""},
              {"play a.avi", 0, ""},
              {"repair a.avi -o repaired.avi", 0, ""},
              {"extract a.avi", 0, ""},
              {"extract -o tracks a.avi", 0, ""},
              {"extract --track 2:shot-%d.jpg a.avi", 0, ""},
              {"extract --track 0:film.mkv a.avi", 3, missing},
              {"record -o b.avi media/clip25.mp4", 3, missing}});
  Write("bin/media/libkestromedia.so", "no module");
  Expect("record -o b.avi media/clip25.mp4", {{"", 3, "bin/media/libkestromedia.so: "}});
}

// To the sample, in either order of inputs.
TEST_F(CommandTest, AudioOfAPartBeginsWithItsKeyFrame) {
  constexpr std::size_t kSecond = std::size_t{48000} * 4;
  std::string const audio = FileText(At("media/stereo48k.wav")).substr(44);
  for (std::string inputs :
       {"media/clip25.h264 media/stereo48k.wav", "media/stereo48k.wav media/clip25.h264"}) {
    Result const result = Run("record --force -o a.avi --start 1.5 --duration 0.5 " + inputs);
    ASSERT_EQ(result.code, 0) << result.err;
    int const track = inputs[6] == 'c' ? 1 : 0;
    EXPECT_EQ(Payload("a.avi", track), audio.substr(kSecond, kSecond / 2));
    avi::AviFile const avi(At("a.avi"));
    EXPECT_EQ(avi.Tracks()[static_cast<std::size_t>(1 - track)].chunks, 13u);
  }
  ASSERT_EQ(Run("record -o s.avi --start 0.1 --duration 0.1 media/stereo48k.wav").code, 0);
  EXPECT_EQ(Payload("s.avi", 0), audio.substr(kSecond / 10, kSecond / 10));
}

TEST_F(CommandTest, SkipsDamagedPictures) {
  Expect("", {{"record -o a.avi --fps 15 media/clip15.mjpeg", 0, ""},
              {"extract --track 0:s%02d.jpg a.avi", 0, "15 files"}});
  std::string large = FileText(At("s12.jpg")), good;
  large.at(large.find("\xFF\xC0") + 6) ^= 1;
  Write("s12.jpg", large);
  Write("s05.jpg", FileText(At("s05.jpg")).substr(0, 500));
  Write("s06.jpg", "");
  Write("s08.jpg", "text");
  for (char const* lost : {"s01.jpg", "s09.jpg", "s10.jpg"}) fs::remove(At(lost));
  fs::create_directory(At("s16.jpg"));
  Result const result = Run("record -o c.avi --fps 15 s%02d.jpg");
  EXPECT_EQ(result.code, 1);
  for (char const* said :
       {"s05.jpg: cut off\n", "s06.jpg: empty\n", "s08.jpg: not a JPEG picture\n",
        "s09.jpg to s10.jpg: missing\n", "s%02d.jpg: the picture size changes from 98x54 to 98x55",
        "s16.jpg: ", "s%02d.jpg: 6 pictures left out"})
    EXPECT_THAT(result.err, HasSubstr(std::string("warning: ") + said));
  for (char const* left : {"02", "03", "04", "07", "11", "12", "13", "14", "15"})
    good += FileText(At(std::string("s") + left + ".jpg"));
  EXPECT_EQ(Run("extract --track 0:c.mjpeg c.avi").code, 0);
  EXPECT_EQ(FileText(At("c.mjpeg")), good);
}

TEST_F(CommandTest, ExitCodes) {
  Write("rateless.h264", kRateless + std::string(385, '\x80'));
  Write("old.avi", "old");
  Write("t.jsonl", "{\"pts_ms\":1,\"text\":\"a\"}\n");
  Write("bad.jsonl", "{\"pts_ms\":1,\"text\":\"a\"}\n{\"pts_ms\":\"2\",\"text\":\"b\"}\n");
  Write("none.json", " \n");
  Write("no-film.txt", "not a film\n");
  Write("empty.h264", "");
  Write("e1.jpg", "");
  Write("l.srt", "1\n00:00:00,500 --> 00:00:01,000\n\xE4\n");
  Write("text.vtt", "no subtitles");
  Expect(
      "",
      {{"", 2, "missing command"},
       {"record -o x.avi", 2, "INPUT"},
       {"record media/clip25.h264", 2, "--output"},
       {"record -o no/such/x.avi media/clip25.h264", 3, "no/such/x.avi"},
       {"record -o x.avi no-film.txt", 4, "no-film.txt"},
       {"record -o x.avi empty.h264", 4, "empty.h264"},
       {"record -o x.avi rateless.h264", 2, "--fps"},
       {"record -o x.avi media/clip25.h264 media/clip2997.h264", 4, "one frame rate"},
       {"record -o mapped.avi --map 0:v --map 1:0 media/clip25.mp4 media/mono8k.wav", 0,
        "200 packets"},
       {"record -o x.avi --map 0:v media/clip25.mp4 media/mono8k.wav", 2, "nothing of media/mono"},
       {"record -o x.avi --map 0:a:1 media/clip25.mp4", 2, "it has 0: video, 1: audio"},
       {"record -o x.avi --map 1:v media/clip25.mp4", 2, "no such input"},
       {"record -o x.avi --start " + std::string(400, '9') + " media/clip25.h264", 2, "--start"},
       {"record -o folder/ media/clip25.h264", 2, "is not a file name"},
       {"record -o x.avi --start 9 media/clip25.h264", 4, "nothing was recorded"},
       {"record -o x.avi --no-video --no-audio media/clip25.mp4", 4, "no track"},
       {"record -o x.avi --set mode media/clip25.h264", 2, "name=value"},
       {"record -o x.avi --set mode=many media/clip25.h264", 2, "mode"},
       {"record -o set.avi --set mode=1 --set listfile=2 media/clip25.h264", 0, "100 packets"},
       {"record -o x.avi --spill-dir . media/clip25.h264", 2, "--index-spill"},
       {"record -o x.avi --strd missing.bin media/clip25.h264", 3, "missing.bin"},
       {"record -o x.avi --strn n --fps 15 media/clip15.mjpeg", 2, "H.264 or HEVC"},
       {"record -o x.avi media/clip15.mjpeg", 2, "--fps"},
       {"record -o x.avi media/mono8k.wav t.jsonl", 4, "--no-text"},
       {"record -o quiet.avi --no-text media/mono8k.wav t.jsonl", 0, "100 packets"},
       {"record -o x.avi media/clip25.h264 bad.jsonl", 4, "bad.jsonl, line 2: "},
       {"record -o x.avi media/clip25.h264 none.json", 4, "no text"},
       {"record -o x.avi media/clip25.h264 missing.jsonl", 3, "missing.jsonl: No such"},
       {"record -o x.avi media/clip25.h264 l.srt", 4, "l.srt, line 3: not UTF-8 (--text-enc"},
       {"record -o x.avi media/clip25.h264 text.vtt", 4, "text.vtt: contains no text"},
       {"record -o x.avi --text-encoding l1x media/clip25.h264", 2, "unknown encoding \"l1x\""},
       {"record --force -o old.avi missing.h264", 3, "missing.h264: No such file or directory"},
       {"record --force -o media/clip25.h264 media/clip25.h264", 2, "input"},
       {"record --force -o media media/clip25.h264", 3, "directory"},
       {"record -o x.avi --fps 5 s-9.jpg s-10.jpg", 2, "use \"s-%d.jpg\" for a series"},
       {"record -o x.avi --fps 5 none/%d.jpg", 3, "none/%d.jpg: No such"},
       {"record -o x.avi --fps 5 e%d.jpg", 4, "no complete picture; e1.jpg: empty"}});
  EXPECT_FALSE(fs::exists(At("x.avi")));
  EXPECT_EQ(FileText(At("old.avi")), "old");
}

TEST_F(CommandTest, MistypedNamesAreExplained) {
  Expect("",
         {{"recrd -o x.avi play", 2, "unknown command 'recrd'; did you mean 'record'?\n"},
          {"lpay", 2, "'lpay'; did you mean 'play'?\n"},
          {"zzz", 2, "unknown command 'zzz' (see kestro-avi --help)\n"},
          {"--verison", 2, "unknown option '--verison'; did you mean '--version'?\n"},
          {"record --segment-sise 9 in", 2, "'--segment-sise'; did you mean '--segment-size'?"},
          {"record --segment-tiem=9", 2, "'--segment-tiem'; did you mean '--segment-time'?\n"},
          {"record --bogus in", 2, "unknown option '--bogus' (see kestro-avi record --help)\n"},
          {"play --real a.avi", 2, "unknown option '--real'; did you mean '--realtime'?\n"},
          {"play -- a.avi -b", 2, "unexpected argument '-b' (see kestro-avi play --help)\n"},
          {"play --mode fsat a.avi", 2, "--mode: unknown value 'fsat'; did you mean 'fast'?\n"},
          {"record --set listfil=2 -o x media/mono8k.wav", 2, "did you mean 'listfile'?\n"},
          {"record --sync on -o x in", 2, "choose from in-place, image, callback, off\n"},
          {"record -i in -o x", 2, "unknown option '-i'; inputs are named without an option\n"},
          {"record -y in -o x", 2, "unknown option '-y'; use --force\n"},
          {"play -y a.avi", 2, "unknown option '-y' (see kestro-avi play --help)\n"},
          {"generate bash -o x", 2, "'-o'; the command writes to standard output\n"},
          {"-i in -o x", 2, "unknown option '-i'; options follow a command, such as record\n"}});
}

TEST_F(CommandTest, ValuesThatCannotBeMeantAreRefused) {
  ASSERT_EQ(mkfifo(At("pipe").c_str(), 0600), 0);
  Expect("", {{"record -o '' in", 2, "--output: the value is empty\n"},
              {"info ''", 2, "FILE: the value is empty\n"},
              {"record -o - in", 2, "--output: standard output is not seekable"},
              {"repair -o - in", 2, "--output: standard output is not seekable"},
              {"record --segment-size 1x -o x in", 2, "\"1x\" is not a size"},
              {"record --segment-size 100m --junk 1K -o a.avi media/mono8k.wav", 0, "a.avi: "},
              {"record -o a.avi media/mono8k.wav", 2, "a.avi: exists already (--force overwrites"},
              {"record --force -o pipe media/mono8k.wav", 3, "pipe: is not a file\n"},
              {"join --force -o pipe a.avi", 3, "pipe: is not a file\n"},
              {"record --junk 65M -o b.avi in", 2, "--junk: at most 64M\n"},
              {"record -o x -o y in", 2, "--output: given 2 times\n"},
              {"record in -o", 2, "--output: needs a value (OUT.avi)\n"},
              {"record --cache x -o y in", 2, "--cache: \"x\" is not in the range 1 to 2000\n"},
              {"play --video -1 a.avi", 2, "--video: \"-1\" is not in the range 0 to 65535\n"},
              {"extract --from 1 a.avi", 2, "--from, --to: need --track or --output\n"},
              {"clip --list --from 1 a.avi", 2, "--from excludes --list\n"},
              {"info --plot - a.avi", 2, "-: this cannot go to standard output"},
              {"play --from 9 a.avi", 1, "a.avi: --from is after the end, "}});
  EXPECT_FALSE(fs::exists(At("-")));
  EXPECT_TRUE(fs::is_fifo(At("pipe")));
}

TEST_F(CommandTest, StandardOutputHasNoMessages) {
  ASSERT_EQ(Run("record -o a.avi media/mono8k.wav").code, 0);
  EXPECT_TRUE(json::accept(Run("repair --json a.avi -o b.avi 2>&-").out))
      << "messages in the output";
}

// In all cases the answer is valid, has the exit code, and says what standard error says.
TEST_F(CommandTest, AnswersInJson) {
  std::string const inputs = " media/clip25.h264 media/mono8k.wav ", odd = "odd\xFF\n.avi";
  Expect("record --fps 25 -o a.avi media/clip15.mjpeg", {{inputs, 0, ""}});
  fs::copy_file(At("a.avi"), At(odd));
  Write("text.avi", "no film");
  Write("cut.avi", FileText(At("a.avi")).substr(0, 90000));
  struct {
    std::string arguments;
    int code;
    std::string at, value;  // a pointer into the document or the last line
  } const cases[] = {
      {"info a.avi missing.avi text.avi odd*", 4, "/files/1/error/code", "3"},
      {"info a.avi missing.avi text.avi odd*", 4, "/files/2/error/code", "4"},
      {"info odd*", 0, "/files/0/file", "\"odd\uFFFD\\n.avi\""},
      {"info cut.avi", 1, "/files/0/complete", "false"},
      {"info", 2, "/error/text", "\"FILE is required\""},
      {"info --bogus a.avi", 2, "/error/code", "2"},
      {"info --plot a.svg a.avi a.avi", 2, "/error/code", "2"},
      {"verify --decode a.avi", 0, "/files/0/decoded/1/frames", "15"},
      {"verify --hash a.avi", 0, "/files/0/hash_file", "\"a.avi.sha256\""},
      {"verify --check a.avi missing.avi", 3, "/files/0/same", "true"},
      {"extract text.avi", 4, "/error/code", "4"},
      {"extract a.avi", 0, "/tracks/2/target", "\"a-2.mjpeg\""},
      {"extract --track 1:a.wav --track 2:p%d.jpg a.avi", 0, "/outputs/1/files", "15"},
      {"extract --track 0:- a.avi", 2, "/error/code", "2"},
      {"extract -o tracks cut.avi", 1, "/messages/3/event", "\"warning\""},
      {"clip --list odd* a.avi", 0, "/files/1/begin_ms", "4000"},
      {"clip --from 1 --to 2 -o b.avi a.avi", 0, "/outputs/0/packets", "50"},
      {"join -o c.avi a.avi odd*", 1, "/outputs/0/duration_ms", "8000"},
      {"join -o c.avi a.avi", 2, "/error/code", "2"},
      {"repair -o d.avi cut.avi", 1, "/complete", "false"},
      {"repair -o e.avi text.avi", 4, "/error/code", "4"},
      {"plugin --plugin missing.so", 3, "/error/code", "3"},
      {"play a.avi", 0, "/packets", "200"},
      {"play text.avi", 4, "/event", "\"end\""},
      {"record -o f%d.avi --segment-time 2" + inputs, 0, "/files", "2"},
      {"record -o a.avi media/clip25.h264", 2, "/event", "\"end\""},
      {"record", 2, "/code", "2"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.arguments);
    Result const result = Run(c.arguments + " --json");
    EXPECT_EQ(result.code, c.code) << result.err;
    bool const lines = c.arguments.rfind("play", 0) == 0 || c.arguments.rfind("record", 0) == 0;
    json last;
    std::vector<json> messages;
    std::istringstream text(lines ? result.out : Replaced(result.out, "\n", ""));
    for (std::string line; std::getline(text, line); messages.push_back(last))
      ASSERT_FALSE((last = json::parse(line, nullptr, false)).is_discarded()) << line;
    if (!lines) messages = last["messages"].get<std::vector<json>>();
    EXPECT_EQ(last["code"], c.code);
    EXPECT_EQ(last.value(json::json_pointer(c.at), json()).dump(), c.value) << result.out;
    if (last.contains("error")) messages.push_back(last["error"]);
    for (json const& message : messages)
      if (message.contains("text")) {
        EXPECT_THAT(result.err, HasSubstr(message["text"].get<std::string>()));
      }
  }
}

TEST_F(CommandTest, RecordsWhenNobodyReadsTheEvents) {
  std::string const record = TEST_TOOL " record --json --force -o a.avi media/clip25.h264";
  for (std::string where : {" >/dev/full; echo $? >&2", " | head -1; echo ${PIPESTATUS[0]} >&2"}) {
    Result const result = Shell("bash -c '" + record + where + "'");
    EXPECT_THAT(result.err, testing::AllOf(HasSubstr("events are missing"), HasSubstr("\n1\n")))
        << where;
    EXPECT_EQ(Run("verify a.avi").out, "a.avi: clean\n") << where;
  }
}

// Which look like errors.
TEST_F(CommandTest, ShowsPrintsOfThePluginOnRequestAndOnFailure) {
  ASSERT_EQ(Run("record -o a.avi --strn name media/clip25.h264 media/mono8k.wav").code, 0);
  struct {
    std::string arguments;
    int code;
    char const* shown;  // null: nothing
  } const calls[] = {
      {"record -o b.avi media/clip25.h264", 0, nullptr},
      {"record -o c.avi --duration 1 --progress json media/clip25.h264", 0, nullptr},
      {"record -o d.avi --index-spill 1 --spill-dir none media/clip25.h264", 1, nullptr},
      {"play --json a.avi", 0, nullptr},
      {"play a.avi | head -1", 0, nullptr},
      {"repair a.avi -o e.avi", 0, nullptr},
      {"extract a.avi --strd f.bin", 4, "\n++h264++++:40000,320,180\n"},
      {"plugin --verbose", 0, nullptr},
      {"verify --verbose a.avi", 0, nullptr},
      {"record --verbose -o g.avi media/clip25.h264", 0, "config:320,180\n"},
      {"play --verbose a.avi", 0, "\n++h264++++:40000,320,180\n"},
      {"repair --verbose a.avi -o h.avi", 0, "AddStream:\th264\033[0m\n"},
      {"record -o none/i.avi media/clip25.h264", 3, "\t!OpenFileConfig()\033[0m\n"},
      {"play a.avi >/dev/full", 3, "++h264++++"}};
  for (auto const& call : calls) {
    Result const result = Run(call.arguments);
    EXPECT_EQ(result.code, call.code) << call.arguments << "\n" << result.err;
    auto const none = testing::Not(testing::ContainsRegex("plugin/avi|h264[+]|config:"));
    EXPECT_THAT(result.out, none) << call.arguments;
    if (call.shown == nullptr) {
      EXPECT_THAT(result.err, none) << call.arguments;
      continue;
    }
    EXPECT_THAT(result.err, HasSubstr(call.shown)) << call.arguments;
    EXPECT_THAT(result.err, HasSubstr("kestro-avi: the plug-in printed:\n"));
  }
}

class TerminalTest : public Command {
 protected:
  void SetUp() override {
    Command::SetUp();
    ASSERT_EQ(Run("record --junk 1001 -o a.avi media/clip25.h264 media/stereo48k.wav").code, 0);
  }
  Result OnTerminal(std::string const& variables, std::string const& arguments) {
    return Shell("TERM=xterm " + variables + " script -qec '" TEST_TOOL " " + arguments +
                 "' /dev/null");
  }
};

TEST_F(TerminalTest, ColoursTreesOnTerminalsOnly) {
  if (!Has("script")) GTEST_SKIP() << "no script";
  std::string const plain = Run("info --tree a.avi").out;
  EXPECT_EQ(plain.find('\033'), plain.npos);
  std::string const coloured = OnTerminal("NO_COLOR=", "info --tree a.avi").out;
  EXPECT_THAT(coloured, HasSubstr("\033[32mLIST movi\033[0m"));
  EXPECT_EQ(std::regex_replace(coloured, std::regex("\033\\[\\d*m|\r"), ""), plain);
  EXPECT_EQ(Replaced(OnTerminal("NO_COLOR=1", "info --tree a.avi").out, "\r", ""), plain);
}

TEST_F(TerminalTest, EscapesControlCharactersInFileNames) {
  if (!Has("script")) GTEST_SKIP() << "no script";
  std::string const name = "n\033[31m\n\t\xC2\x9B\xC3\xA4";
  std::string const shown = "n\\x1b[31m\\n\\t\\xc2\\x9b\xC3\xA4";
  fs::copy_file(At("a.avi"), At(name + ".avi"));
  Write(name + ".txt", "no film");
  for (std::string line : {"info n*.avi", "verify n*.avi", "play n*.avi", "extract n*.avi",
                           "extract --force -o . n*.avi", "repair --force n*.avi -o o.avi",
                           "repair --force a.avi -o n*.avi", "record -o x.avi n*.txt",
                           "play --mode n*.txt a.avi", "n*.txt"}) {
    EXPECT_THAT(OnTerminal("NO_COLOR=1", line).out,
                testing::AllOf(HasSubstr(shown), testing::Not(HasSubstr("n\033")),
                               testing::Not(HasSubstr("\t\xC2"))))
        << line;
    Result const piped = Run(line);
    EXPECT_THAT(piped.out + piped.err, HasSubstr(name)) << line;
  }
}

TEST_F(TerminalTest, ProgressEndsWithTheTotal) {
  auto const last = [](std::string const& text) {
    auto const at = text.rfind("{\"verb\"");
    return at == text.npos ? json() : json::parse(text.substr(at, text.find('\n', at) - at));
  };
  for (std::string verb :
       {"record -o b.avi media/clip25.h264", "verify a.avi b.avi",
        "record -o c.avi --duration 1 media/mono8k.wav", "extract --track 0:a.mp4 a.avi",
        "repair -o d.avi a.avi", "play --from 1 --mode back a.avi"}) {
    Result const result = Run(verb + " --progress json");
    json const line = last(result.err);
    EXPECT_EQ(line["verb"], verb.substr(0, verb.find(' '))) << result.err;
    EXPECT_GT(line["total"], 0) << verb;
    EXPECT_EQ(line["done"], line["total"]) << verb;
  }
  json const full = last(Shell("trap '' XFSZ; ulimit -f 100; " TEST_TOOL
                               " record --progress json -o e.avi media/stereo48k.wav")
                             .err);
  EXPECT_LT(full["done"], full["total"]);
  if (!Has("script")) return;
  std::string const bar =
      OnTerminal("", "record --realtime --duration 0.4 -o f.avi media/clip25.h264").out;
  EXPECT_THAT(bar, HasSubstr("record [#"));
  EXPECT_THAT(bar.substr(bar.rfind("\r\033[K")), HasSubstr("\033[Kkestro-avi: f.avi: 10 packets"));
}

// More than is kept, from two threads at once.
static void PrintMuch() {
  auto const print = [] {
    for (int i = 0; i < 5000; ++i) {
      std::printf("\nprint %d of 5000 that a plug-in makes\n", i);
      base::ErrorLineAt("plugin", i, "Function", "a red line");
    }
  };
  CapturePrints();
  std::thread other(print);
  print();
  other.join();
  base::ErrorLineAt("plugin", 0, "Function", "the last one");
}

TEST(PrintsTest, KeepsTheLastOnes) {
  auto const end = testing::EndsWith("\n\033[31mplugin/0/Function:\tthe last one\033[0m\n");
  auto const length = testing::SizeIs(testing::AllOf(testing::Ge(65000u), testing::Le(66000u)));
  auto const begin =
      testing::MatchesRegex("kestro-avi: the plug-in printed:\n(\n|print|.\\[31mplugin/).*");
  auto const show = [] {
    PrintMuch();
    ShowCapturedPrints();
    struct stat file {};
    std::_Exit(fstat(STDOUT_FILENO, &file) == 0 && file.st_blocks < 1024 ? 0 : 1);
  };
  EXPECT_EXIT(show(), testing::ExitedWithCode(0), testing::AllOf(end, length, begin));
  // After the text of the assertion.
  EXPECT_EXIT((PrintMuch(), base::AssertFail("it holds", "file.cpp", 1, "Function")),
              testing::KilledBySignal(SIGABRT),
              testing::AllOf(end, HasSubstr("Assertion `it holds' failed.\nkestro-avi: ")));
}

}  // namespace
}  // namespace kestro::tool
