// In builds without the tool: sizes that suit the power cuts which leave no garbage.
#include "base/IClass.h"
#include "crash/Tool.h"

namespace kestro::crash {

namespace {
unsigned char junk[28];  // so that the index entries begin at a multiple of 16, in place
}

Setup Configure(base::Object& muxer, Scenario const& scenario) {
  Mode const mode = scenario.mode;
  std::shared_ptr<base::Object> const tags = base::Make<base::Object>("AviVideoTags");
  using Size = unsigned long long;
  Size const header = mode == Mode::kImage ? 1012 : 4096, entries = Size{16} * scenario.room;
  tags->Set("junkbuf", static_cast<unsigned char*>(junk));
  tags->Set("junksize", mode == Mode::kInPlace ? unsigned(sizeof junk) : 0u);
  tags->Set("isftbuf", static_cast<unsigned char*>(junk));
  tags->Set("isftsize", 4u);
  tags->Set("idx1_first", static_cast<unsigned char>(mode == Mode::kImage));
  muxer.Set("vidtag", tags.get());
  muxer.Set("reservedSize", mode == Mode::kInPlace ? entries
                            : mode == Mode::kImage ? header + 8 + entries
                                                   : header);
  muxer.Set("flushtime", Interval_ms(mode));
  muxer.Set("periodicSyncEn", mode != Mode::kInPlace);
  muxer.Set("periodicSyncHeaderSize", header);
  muxer.Set("periodicSyncIdx1Size", 8 + entries);
  return tags;
}

bool HasRepair() { return false; }

long Repair(std::string const&, std::vector<unsigned char> const&, Others const&,
            std::vector<unsigned char>&) {
  return -1;
}

}  // namespace kestro::crash
