// The preloading demuxer's place in the module: its class joins the registry here once it is built.
#include "PluginAvi.h"

void RegisterCusAviDemuxer(char const*) {}

RegisterFunction __cb_register_CusAviDemuxer = GetCbRegisterCusAviDemuxer(RegisterCusAviDemuxer);
