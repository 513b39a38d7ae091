# GoogleTest, for tests/ and for the other programs that use the headers in tests/support.
if(CMAKE_CROSSCOMPILING)
  # Debian has no cross-compiled library, but it has the source.
  add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
else()
  find_package(GTest REQUIRED)
endif()
include(GoogleTest)
