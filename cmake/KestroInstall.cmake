# What `cmake --install` installs, in these components: runtime (host, recorder and plug-in), development,
# tool, media (the tool's module), gstreamer.
include(CMakePackageConfigHelpers)
set(plugin_dir ${CMAKE_INSTALL_LIBDIR}/kestro)
set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kestro)
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(include_dir ${CMAKE_INSTALL_INCLUDEDIR}/kestro)
set(bash_dir ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
set(zsh_dir ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
if(CMAKE_INSTALL_PREFIX STREQUAL /usr AND EXISTS /etc/debian_version)
  set(zsh_dir ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)  # where Debian's zsh looks
endif()
set(fish_dir ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
set(gstreamer_dir ${CMAKE_INSTALL_LIBDIR}/gstreamer-1.0)
set(man_dir ${CMAKE_INSTALL_MANDIR}/man1)
set(examples_dir ${CMAKE_INSTALL_DATADIR}/doc/kestro-avi/examples)

# First record which of these folders the install creates, for the uninstall.
set(folders ${CMAKE_INSTALL_BINDIR} ${plugin_dir} ${config_dir} ${pkgconfig_dir} ${include_dir}/base
  ${include_dir}/stream ${include_dir}/recorder ${bash_dir} ${zsh_dir} ${fish_dir} ${man_dir} ${examples_dir}
  ${gstreamer_dir})
install(CODE "set(folders \"${folders}\")\nset(made \"${PROJECT_BINARY_DIR}/install_folders.txt\")"
  ALL_COMPONENTS)
install(SCRIPT ${CMAKE_CURRENT_LIST_DIR}/InstallFolders.cmake ALL_COMPONENTS)

# Libraries find each other even if the prefix is moved.
function(kestro_rpath target from)
  set(lib ${CMAKE_INSTALL_FULL_LIBDIR})
  cmake_path(RELATIVE_PATH lib BASE_DIRECTORY ${from})
  set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${lib}")
endfunction()

install(TARGETS kestro kestrorec EXPORT kestro
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
set_target_properties(kestrorec PROPERTIES INSTALL_RPATH "$ORIGIN")
kestro_rpath(pluginavi ${CMAKE_INSTALL_FULL_LIBDIR}/kestro)
install(TARGETS pluginavi EXPORT kestro LIBRARY DESTINATION ${plugin_dir} COMPONENT runtime)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/host/ DESTINATION ${include_dir} COMPONENT development
  FILES_MATCHING PATTERN *.h)
set(recorder ${PROJECT_SOURCE_DIR}/recorder)
install(FILES ${recorder}/Recorder.h ${recorder}/RecorderOptions.h ${recorder}/TrackInfo.h
  ${recorder}/Storage.h ${recorder}/Plugin.h ${recorder}/kestro_recorder.h
  DESTINATION ${include_dir}/recorder COMPONENT development)

install(EXPORT kestro NAMESPACE kestro:: FILE kestro-targets.cmake DESTINATION ${config_dir}
  COMPONENT development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/kestro-config.cmake.in kestro-config.cmake
  INSTALL_DESTINATION ${config_dir} PATH_VARS plugin_dir)
write_basic_package_version_file(kestro-config-version.cmake COMPATIBILITY SameMajorVersion)
set(include ${CMAKE_INSTALL_FULL_INCLUDEDIR}/kestro)
cmake_path(RELATIVE_PATH include BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR})
foreach(name kestro kestro-recorder)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${name}.pc.in ${name}.pc @ONLY)
endforeach()
set(here ${CMAKE_CURRENT_BINARY_DIR})
install(FILES ${here}/kestro-config.cmake ${here}/kestro-config-version.cmake
  DESTINATION ${config_dir} COMPONENT development)
install(FILES ${here}/kestro.pc ${here}/kestro-recorder.pc DESTINATION ${pkgconfig_dir} COMPONENT development)

if(TARGET kestro-avi)
  kestro_rpath(kestro-avi ${CMAKE_INSTALL_FULL_BINDIR})
  install(TARGETS kestro-avi RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
  install(FILES ${PROJECT_SOURCE_DIR}/examples/kestro-camera@.service
    DESTINATION ${examples_dir} COMPONENT tool)
endif()
if(TARGET kestromedia)
  kestro_rpath(kestromedia ${CMAKE_INSTALL_FULL_LIBDIR}/kestro)
  install(TARGETS kestromedia LIBRARY DESTINATION ${plugin_dir} COMPONENT media)
endif()
if(TARGET kestro-avi-pages)
  set(pages ${PROJECT_BINARY_DIR}/tools/kestro-avi/pages)
  install(FILES ${pages}/kestro-avi.1 DESTINATION ${man_dir} COMPONENT tool)
  install(FILES ${pages}/kestro-avi.bash DESTINATION ${bash_dir} COMPONENT tool RENAME kestro-avi)
  install(FILES ${pages}/_kestro-avi DESTINATION ${zsh_dir} COMPONENT tool)
  install(FILES ${pages}/kestro-avi.fish DESTINATION ${fish_dir} COMPONENT tool)
endif()

if(TARGET gstkestro)
  kestro_rpath(gstkestro ${CMAKE_INSTALL_FULL_LIBDIR}/gstreamer-1.0)
  install(TARGETS gstkestro LIBRARY DESTINATION ${gstreamer_dir} COMPONENT gstreamer)
endif()

if(PROJECT_IS_TOP_LEVEL)
  add_custom_target(uninstall
    COMMAND ${CMAKE_COMMAND} -DBUILD=${PROJECT_BINARY_DIR}
            -P ${CMAKE_CURRENT_LIST_DIR}/Uninstall.cmake VERBATIM)
endif()
