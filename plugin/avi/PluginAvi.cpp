#include "PluginAvi.h"

#include "base/Module.h"

namespace {

RegisterFunction pluginAvi = nullptr;
RegisterFunction vfiAviMuxer = nullptr;
RegisterFunction cusAviDemuxer = nullptr;

RegisterFunction Slot(RegisterFunction& slot, RegisterFunction fn) {
  if (fn != nullptr) slot = fn;
  return slot;
}

void Call(RegisterFunction fn, char const* name) {
  if (fn != nullptr) fn(name);
}

}  // namespace

char const* __MODULE_string = "pluginavi@version:1.0.1.*.6872";
void* __cb_register_PluginAvi = kestro::base::ReflectAdd(RegisterPluginAvi, 0, "PluginAvi");

void RegisterPluginAvi(char const*) {
  for (RegisterFunction fn :
       {RegisterAviStreamAac, RegisterAviStreamH264, RegisterAviStreamHevc, RegisterAviStreamPcm,
        RegisterAviStreamJpeg, RegisterAviStreamTxt, RegisterAviVideoTags, RegisterAviMuxer,
        RegisterAviDemuxer, RegisterOptVFIAviMuxer, RegisterOptCusAviDemuxer})
    fn(nullptr);
}

RegisterFunction GetCbRegisterPluginAvi(RegisterFunction fn) { return Slot(pluginAvi, fn); }
RegisterFunction GetCbRegisterVFIAviMuxer(RegisterFunction fn) { return Slot(vfiAviMuxer, fn); }
RegisterFunction GetCbRegisterCusAviDemuxer(RegisterFunction fn) { return Slot(cusAviDemuxer, fn); }

void RegisterOptPluginAvi(char const* name) { Call(GetCbRegisterPluginAvi(nullptr), name); }
void RegisterOptVFIAviMuxer(char const* name) { Call(GetCbRegisterVFIAviMuxer(nullptr), name); }
void RegisterOptCusAviDemuxer(char const* name) { Call(GetCbRegisterCusAviDemuxer(nullptr), name); }
