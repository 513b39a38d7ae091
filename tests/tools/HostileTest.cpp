// Hostile and damaged files: every verb that reads ends with an exit code and, where it failed, a
// reason.
#include "Command.h"
#include "cli/Errors.h"
#include "support/HostileFiles.h"

namespace kestro::tool {
namespace {

class HostileCommand : public Command, public testing::WithParamInterface<char const*> {
 protected:
  // A hang is limited by processor time, as the machine may be busy.
  Result Bounded(std::string const& arguments) {
    return Shell("ulimit -t 10; timeout 300 " TEST_TOOL " " + arguments);
  }
  std::string Save(std::string const& name, test::Bytes const& bytes) {
    Write(name, {bytes.begin(), bytes.end()});
    return " " + name;
  }
  static bool Ends(Result const& result) {
    if (result.code <= 1) return result.code == 0 || !(result.out + result.err).empty();
    return (result.code == 3 || result.code == 4) && !result.err.empty();
  }
};

TEST_P(HostileCommand, Ends) {
  for (auto const& file : test::HostileFiles()) {
    Result const result = Bounded(GetParam() + Save("file.avi", file.bytes));
    EXPECT_TRUE(Ends(result)) << file.symptom << ": " << result.code << "\n" << result.err;
  }
}
INSTANTIATE_TEST_SUITE_P(Verbs, HostileCommand,
                         testing::Values("extract --force -o tracks", "repair --force -o whole.avi",
                                         "play"));

// These take many files at a time, and name each.
TEST_F(HostileCommand, DescribesAndChecksAll) {
  auto files = test::HostileFiles();
  for (auto const& file : test::HostileSizes()) files.push_back(file);
  std::string names;
  for (std::size_t i = 0; i < files.size(); ++i)
    names += Save("file" + std::to_string(i) + ".avi", files[i].bytes);
  for (std::string verb : {"info --tree", "info --json", "verify --deep", "verify --json"}) {
    Result const result = Bounded(verb + names);
    EXPECT_EQ(result.code, kUnusable) << verb << "\n" << result.err;
    for (std::size_t i = 0; i < files.size(); ++i)
      EXPECT_NE((result.out + result.err).find("file" + std::to_string(i) + ".avi"),
                std::string::npos)
          << verb << ": " << files[i].symptom;
  }
}

// In time that does not grow with entries times holes.
TEST_F(HostileCommand, RepairsManyHoles) {
  auto const film = test::HostileBase();
  test::Bytes const entry = test::Bytes().Cc("00dc").U32(0).U32(~0u).U32(4);
  test::Bytes const packet = test::Plain("00dc", test::StoredFrame(""));
  test::Bytes const cut = test::Bytes().Cc("00dc").U32(0x7FFFFFFF);
  std::string const name = Save(
      "file.avi",
      test::Joined({test::Bytes({film.begin(), film.begin() + long(test::Find(film, "movi")) - 8}),
                    test::List("LIST", "movi", test::Copies(test::Joined({packet, cut}), 300000)),
                    test::Bytes().Cc("idx1").U32(16 * 65536), test::Copies(entry, 65536)}));
  Result const result = Bounded("repair -o whole.avi" + name);
  EXPECT_EQ(result.code, 1) << result.err;
  EXPECT_THAT(result.out, testing::HasSubstr("kept 300000 packets"));
}

}  // namespace
}  // namespace kestro::tool
