#include "cli/Plugin.h"

#include "base/IClass.h"
#include "cli/Errors.h"
#include "recorder/Plugin.h"

namespace kestro::tool {

void LoadAviPlugin(std::string const& path) {
  if (record::Result const loaded = record::LoadAviPlugin(path); !loaded)
    throw Error(kIo, loaded.text);
}

std::unique_ptr<stream::IDemuxer> NewDemuxer(char const* alias) {
  auto demuxer = base::Make<stream::IDemuxer>(alias);
  if (demuxer == nullptr) throw Error(kIo, std::string("the plug-in has no ") + alias);
  return demuxer;
}

}  // namespace kestro::tool
