#include "recorder/Recorder.h"

#include <new>

#include "recorder/Refusal.h"
#include "recorder/Work.h"

namespace kestro::record {

// Turns exceptions into results.
template <class Call>
static Result Try(Call const& call) try {
  return call();
} catch (std::bad_alloc const&) {
  return {Code::kMemory, "out of memory"};
} catch (std::exception const& error) {
  return {Code::kIo, error.what()};
}

Recorder::Recorder(std::unique_ptr<Work> work) : _work(std::move(work)) {}
Recorder::~Recorder() = default;

std::unique_ptr<Recorder> Recorder::Open(RecorderOptions const& options, Tracks const& tracks,
                                         Result& why) try {
  why = {};
  return std::unique_ptr<Recorder>(new Recorder(std::make_unique<Work>(options, tracks)));
} catch (Refusal const& refusal) {
  why = refusal.ToResult();
  return nullptr;
} catch (std::bad_alloc const&) {
  why.code = Code::kMemory;
  return nullptr;
} catch (std::exception const& error) {
  why = {Code::kIo, error.what()};
  return nullptr;
}

Code Recorder::Push(std::size_t track, Payload const& payload) {
  return _work->Push(track, payload);
}
void Recorder::Split() { _work->SplitAt(INT64_MIN); }
void Recorder::SplitAt(std::int64_t time_ns) { _work->SplitAt(time_ns); }
Code Recorder::Event(std::string const& label) { return _work->Event(label); }
Code Recorder::Event(std::string const& label, std::int64_t before_ns, std::int64_t after_ns) {
  return _work->Event(label, before_ns, after_ns);
}
Result Recorder::Unprotect(std::string const& file) {
  return Try([&] { return _work->Unprotect(file); });
}
Result Recorder::ChangeTracks(Tracks const& tracks) {
  return Try([&] { return _work->ChangeTracks(tracks); });
}
Result Recorder::Stop() {
  return Try([&] { return _work->Stop(); });
}
Status Recorder::GetStatus() const { return _work->GetStatus(); }
std::string Recorder::DescribeSync() const { return _work->DescribeSync(); }

}  // namespace kestro::record
