# Debian packages by `cpack -G DEB`: libkestroN, libkestro-dev, kestro-avi-core, kestro-avi and
# gstreamer1.0-kestro.
if(NOT PROJECT_IS_TOP_LEVEL)
  return()
endif()
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR Orvane)
set(CPACK_PACKAGE_CONTACT "Orvane <kestro@localhost>")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development)
if(TARGET kestro-avi)
  list(APPEND CPACK_COMPONENTS_ALL tool)
endif()
if(TARGET kestromedia)
  list(APPEND CPACK_COMPONENTS_ALL media)
endif()
if(TARGET gstkestro)
  list(APPEND CPACK_COMPONENTS_ALL gstreamer)
endif()
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_COMPONENT_GSTREAMER_DEPENDS runtime)
set(CPACK_COMPONENT_TOOL_DEPENDS runtime)
set(CPACK_COMPONENT_MEDIA_DEPENDS tool)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/host
  ${PROJECT_BINARY_DIR}/recorder)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libkestro${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS libssl3)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "AVI plug-in and the host layer it runs in
 Records H.264, HEVC and motion JPEG video, PCM audio and text into AVI files, and plays them.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkestro-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "development files of the host layer kestro
 Headers, and the files for find_package and pkg-config.")
set(CPACK_DEBIAN_TOOL_PACKAGE_NAME kestro-avi-core)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION video)
set(CPACK_DEBIAN_TOOL_PACKAGE_SUGGESTS kestro-avi)
# In earlier versions kestro-avi contained these files.
set(CPACK_DEBIAN_TOOL_PACKAGE_BREAKS "kestro-avi (<< ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOL_PACKAGE_REPLACES "kestro-avi (<< ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOL_DESCRIPTION "plays, describes, checks and repairs AVI files
 A command line for the AVI plug-in, with its manual page and completions. With the package kestro-avi it
 also records, and writes tracks to other containers.")
set(CPACK_DEBIAN_MEDIA_PACKAGE_NAME kestro-avi)
set(CPACK_DEBIAN_MEDIA_PACKAGE_SECTION video)
if(LIBAVDEVICE_FOUND)  # loaded by its name when needed
  string(REGEX MATCH "^[0-9]+" devices ${LIBAVDEVICE_VERSION})
  set(CPACK_DEBIAN_MEDIA_PACKAGE_RECOMMENDS libavdevice${devices})
endif()
set(CPACK_DEBIAN_MEDIA_DESCRIPTION "records AVI files from files, streams and cameras
 The module with which the command kestro-avi records everything that libavformat reads, writes tracks to
 other containers and decodes video to check it.")
set(CPACK_DEBIAN_GSTREAMER_PACKAGE_NAME gstreamer1.0-kestro)
set(CPACK_DEBIAN_GSTREAMER_PACKAGE_SECTION video)
set(CPACK_DEBIAN_GSTREAMER_DESCRIPTION "records AVI files in GStreamer pipelines
 The element kestroavisink. Its files can be played after a power cut.")
include(CPack)
