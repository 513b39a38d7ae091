// The module's entry points. It exports nothing else.
//
// Compatibility: hosts look all of these up by name.
#pragma once

// Registers a class under `name`, or under its default alias when that is null.
using RegisterFunction = void (*)(char const* name);

#define PLUGIN_AVI_EXPORT extern "C" __attribute__((visibility("default")))

PLUGIN_AVI_EXPORT char const* __MODULE_string;
PLUGIN_AVI_EXPORT void* __cb_register_PluginAvi;

// Registers every class of the module; the argument is ignored.
PLUGIN_AVI_EXPORT void RegisterPluginAvi(char const* name);

PLUGIN_AVI_EXPORT void RegisterAviStreamAac(char const* name);
PLUGIN_AVI_EXPORT void RegisterAviStreamH264(char const* name);
PLUGIN_AVI_EXPORT void RegisterAviStreamHevc(char const* name);
PLUGIN_AVI_EXPORT void RegisterAviStreamPcm(char const* name);
PLUGIN_AVI_EXPORT void RegisterAviStreamJpeg(char const* name);
PLUGIN_AVI_EXPORT void RegisterAviStreamTxt(char const* name);
PLUGIN_AVI_EXPORT void RegisterAviVideoTags(char const* name);
PLUGIN_AVI_EXPORT void RegisterAviMuxer(char const* name);
PLUGIN_AVI_EXPORT void RegisterAviDemuxer(char const* name);

// The optional classes store their registration functions in slots at load time; without these
// classes the slots stay empty. GetCb... stores a function, unless it is null, and returns the
// slot; RegisterOpt... calls the function in the slot, if there is one.
PLUGIN_AVI_EXPORT RegisterFunction GetCbRegisterPluginAvi(RegisterFunction fn);
PLUGIN_AVI_EXPORT RegisterFunction GetCbRegisterVFIAviMuxer(RegisterFunction fn);
PLUGIN_AVI_EXPORT RegisterFunction GetCbRegisterCusAviDemuxer(RegisterFunction fn);
PLUGIN_AVI_EXPORT void RegisterOptPluginAvi(char const* name);
PLUGIN_AVI_EXPORT void RegisterOptVFIAviMuxer(char const* name);
PLUGIN_AVI_EXPORT void RegisterOptCusAviDemuxer(char const* name);

// In builds with the optional classes: set at load time to the contents of their slots.
PLUGIN_AVI_EXPORT RegisterFunction __cb_register_VFIAviMuxer;
PLUGIN_AVI_EXPORT RegisterFunction __cb_register_CusAviDemuxer;
PLUGIN_AVI_EXPORT void RegisterVFIAviMuxer(char const* name);
PLUGIN_AVI_EXPORT void RegisterCusAviDemuxer(char const* name);
