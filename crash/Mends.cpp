#include "crash/Mends.h"

#include <algorithm>
#include <filesystem>
#include <functional>

#include "crash/CrashStates.h"
#include "crash/Judge.h"
#include "crash/Tool.h"

namespace kestro::crash {

namespace {

constexpr unsigned kSector = 512;
constexpr long kEvery = 16;  // of the states of a second cut, one in so many is judged

// Changes the operations of a repair.
using Edit = std::function<void(Ops& repair)>;

struct MendFindings {
  long bases = 0, refused = 0, whole = 0, states = 0, faults = 0;
  std::string first;  // fault
};

bool Includes(std::vector<bool> const& all, std::vector<bool> const& part) {
  for (std::size_t i = 0; i < part.size(); ++i)
    if (part[i] && !all[i]) return false;
  return true;
}

// Files that can be changed.
struct Copy {
  test::MemoryIO file;
  Others others;

  Copy(test::MemoryIO const& from, Others const& next) {
    file.bytes = from.bytes;
    for (auto const& [number, io] : next) others[number].bytes = io.bytes;
  }
};

class Mends {
 public:
  Mends(Recorded const& recorded, Edit const& edit)
      : _recorded(recorded), _edit(edit), _judge(recorded), _folder(test::NewFolder()) {}
  ~Mends() {
    std::error_code none;
    std::filesystem::remove_all(_folder, none);
  }

  MendFindings Explore(long bases);

 private:
  void Base(test::MemoryIO const& file, Others const& others, int64 promised);
  void Again(CrashStates::State const& state);
  void Fault(std::string const& what);

