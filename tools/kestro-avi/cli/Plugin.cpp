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
  base::AttrSet attrs;
  attrs.Add("Register", alias);
  std::unique_ptr<stream::IDemuxer> demuxer(base::IClass::New<stream::IDemuxer>(attrs));
  if (demuxer == nullptr || !demuxer->Configure(attrs))
    throw Error(kIo, std::string("the plug-in has no ") + alias);
  return demuxer;
}

}  // namespace kestro::tool
