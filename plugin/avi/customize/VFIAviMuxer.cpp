// The periodic-sync muxer's place in the module: its class joins the registry here once it is
// built.
#include "PluginAvi.h"

void RegisterVFIAviMuxer(char const*) {}

RegisterFunction __cb_register_VFIAviMuxer = GetCbRegisterVFIAviMuxer(RegisterVFIAviMuxer);
