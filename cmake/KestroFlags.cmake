# Compiler settings of every target in the tree.
if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "" FORCE)
endif()
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
include(GNUInstallDirs)

# Every target of the tree links this one.
add_library(kestro_flags INTERFACE)
target_compile_options(kestro_flags INTERFACE
  -Wall -Wextra $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>
  $<$<BOOL:${KESTRO_WERROR}>:-Werror>
  # Error lines print source paths: they start at the source root, on every machine.
  -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
target_compile_definitions(kestro_flags INTERFACE _FILE_OFFSET_BITS=64)
if(KESTRO_SANITIZE)
  set(sanitize -fsanitize=${KESTRO_SANITIZE})
  target_compile_options(kestro_flags INTERFACE
    ${sanitize} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(kestro_flags INTERFACE ${sanitize})
else()
  target_link_options(kestro_flags INTERFACE -Wl,--no-undefined)
endif()
if(KESTRO_FUZZ)
  # Counters only: tracing comparisons as well costs a third of the speed. The seeds also run with
  # the preset asan, which checks the types of objects.
  target_compile_options(kestro_flags INTERFACE
    -fsanitize-coverage=inline-8bit-counters,pc-table -fno-sanitize=vptr)
endif()
link_libraries($<BUILD_INTERFACE:kestro_flags>)

find_package(Threads REQUIRED)