  Recorded const& _recorded;
  Edit const& _edit;  // null: as it is
  Judge _judge;
  std::string const _folder;
  MendFindings _found;
  std::string _base;                // what is being repaired
  std::vector<bool> _before, _all;  // what plays before the repair, and after it
  CrashStates* _states = nullptr;
};

MendFindings Mends::Explore(long bases) {
  constexpr long kFew = 97;
  auto const many = [](CrashStates::State const&) { return true; };
  CrashStates some(_recorded.ops, _recorded.front, kSector, kFew, many);
  some.Run(0);
  long const every = std::max(some.Count() * kFew / bases, 1L);
  CrashStates* states = nullptr;
  CrashStates all(_recorded.ops, _recorded.front, kSector, every, [&](auto const& state) {
    if (state.garbage >= 0 || state.promised < 0) return true;
    _base = states->Describe();
    Base(state.file, state.others, state.promised);
    // As if it had been recorded without syncs.
    if (!state.others.empty()) Base(state.file, {}, 0);
    return _edit == nullptr || _found.faults == 0;
  });
  states = &all;
  all.Run(0);
  return _found;
}

void Mends::Fault(std::string const& what) {
  ++_found.faults;
  if (_found.first.empty())
    _found.first = _base + "; " + (_states != nullptr ? _states->Describe() + "; " : "") + what;
}

void Mends::Base(test::MemoryIO const& file, Others const& others, int64 promised) {
  Copy copy(file, others);
  auto& [mended, left] = copy;
  ++_found.bases;
  _before = _judge.Played(mended, left);
  Mending mending = Mend(_folder, mended, left);
  _found.refused += mending.refused;
  if (mending.ops.size() == mending.begin) {
    _found.whole += !mending.refused;
    return;
  }
  Verdict const verdict = _judge.Mended(mended, promised);
  Others none;
  _all = _judge.Played(mended, none);
  if (mending.refused || !left.empty()) Fault("refused after a change: " + mending.why);
  if (!verdict.opened || verdict.lost > 0 || verdict.late > 0 || !Includes(_all, _before))
    Fault("the repair lost packets");
  if (_edit) {
    Ops repair(mending.ops.begin() + static_cast<std::ptrdiff_t>(mending.begin), mending.ops.end());
    _edit(repair);
    mending.ops.resize(mending.begin);
    mending.ops.insert(mending.ops.end(), repair.begin(), repair.end());
  }
  CrashStates states(
      mending.ops, _recorded.front, kSector, _edit ? 1 : kEvery,
      [this](CrashStates::State const& state) {
        if (state.garbage < 0) Again(state);
        return _edit == nullptr || _found.faults == 0;
      },
      mending.begin);
  _states = &states;
  states.Run(0);
  _states = nullptr;
}

void Mends::Again(CrashStates::State const& state) {
  ++_found.states;
  Copy copy(state.file, state.others);
  auto& [file, others] = copy;
  if (!Includes(_judge.Played(file, others), _before)) return Fault("plays less than before");
  Mending const again = Mend(_folder, file, others);
  if (again.refused) return Fault("refused: " + again.why);
  Others none;
  if (!others.empty() || !Includes(_judge.Played(file, none), _all))
    return Fault("a second repair plays less");
  if (!again.whole) Fault("is not whole after a second repair");
}

Ops::iterator IndexIn(Ops& repair) {
  return std::find_if(repair.begin(), repair.end(), [](Op const& op) {
    return op.kind == Op::kWrite && op.bytes.compare(0, 4, "idx1") == 0;
  });
}

Ops::iterator BarrierAfter(Ops& repair, Ops::iterator from) {
  return std::find_if(from, repair.end(), [](Op const& op) { return op.IsBarrier(); });
}

void DropIndexBarrier(Ops& repair) {
  auto const barrier = BarrierAfter(repair, IndexIn(repair));
  if (barrier != repair.end()) repair.erase(barrier);
}

// Drops the barrier before what ends the repair.
void DropLastBarrier(Ops& repair) {
  auto const names =
      std::find_if(repair.begin(), repair.end(), [](Op const& op) { return op.kind == Op::kName; });
  if (names != repair.begin() && names != repair.end() && (names - 1)->IsBarrier())
    repair.erase(names - 1);
}

void SideFirst(Ops& repair) {
  std::stable_partition(repair.begin(), repair.end(),
                        [](Op const& op) { return op.kind == Op::kName; });
}

// The tag of the old index, and its barrier, before the new one.
void JunkFirst(Ops& repair) {
  auto const index = IndexIn(repair);
  auto const tag = std::find_if(index, repair.end(), [](Op const& op) {
    return op.kind == Op::kWrite && op.bytes == "JUNK";
  });
  if (tag != repair.end()) std::rotate(index, tag, tag + 2);
}

bool Report(std::FILE* out, Recorded const& recorded, MendFindings const& found) {
  std::fprintf(out,
               "%s: mended in place: %ld states, %ld of them whole, %ld refused; %ld states of a "
               "second cut, %ld at fault\n",
               Name(recorded.scenario).c_str(), found.bases, found.whole, found.refused,
               found.states, found.faults);
  if (found.faults != 0) std::fprintf(out, "  FAULT %s\n", found.first.c_str());
  std::fflush(out);
  return found.faults == 0 && found.states > 0;
}

}  // namespace

bool ProveMends(std::FILE* out, Recorded const& recorded, long bases, bool plants) {
  bool good = Report(out, recorded, Mends(recorded, nullptr).Explore(bases));
  struct Plant {
    char const* name;
    Edit edit;
    bool side;  // needs a side file, or an old index that becomes JUNK
  } const kPlants[] = {{"no barrier after the index", DropIndexBarrier, false},
                       {"JUNK before the index", JunkFirst, false},
                       {"the side file is removed first", SideFirst, true},
                       {"no barrier before the side file is removed", DropLastBarrier, true}};
  Scenario const& scenario = recorded.scenario;
  for (Plant const& plant : kPlants) {
    if (!plants || !(plant.side ? scenario.mode == Mode::kCallback : scenario.full)) continue;
    MendFindings const found = Mends(recorded, plant.edit).Explore(bases);
    std::fprintf(out, "  %s in the repair, %s%s%s\n", found.faults != 0 ? "found" : "MISSED",
                 plant.name, found.faults != 0 ? ": " : "", found.first.c_str());
    good = good && found.faults != 0;
  }
  return good;
}

}  // namespace kestro::crash
