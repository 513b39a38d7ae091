#include "ToolBench.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <sstream>

#include "Recording.h"
#include "Target.h"

namespace kestro::bench {

namespace {

using Command = std::vector<std::string>;

Command Words(std::string const& line) {
  std::istringstream in(line);
  Command words;
  for (std::string word; in >> word;) words.push_back(word);
  return words;
}

bool Exists(std::string const& program) {
  if (program.find('/') != program.npos) return access(program.c_str(), X_OK) == 0;
  char const* const path = std::getenv("PATH");
  std::istringstream folders(path != nullptr ? path : "");
  for (std::string folder; std::getline(folders, folder, ':');)
    if (access((folder + "/" + program).c_str(), X_OK) == 0) return true;
  return false;
}

// Runs a program without output and returns its CPU time in seconds. Throws when it fails.
double Run(Command const& command) {
  std::vector<char*> argv;
  for (std::string const& word : command) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  for (int const fd : {0, 1, 2})
    posix_spawn_file_actions_addopen(&files, fd, "/dev/null", O_RDWR, 0);
  pid_t child = 0;
  int const failed = posix_spawnp(&child, argv[0], &files, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  Require(failed == 0, "a program cannot be started");
  int status = 0;
  rusage used{};
  Require(wait4(child, &status, 0, &used) == child && status == 0, "a program failed");
  auto const seconds = [](timeval const& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(used.ru_utime) + seconds(used.ru_stime);
}

// Adds the program to a case if it is installed.
void Add(
    Case& c, char const* name, std::string const& line, Target const& target = {},
    std::function<void()> const& prepare = [] {}) {
  Command const command = Words(line);
  if (!Exists(command.front())) return;
  c.contenders.push_back({name, [=](Stopwatch& watch) {
                            prepare();
                            target.Clear();
                            watch.Seconds(Run(command));
                            target.Clear();
                          }});
}

// Footage for all contenders, made by the first call of Make.
class Footage {
 public:
  ~Footage() { unlink(_path.c_str()); }
  std::string const& Path() const { return _path; }
  // Encodes a few seconds, which are repeated.
  void Make() {
    if (access(_path.c_str(), R_OK) == 0) return;
    std::string const part = TmpfsPath("tool-part") + ".mkv";
    Run(
        Words("ffmpeg -nostdin -y -f lavfi -i testsrc2=s=1280x720:r=30,noise=alls=60:allf=t "
              "-f lavfi -i sine=sample_rate=48000 -t 6 -ac 2 -c:v libx264 -preset ultrafast -g 30 "
              "-b:v 24M -minrate 24M -maxrate 24M -bufsize 24M -c:a pcm_s16le " +
              part));
    Run(Words("ffmpeg -nostdin -y -stream_loop 9 -i " + part + " -c copy " + _path));
    unlink(part.c_str());
  }

 private:
  std::string const _path = TmpfsPath("tool-in") + ".mkv";
};

Case RecordCase(std::string const& tool) {
  Case c{"tool/record", "s", 1, 1, {}};
  if (!Exists("ffmpeg")) return c;
  auto const footage = std::make_shared<Footage>();
  Target const target{TmpfsPath("tool-out")};
  std::string const &in = footage->Path(), &out = target.path;
  auto const prepare = [footage] { footage->Make(); };
  Add(c, "ours", tool + " record -o " + out + " " + in, target, prepare);
  Add(c, "ffmpeg",
      "ffmpeg -nostdin -v error -y -i " + in + " -c copy -bsf:v h264_mp4toannexb " + out, target,
      prepare);
  Add(c, "gst-launch",
      "gst-launch-1.0 -q filesrc location=" + in +
          " ! matroskademux name=in in.video_0 ! queue ! "
          "h264parse ! avimux name=out ! filesink location=" +
          out + " in.audio_0 ! queue ! out.",
      target, prepare);
  return c;
}

}  // namespace

std::vector<Case> ToolCases() {
#ifdef KESTRO_BENCH_TOOL
  auto const folder = std::filesystem::canonical("/proc/self/exe").parent_path();
  std::string const tool = folder / KESTRO_BENCH_TOOL;
  if (!Exists(tool)) return {};
  Case start{"tool/start", "ms", 1e3, 1, {}};
  Add(start, "ours", tool + " --help");
  Add(start, "ffprobe", "ffprobe -version");
  return {start, RecordCase(tool)};
#else
  return {};
#endif
}

}  // namespace kestro::bench
