// kestro-crash: proves that what a sync has covered survives a power cut. Prints for each mode how
// many states of the storage it has played and what it found. Fails when a state breaks a promise
// or a planted fault is not found.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <future>

#include "crash/CrashStates.h"
#include "crash/Judge.h"
#include "crash/Mends.h"
#include "crash/Plants.h"
#include "support/Quiet.h"

namespace kestro::crash {
namespace {

constexpr unsigned kSectors[] = {512, 4096};
constexpr long kUsual = 10000;  // states of a mode; about as many are made when fewer are wanted

struct Findings {
  long states = 0, closed = 0, lost = 0, alien = 0, late = 0;  // states with that fault
  std::string first;                                           // what the first one is
  // Of states that are repaired: with garbage, without it, at fault, ...
  long garbage = 0, repaired = 0, faults = 0;
  long shared = 0, altered = 0;  // promised packets in the garbage: gone and named, altered

  bool Good() const { return first.empty(); }
};

// A state that breaks a promise.
void Note(Findings& found, std::string const& state, Verdict const& verdict) {
  if (!found.first.empty()) return;
  found.first = state + "; lost " + std::to_string(verdict.lost) + ", alien " +
                std::to_string(verdict.alien) + ", late " + std::to_string(verdict.late);
}

Findings Explore(Recorded const& recorded, Ops const& ops, unsigned sector, long wanted, long every,
                 Plant const* plant) {
  Findings found;
  Judge judge(recorded, plant != nullptr && plant->trusting);
  CrashStates* states = nullptr;
  // Once the file was closed, all packets outside the garbage must be there.
  auto const repair = [&](CrashStates::State const& state) {
    bool const closed = state.at >= recorded.closed, garbage = state.garbage >= 0;
    if (plant != nullptr && !plant->garbage) return;
    if (state.promised < 0 || !(closed || garbage)) return;
    int64 const from = garbage ? state.garbage * sector : 0, to = garbage ? from + sector : 0;
    Verdict const verdict = judge.Repaired(state.file, state.others,
                                           closed ? recorded.packets : state.promised, from, to);
    ++(garbage ? found.garbage : found.repaired);
    found.shared += verdict.shared;
    found.altered += verdict.altered;
    if (verdict.Good()) return;
    ++found.faults;
    Note(found, states->Describe() + ", repaired, garbage at " + std::to_string(from), verdict);
  };
  CrashStates all(ops, recorded.front, sector, every, [&](CrashStates::State const& state) {
    repair(state);
    if (state.garbage >= 0) return plant == nullptr || found.Good();
    Verdict const verdict = judge.Play(state.file, state.others, state.promised);
    if (state.promised < 0 || verdict.Good()) return true;
    found.closed += !verdict.opened;
    found.lost += verdict.lost > 0;
    found.alien += verdict.alien > 0;
    found.late += verdict.late > 0;
    Note(found, states->Describe(), verdict);
    return plant == nullptr;
  });
  states = &all;
  all.Run(wanted);
  found.states = all.Count();
  return found;
}

bool Report(std::FILE* out, Recorded const& recorded, unsigned sector, Findings const& found) {
  std::fprintf(out,
               "%s %4u: %ld states, %d syncs: %ld that do not open, %ld with packets lost, "
               "%ld alien, %ld late\n",
               Name(recorded.scenario).c_str(), sector, found.states, recorded.syncs, found.closed,
               found.lost, found.alien, found.late);
  std::fprintf(
      out,
      "  repaired: %ld states with a sector of garbage, %ld while it becomes ordinary, %ld "
      "at fault; promised packets in garbage: %ld gone and named, %ld altered\n",
      found.garbage, found.repaired, found.faults, found.shared, found.altered);
  if (!found.Good()) std::fprintf(out, "  FAULT %s\n", found.first.c_str());
  std::fflush(out);
  return found.Good();
}

bool ReportPlant(std::FILE* out, Recorded const& recorded, Plant const& plant) {
  for (unsigned sector : kSectors) {
    Findings const found = Explore(recorded, plant.ops, sector, 1000, 1, &plant);
    if (found.Good()) continue;
    std::fprintf(out, "  found, %s: %s\n", plant.name.c_str(), found.first.c_str());
    return true;
  }
  std::fprintf(out, "  MISSED, %s\n", plant.name.c_str());
  return false;
}

// The states of one mode, then its planted faults, all of which must be found.
bool Prove(std::FILE* out, Scenario const& scenario, long wanted) {
  bool const usual = wanted >= kUsual;
  long const mended = std::max(wanted / 250, 4L);
  long const every = std::max(kUsual / wanted, 1L);
  Recorded const recorded = Record(scenario);
  if (recorded.ops.empty()) {
    std::fprintf(out, "%s: the recording failed\n", Name(scenario).c_str());
    return false;
  }
  bool good = true;
  long states = 0;
  if (scenario.full) wanted /= 10;  // of which only the closing differs
  std::vector<std::future<Findings>> running;
  for (unsigned sector : kSectors)
    running.push_back(std::async(std::launch::async, [&recorded, sector, wanted, every] {
      return Explore(recorded, recorded.ops, sector, wanted / 2, every, nullptr);
    }));
  for (std::size_t i = 0; i < running.size(); ++i) {
    Findings const found = running[i].get();
    good = Report(out, recorded, kSectors[i], found) && good;
    states += found.states;
  }
  std::fprintf(out, "%s: %ld states\n", Name(scenario).c_str(), states);
  if (usual)
    for (Plant const& plant : Plants(recorded)) good = ReportPlant(out, recorded, plant) && good;
  good = ProveMends(out, recorded, mended, usual) && good;
  std::fflush(out);
  return good && states >= wanted;
}

int Main(int argc, char** argv) {
  long const wanted = argc == 2 ? std::strtol(argv[1], nullptr, 10) : kUsual;
  if (argc > 2 || wanted < 2) {
    std::fprintf(stderr, "usage: kestro-crash [STATES-PER-MODE]\n");
    return 2;
  }
  std::FILE* const out = fdopen(dup(STDOUT_FILENO), "w");
  if (out == nullptr || !test::Quiet()) return 2;
  bool good = true;
  for (Scenario const& scenario : kScenarios) good = Prove(out, scenario, wanted) && good;
  std::fprintf(out, good ? "every promise is kept\n" : "FAILED\n");
  std::fclose(out);
  return good ? 0 : 1;
}

}  // namespace
}  // namespace kestro::crash

int main(int argc, char** argv) { return kestro::crash::Main(argc, argv); }
