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

add_compile_options(-Wall -Wextra -Woverloaded-virtual)
if(KESTRO_WERROR)
  add_compile_options(-Werror)
endif()
# Error lines print source paths: they start at the source root, on every machine.
add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
add_compile_definitions(_FILE_OFFSET_BITS=64)

if(KESTRO_SANITIZE)
  add_compile_options(-fsanitize=${KESTRO_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${KESTRO_SANITIZE})
else()
  add_link_options(-Wl,--no-undefined)
endif()

find_package(Threads REQUIRED)
