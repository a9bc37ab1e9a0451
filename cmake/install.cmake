# What an installation holds: both libraries and their headers, the programs, and the files by which
# find_package(pennywort) and pkg-config find them. Nothing in it names the prefix, so it can be moved.
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/pennywort)
set(header_dir ${CMAKE_INSTALL_INCLUDEDIR}/pennywort)

install(TARGETS loam pennywort EXPORT pennywort-targets)
foreach(program IN ITEMS CEFChildProcess pennywort_host)
  # The runtime's helper is looked for beside the host program, so both go into one folder.
  if(TARGET ${program})
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()

install(DIRECTORY include/ loam/include/ DESTINATION ${header_dir} FILES_MATCHING PATTERN "*.h")
# Names of another system that signatures need lie in a folder that only this system searches.
set(system_headers loam/include_linux)
if(WIN32)
  set(system_headers loam/include_win)
endif()
if(IS_DIRECTORY ${PROJECT_SOURCE_DIR}/${system_headers})
  install(DIRECTORY ${system_headers}/ DESTINATION ${header_dir} FILES_MATCHING PATTERN "*.h")
endif()

install(EXPORT pennywort-targets NAMESPACE pennywort:: DESTINATION ${package_dir})
configure_package_config_file(cmake/pennywort-config.cmake.in pennywort-config.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(pennywort-config-version.cmake COMPATIBILITY SameMajorVersion)

# The library folder may be lib or lib/x86_64-linux-gnu: the way up to the prefix follows it.
file(RELATIVE_PATH prefix_from_pc
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" prefix_from_pc ${prefix_from_pc})
configure_file(cmake/pennywort.pc.in pennywort.pc @ONLY)

install(FILES ${PROJECT_BINARY_DIR}/pennywort-config.cmake
  ${PROJECT_BINARY_DIR}/pennywort-config-version.cmake DESTINATION ${package_dir})
install(FILES ${PROJECT_BINARY_DIR}/pennywort.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
