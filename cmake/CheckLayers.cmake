# Each layer's folder and the include prefixes that it must not name.
set(host/base "stream/|common/|customize/|Avi|VideoTag|PluginAvi|avi/|recorder/")
set(host/stream "common/|customize/|Avi|VideoTag|PluginAvi|avi/|recorder/")
set(plugin/avi/common "avi/|recorder/|customize/|AviMuxer.h|AviDemux.h|PluginAvi")
set(plugin/avi/customize "avi/|recorder/")
set(plugins "common/|customize/|AviMuxer.h|AviDemux.h|VideoTag.h|PluginAvi")
set(avi "recorder/|stream/|${plugins}")
set(recorder "${plugins}")
# Of the recorder, what is installed.
set(tools/kestro-avi "${plugins}|recorder/(FileWriter|FinishedFile|Head|Packets|Segment|Side|Sync|Tags|Work)")

# Of the tool, its module alone knows libav, and the rest knows the module's interface.
set(media "^#include (<lib(av|sw)|\"lib(av|sw)|\"media/)")

foreach(layer host/base host/stream plugin/avi/common plugin/avi/customize avi recorder tools/kestro-avi)
  file(GLOB_RECURSE sources ${ROOT}/${layer}/*.h ${ROOT}/${layer}/*.cpp)
  foreach(source ${sources})
    file(STRINGS ${source} found REGEX "^#include \"(${${layer}})")
    if(found)
      message(FATAL_ERROR "${source}: includes from a higher layer: ${found}")
    endif()
    file(STRINGS ${source} found REGEX ${media})
    list(FILTER found EXCLUDE REGEX "\"media/Media.h\"")
    if(found AND NOT source MATCHES "/tools/kestro-avi/media/")
      message(FATAL_ERROR "${source}: includes what the tool's module has to itself: ${found}")
    endif()
  endforeach()
endforeach()
