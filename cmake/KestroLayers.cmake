# The build fails if a folder includes a header that it may not use.
add_custom_target(layers ALL
  COMMAND ${CMAKE_COMMAND} -DROOT=${PROJECT_SOURCE_DIR}
          -P ${CMAKE_CURRENT_LIST_DIR}/CheckLayers.cmake
  COMMENT "Checking the includes of each layer" VERBATIM)
