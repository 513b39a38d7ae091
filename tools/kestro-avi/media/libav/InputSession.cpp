#include "media/libav/InputSession.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "cli/Address.h"
#include "cli/Errors.h"
#include "cli/Text.h"
#include "media/libav/LiveSource.h"

namespace kestro::tool {

// How long Next may wait, and how long to sleep while there is nothing to read.
static constexpr std::int64_t kMoment_ns = 100000000;
static constexpr auto kNap = std::chrono::milliseconds(20);
// How long to watch the first packets of several live inputs, to relate their clocks.
static constexpr std::int64_t kSettling_ns = 1000000000;

static std::int64_t SteadyTime_ns(avi::ClockAnchor::Now const& then) {
  return Patience::Now_ns() - (avi::ClockAnchor::Now::Read().boot_ns - then.boot_ns);
}

InputSession::InputSession(std::vector<std::string> const& addresses, InputOptions const& options,
                           Selection const& selection)
    : _options(options),
      _selection(selection),
      _duration_ns(selection.duration_ns),
      _absences(addresses.size()) {
  OpenAll(addresses);
  auto const isAvi = [](std::string const& address) { return Extension(address) == ".avi"; };
  if (std::count_if(addresses.begin(), addresses.end(), isAvi) > 1)
    _notes.emplace_back(
        "the inputs become parallel tracks; \"kestro-avi join\" puts AVI files one after another");
  Settle();
  for (auto const& input : _inputs) _active.push_back(input.get());
  _epoch = std::make_unique<Epoch>(_active, _options, _selection, _start);
  if (_epoch->Tracks().empty()) throw Error(kUnusable, "the inputs have no tracks to record");
  Append(_notes, _epoch->Notes());
}

void InputSession::OpenAll(std::vector<std::string> const& addresses) {
  for (TrackChoice const& choice : _options.choices)
    if (choice.Input() >= addresses.size())
      throw Error(kUsage, "--map " + choice.Text() + ": there is no such input");
  for (std::size_t i = 0; i < addresses.size(); ++i) {
    InputOptions own = _options;
    auto& choices = own.choices;
    choices.erase(std::remove_if(choices.begin(), choices.end(),
                                 [i](TrackChoice const& one) { return one.Input() != i; }),
                  choices.end());
    _names.push_back(Hidden(addresses[i]));
    if (choices.empty() && !_options.choices.empty())
      throw Error(kUsage, "--map: chooses nothing of " + _names[i]);
    _inputs.push_back(OpenInput(addresses[i], own));
    auto const& since = _inputs.back()->LiveSince();
    if (!since || _clock) continue;
    _start.session_ns = SteadyTime_ns(*since);
    _clock.emplace().Take(_start.session_ns, *since);
  }
}

// Places several live inputs on the session's clock.
void InputSession::Settle() {
  std::vector<LiveSource*> live;
  for (auto const& input : _inputs)
    if (input->Live() != nullptr) live.push_back(input->Live());
  if (live.size() < 2) return;
  std::int64_t const until_ns = Patience::Now_ns() + kSettling_ns;
  while (Patience::Now_ns() < until_ns && !_options.interrupted())
    std::this_thread::sleep_for(kNap);
  _start.placed = true;
  for (LiveSource const* source : live)
    if (auto const first = source->First_ns(), shift = source->Shift_ns(); first && shift)
      _start.session_ns = std::min(_start.session_ns, *first + *shift);
}

bool InputSession::AnyLive() const {
  return std::any_of(_inputs.begin(), _inputs.end(),
                     [](auto const& input) { return input->Live() != nullptr; });
}

bool InputSession::AnyNear() const {
  for (std::size_t i = 0; i < _inputs.size(); ++i)
    if (_absences.Away(i) && !_cutting && _inputs[i]->Live()->Near()) return true;
  return false;
}

Session::Outcome InputSession::Next(std::size_t& track, TimedPacket& packet) {
  std::int64_t const until_ns = Patience::Now_ns() + kMoment_ns;
  while (!_options.interrupted()) {
    WatchInputs();
    if (AnyNear()) {  // the other inputs are cut at its first key frame
      std::this_thread::sleep_for(kNap);
      if (Patience::Now_ns() >= until_ns) return kNothing;
      continue;
    }
    switch (_epoch->Next(track, packet)) {
      case Epoch::kPacket:
        Place(packet);
        return kPacket;
      case Epoch::kEnd:
        WatchInputs();
        if (_cutting) return Continue() ? kTracks : kEnd;
        if (!_absences.Awaited() || IsOver()) return kEnd;
        std::this_thread::sleep_for(kNap);
        break;
      case Epoch::kNothing:
        break;
    }
    if (AnyLive() && Patience::Now_ns() >= until_ns) return kNothing;
  }
  return kEnd;
}

// Notices which inputs are lost, back or changed, and cuts the others.
void InputSession::WatchInputs() {
  for (std::size_t i = 0; i < _inputs.size(); ++i) {
    Input& input = *_inputs[i];
    LiveSource* const live = input.Live();
    for (Notice& notice : input.TakeNews()) {
      notice.fields.push_back({"at_ms", Ms(RecordedAt(*input.Cut_ns()))});
      _news.push_back(std::move(notice));
    }
    if (_absences.Away(i)) {
      if (_absences.Gone(i)) continue;
      if (live->Back() && !_cutting)
        RequestCut(live->First_ns().value_or(0) + live->Shift_ns().value_or(0));
      if (!live->Gone()) continue;
      _absences.GiveUp(i);
      std::string const text = _names[i] + ": did not come back within " +
                               Seconds_ns(_options.reconnect_ns) + ": " + live->Reason();
      _news.push_back({text, "gone", {{"input", _names[i]}}});
      _failures.push_back({text, nullptr, {{"code", int{kIo}}}});
    } else if (input.Lost()) {
      Lose(i);
    } else if (IsActive(input) && input.Cut_ns() && !_cutting) {
      RequestCut(*input.Cut_ns());
    }
  }
  if (_guide == nullptr || !(_guide->Cut_ns() || _guide->Lost() || _guide->Ended())) return;
  CutAll(_guide->Cut_ns().value_or(_cut_ns));
}

void InputSession::Lose(std::size_t input) {
  std::int64_t const end_ns = _inputs[input]->Cut_ns().value_or(Patience::Now_ns());
  _news.push_back(
      _absences.Lose(input, _names[input], _inputs[input]->Live()->Reason(), RecordedAt(end_ns)));
  if (!_cutting) RequestCut(end_ns);
}

bool InputSession::IsActive(Input const& input) const {
  return std::find(_active.begin(), _active.end(), &input) != _active.end();
}

// Whether the input may have tracks in the next epoch.
bool InputSession::GoesOn(std::size_t input) const {
  if (_absences.Away(input)) return _inputs[input]->Live()->Back();
  return !_inputs[input]->Ended();
}

// Ends the epoch at this time or, if the next one starts with a video that goes on, at its next key
// frame.
void InputSession::RequestCut(std::int64_t session_ns) {
  _cutting = true;
  _cut_ns = session_ns;
  for (std::size_t i = 0; i < _inputs.size(); ++i) {
    if (!GoesOn(i) || !_inputs[i]->HasVideo()) continue;
    if (!IsActive(*_inputs[i]) || _inputs[i]->Lost() || _inputs[i]->Cut_ns()) break;
    _guide = _inputs[i].get();
    _guide->CutAt(session_ns);
    return;
  }
  CutAll(session_ns);
}

void InputSession::CutAll(std::int64_t session_ns) {
  _guide = nullptr;
  _cut_ns = session_ns;
  for (Input* const input : _active)
    if (!input->Lost() && !input->Ended() && !input->Cut_ns()) input->CutAt(session_ns);
}

std::int64_t InputSession::RecordedAt(std::int64_t session_ns) const {
  return _zero_ns ? std::max(_end_ns, session_ns - *_zero_ns) : 0;
}

// Continues the times of the epochs before, by the time that has passed.
void InputSession::Place(TimedPacket& packet) {
  if (!_placed) {
    if (!_zero_ns) _zero_ns = _epoch->Start_ns();
    _base_ns = RecordedAt(_epoch->Start_ns());
    _placed = true;
  }
  packet.time_ns += _base_ns;
  _end_ns = std::max(_end_ns, packet.time_ns + packet.duration_ns);
}

bool InputSession::IsOver() const {
  return _duration_ns >= 0 && _zero_ns && Patience::Now_ns() - *_zero_ns >= _duration_ns;
}

std::vector<std::size_t> InputSession::AcceptReturned() {
  std::vector<std::size_t> returned;
  for (std::size_t i = 0; i < _inputs.size(); ++i) {
    LiveSource* const live = _inputs[i]->Live();
    if (!_absences.Away(i) || !live->Back() || !_inputs[i]->Accept()) continue;
    _news.push_back(_absences.Return(i, live->Attempts(), RecordedAt(_cut_ns)));
    returned.push_back(i);
  }
  return returned;
}

// Begins the epoch after this one. Returns false at the end of the recording.
bool InputSession::Continue() {
  _findings.Add(_epoch->Findings());
  _lateNotes.Add(_epoch->LateNotes());
  Append(_events, _epoch->TakeEvents());
  if (!_zero_ns)
    _selection.start_ns =
        std::max<std::int64_t>(0, _selection.start_ns + _start.session_ns - _cut_ns);
  else
    _selection.start_ns = 0;
  if (_duration_ns >= 0 && _zero_ns) _selection.duration_ns = _duration_ns - RecordedAt(_cut_ns);
  if (_duration_ns >= 0 && _selection.duration_ns <= 0) return false;
  _start.session_ns = _cut_ns;
  _start.placed = true;
  _selection.recorded_ns = RecordedAt(_cut_ns);
  _placed = _cutting = false;
  _guide = nullptr;
  // The old tracks are gone when the inputs begin.
  _active.clear();
  _epoch = std::make_unique<Epoch>(std::vector<Input*>(), _options, _selection, _start);
  auto returned = AcceptReturned();
  for (;;) {
    try {
      Begin();
      return true;
    } catch (Error const& error) {
      if (!Reject(returned, error.what())) return false;
    }
    returned.clear();
  }
}

// Returns false if the inputs that go on cannot be recorded.
bool InputSession::Reject(std::vector<std::size_t> const& returned, std::string const& reason) {
  for (std::size_t const i : returned) {
    _inputs[i]->Live()->Reject(reason);
    _news.push_back(_absences.Lose(i, _names[i], reason, RecordedAt(_cut_ns)));
  }
  if (!returned.empty()) return true;
  _failures.push_back({reason, nullptr, {{"code", int{kUnusable}}}});
  return false;
}

// Files are recorded only together with live inputs, if there are some.
void InputSession::Begin() {
  _active.clear();
  bool live = false;
  for (std::size_t i = 0; i < _inputs.size(); ++i) {
    if (_absences.Away(i) || _inputs[i]->Ended()) continue;
    _active.push_back(_inputs[i].get());
    live |= _inputs[i]->Live() != nullptr;
  }
  if (!live && AnyLive()) _active.clear();
  _start.texts = std::any_of(_active.begin(), _active.end(),
                             [](Input const* input) { return input->HasVideo(); });
  _epoch = std::make_unique<Epoch>(_active, _options, _selection, _start);
}

std::optional<avi::StartTime> InputSession::Captured(std::int64_t time_ns) {
  std::int64_t const input_ns = _epoch->Times().Input_ns(time_ns - _base_ns);
  std::int64_t const session_ns = _epoch->Start_ns() + input_ns;
  if (_options.start_ns) return avi::StartTime{*_options.start_ns + session_ns - *_zero_ns, true};
  if (_clock) return _clock->Take(session_ns, avi::ClockAnchor::Now::Read());
  for (auto const& input : _inputs)
    if (auto const& start = input->Start())
      return avi::StartTime{start->time_ns + session_ns, start->set};
  return std::nullopt;
}

ReadExtent InputSession::ReadSoFar() const {
  ReadExtent all{0, 0};
  for (auto const& input : _inputs) {
    ReadExtent const one = input->ReadSoFar();
    if (one.size < 0) return {};
    all.size += one.size;
    all.position += one.position;
  }
  return all;
}

Notices InputSession::Notes() const {
  Notices notes = _notes;
  for (auto const& input : _inputs) Append(notes, input->Notes());
  return notes;
}

Notices InputSession::LateNotes() const {
  NoticeCollection notes = _lateNotes;
  notes.Add(_epoch->LateNotes());
  return notes.All();
}

Notices InputSession::Failures() const {
  Notices failures = _failures;
  for (auto const& input : _inputs)
    if (!input->Failure().empty())
      failures.push_back({input->Failure(), nullptr, {{"code", int{kIo}}}});
  return failures;
}

Notices InputSession::Findings() const {
  Notices findings = _absences.Findings();
  for (auto const& input : _inputs) Append(findings, input->Findings());
  NoticeCollection tracks = _findings;
  tracks.Add(_epoch->Findings());
  Append(findings, tracks.All());
  return findings;
}

Notices InputSession::TakeEvents() {
  Notices events = std::exchange(_events, {});
  for (auto const& input : _inputs) Append(events, input->TakeEvents());
  Append(events, _epoch->TakeEvents());
  return events;
}

}  // namespace kestro::tool
