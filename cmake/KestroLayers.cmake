# The floors of the house, lowest first: the build fails when one includes a higher one.
add_custom_target(layers ALL
  COMMAND ${CMAKE_COMMAND} -DROOT=${PROJECT_SOURCE_DIR}
          -P ${CMAKE_CURRENT_LIST_DIR}/CheckLayers.cmake
  COMMENT "Checking that no layer includes a higher one" VERBATIM)
