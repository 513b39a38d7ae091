#include "crash/CrashStates.h"

#include <algorithm>

namespace kestro::crash {

namespace {
constexpr std::size_t kExhaustive = 10;  // sectors of which all subsets are tried
constexpr std::size_t kMany = 4;         // sectors of which random subsets are worth it
}  // namespace

CrashStates::CrashStates(Ops const& ops, int64 front, unsigned sector, long every, Visit visit,
                         std::size_t from)
    : _ops(ops),
      _front(front),
      _sector(sector),
      _every(every),
      _visit(std::move(visit)),
      _from(from) {}

void CrashStates::Run(long states) {
  long places = 0;
  Walk([&] {
    Everything();
    Torn();
    Subsets();
    Garbage();
    places += _pieces.size() >= kMany;
  });
  long const missing = states - _count;
  if (missing <= 0 || places == 0) return;
  Walk([&] { Random(static_cast<int>(missing * _every / places + 1)); });
}

// Visits every point, with all files that may have names there.
template <class Visitor>
void CrashStates::Walk(Visitor visitor) {
  _files.assign(1, {});
  _named = {{}};
  _promised = -1;
  for (_at = 0; _at < _ops.size() && !_enough; ++_at) {
    Take(_ops[_at]);
    if (_at < _from) continue;
    for (std::set<int> const& named : _named) {
      Gather(named);
      visitor();
    }
  }
}

void CrashStates::Take(Op const& op) {
  auto const number = static_cast<std::size_t>(op.file), names = _named.size();
  if (_files.size() <= number) _files.resize(number + 1);
  File& file = _files[number];
  switch (op.kind) {
    case Op::kWrite:
      for (std::size_t from = 0, size; from < op.bytes.size(); from += size) {
        size = std::min<std::size_t>(
            op.bytes.size() - from,
            _sector - static_cast<std::size_t>(op.at + int64(from)) % _sector);
        file.pending.push_back({&op, from, size});
      }
      break;
    case Op::kCut: {
      auto const end = static_cast<std::size_t>(op.at);
      auto& pending = file.pending;
      pending.erase(std::remove_if(pending.begin(), pending.end(),
                                   [&op](Piece const& piece) { return piece.At() >= op.at; }),
                    pending.end());
      for (Piece& piece : pending)
        piece.size = std::min(piece.size, end - static_cast<std::size_t>(piece.At()));
      file.cut = std::min(file.cut, end);
      break;
    }
    case Op::kFlush:
      file.durable.resize(std::min(file.durable.size(), file.cut));
      file.cut = SIZE_MAX;
      [[fallthrough]];
    case Op::kData:
      for (Piece const& piece : file.pending) {
        auto const end = static_cast<std::size_t>(piece.At()) + piece.size;
        if (file.durable.size() < end) file.durable.resize(end);
        std::copy_n(piece.op->bytes.data() + piece.from, piece.size,
                    file.durable.begin() + piece.At());
      }
      file.pending.clear();
      if (op.kind == Op::kFlush) file.length = file.durable.size();
      break;
    case Op::kName:
      for (std::size_t i = 0; i < names; ++i) {
        _named.push_back(_named[i]);
        _named.back().erase(static_cast<int>(op.at));
        if (op.file != 0) _named.back().insert(op.file);
      }
      if (op.file != 0) file.length = 0;
      break;
    case Op::kFolder:
      _named = {_named.back()};
      break;
    case Op::kPromise:
      _promised = op.at;
      break;
  }
}

void CrashStates::Gather(std::set<int> const& named) {
  _file.bytes = _files[0].durable;
  _pieces = _files[0].pending;
  _others.clear();
  for (int number : named) {
    _others[number];
    auto const& pending = _files[static_cast<std::size_t>(number)].pending;
    _pieces.insert(_pieces.end(), pending.begin(), pending.end());
  }
}

void CrashStates::Everything() {
  _keep.assign(_pieces.size(), 1);
  Emit(kNew);
  if (_pieces.empty() && LengthsAreStored()) return;
  Emit(kOld);
  for (std::size_t i = 0; i < _pieces.size(); ++i) {  // one lost
    _keep[i] = 0;
    Emit(kNew);
    _keep[i] = 1;
  }
  _keep.assign(_pieces.size(), 0);
  Emit(kNew);
  Emit(kOld);
}

// The last write up to each of its sectors.
void CrashStates::Torn() {
  _keep.assign(_pieces.size(), 1);
  auto const last = [this](Piece const& piece) { return piece.op == &_ops[_at]; };
  for (std::size_t i = 0; i < _pieces.size(); ++i) _keep[i] = !last(_pieces[i]);
  for (std::size_t i = 0; i < _pieces.size(); ++i) {
    if (!last(_pieces[i])) continue;
    Emit(kNew);
    _keep[i] = 1;
  }
}

// Of the sectors of headers and index, with all others or with none.
void CrashStates::Subsets() {
  std::vector<std::size_t> front;
  for (std::size_t i = 0; i < _pieces.size(); ++i)
    if (Changes(_pieces[i]) && (_pieces[i].op->file != 0 || _pieces[i].At() < _front))
      front.push_back(i);
  if (front.empty()) return;
  bool const all = front.size() <= kExhaustive;
  for (unsigned set = 0; set < 1u << std::min(front.size(), kExhaustive); ++set)
    for (char others : {1, 0}) {
      _keep.assign(_pieces.size(), others);
      for (std::size_t i = 0; i < front.size(); ++i)
        _keep[front[i]] = all ? set >> i & 1 : _random() & 1;
      Emit(kNew);
    }
}

void CrashStates::Garbage() {
  for (auto const& piece : _pieces) {
    if (!Overwrites(piece)) continue;
    auto const with = [&](char others, Length length) {
      _keep.assign(_pieces.size(), others);
      Emit(length, &piece);
    };
    with(1, kNew);
    with(0, kNew);
    with(0, kOld);
  }
}

void CrashStates::Random(int rounds) {
  if (_pieces.size() < kMany) return;
  _keep.resize(_pieces.size());
  for (; rounds > 0; --rounds) {
    unsigned const eighths = 1 + _random() % 7;
    for (char& keep : _keep) keep = _random() % 8 < eighths;
    Emit(_random() % 4 == 0 ? kOld : kNew);
  }
}

void CrashStates::Emit(Length length, Piece const* garbage) {
  if (_enough || ++_made % _every != 0) return;
  Build(length);
  if (garbage != nullptr) Spoil(*garbage);
  // What a slot has lost, the other one has.
  bool const counted = garbage == nullptr || garbage->op->file != 0;
  _count += counted;
  _enough = !_visit({_file, _others, _promised, counted ? -1 : Sector(*garbage), _at});

  std::vector<unsigned char> const& durable = _files[0].durable;
  auto const kept =
      static_cast<std::ptrdiff_t>(std::min({_file.bytes.size(), durable.size(), _files[0].cut}));
  _file.bytes.resize(durable.size());
  std::copy(durable.begin() + kept, durable.end(), _file.bytes.begin() + kept);
  for (Piece const& piece : _pieces)
    if (piece.op->file == 0 && Overwrites(piece)) {
      auto const from = static_cast<std::size_t>(Sector(piece) * _sector);
      std::copy_n(&durable[from], std::min<std::size_t>(_sector, durable.size() - from),
                  &_file.bytes[from]);
    }
}

// What the files hold; the recording holds what is durable before.
void CrashStates::Build(Length length) {
  for (auto& [number, io] : _others) io.bytes = _files[static_cast<std::size_t>(number)].durable;
  if (length == kNew && _files[0].cut < _file.bytes.size()) _file.bytes.resize(_files[0].cut);
  for (std::size_t i = 0; i < _pieces.size(); ++i) {
    Piece const& piece = _pieces[i];
    auto& bytes = Bytes(piece.op->file);
    auto const at = static_cast<std::size_t>(piece.At());
    if (bytes.size() < at + piece.size) bytes.resize(at + piece.size);
    if (_keep[i]) std::copy_n(piece.op->bytes.data() + piece.from, piece.size, &bytes[at]);
  }
  if (length == kNew) return;
  _file.bytes.resize(_files[0].length);
  for (auto& [number, io] : _others)
    io.bytes.resize(_files[static_cast<std::size_t>(number)].length);
}

void CrashStates::Spoil(Piece const& piece) {
  auto& bytes = Bytes(piece.op->file);
  auto const from = static_cast<std::size_t>(Sector(piece) * _sector);
  for (std::size_t i = from; i < std::min(from + _sector, bytes.size()); ++i)
    bytes[i] = static_cast<unsigned char>(_random());
}

bool CrashStates::LengthsAreStored() const {
  auto const stored = [](File const& file) {
    return file.length == file.durable.size() && file.cut == SIZE_MAX;
  };
  return stored(_files[0]) && std::all_of(_others.begin(), _others.end(), [&](auto const& other) {
           return stored(_files[static_cast<std::size_t>(other.first)]);
         });
}

bool CrashStates::Overwrites(Piece const& piece) const {
  return Sector(piece) * _sector < static_cast<int64>(Of(piece).durable.size());
}

bool CrashStates::Changes(Piece const& piece) const {
  auto const& durable = Of(piece).durable;
  auto const at = static_cast<std::size_t>(piece.At());
  return at + piece.size > durable.size() ||
         std::memcmp(&durable[at], piece.op->bytes.data() + piece.from, piece.size) != 0;
}

std::string CrashStates::Describe() const {
  std::string text =
      "after operation " + std::to_string(_at) + " of " + std::to_string(_ops.size());
  std::string lost;
  for (std::size_t i = 0, named = 0; i < _pieces.size() && named < 12; ++i) {
    if (_keep[i]) continue;
    ++named;
    int const file = _pieces[i].op->file;
    lost += (file != 0 ? " " + std::to_string(file) + ":" : " ") + std::to_string(_pieces[i].At());
  }
  text += ", " + std::to_string(_file.bytes.size()) + " bytes";
  for (auto const& [number, io] : _others)
    text += ", file " + std::to_string(number) + " of " + std::to_string(io.bytes.size());
  return text + (lost.empty() ? ", all written" : ", lost sectors at" + lost);
}

}  // namespace kestro::crash
