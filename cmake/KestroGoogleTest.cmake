# GoogleTest, for tests/ and for the programs beside them that use its support headers.
if(CMAKE_CROSSCOMPILING)
  # Debian has the library for its own machines only, and its source for all.
  add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
else()
  find_package(GTest REQUIRED)
endif()
include(GoogleTest)
