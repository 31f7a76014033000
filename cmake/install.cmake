# The windres front end beside tarn, and what `cmake --install` puts in
# place: the programs, the library with its soname, the header, a CMake
# package (tarn::tarn), a pkg-config file and the manual page. Included at
# the end of the top-level list, after the targets it refers to.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# tarn-windres is tarn under another name (the program looks at its name):
# a symlink where there are symlinks, a copy elsewhere. Made in the build
# tree too, so that tests and build tools can run it from there.
if(WIN32)
  set(windres_name tarn-windres${CMAKE_EXECUTABLE_SUFFIX})
  add_custom_command(TARGET tarn POST_BUILD
    COMMAND ${CMAKE_COMMAND} -E copy_if_different $<TARGET_FILE:tarn>
            $<TARGET_FILE_DIR:tarn>/${windres_name}
    VERBATIM)
else()
  set(windres_name tarn-windres)
  add_custom_command(TARGET tarn POST_BUILD
    COMMAND ${CMAKE_COMMAND} -E create_symlink $<TARGET_FILE_NAME:tarn>
            $<TARGET_FILE_DIR:tarn>/${windres_name}
    VERBATIM)
  set_target_properties(tarn64 PROPERTIES VERSION ${PROJECT_VERSION}
                                          SOVERSION ${PROJECT_VERSION_MAJOR})
  # The installed driver finds the library in ../lib wherever the tree is.
  file(RELATIVE_PATH lib_from_bin /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
  set_target_properties(tarn PROPERTIES INSTALL_RPATH "$ORIGIN/${lib_from_bin}")
endif()

set_target_properties(tarn64 PROPERTIES EXPORT_NAME tarn)
target_include_directories(tarn64 INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

install(TARGETS tarn RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(PROGRAMS $<TARGET_FILE_DIR:tarn>/${windres_name} DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS tarn64 EXPORT tarnTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_COMPONENT Development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/tarn/tarn.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tarn)

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tarn)
install(EXPORT tarnTargets NAMESPACE tarn:: DESTINATION ${config_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/tarnConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/tarnConfig.cmake INSTALL_DESTINATION ${config_dir})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/tarnConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tarnConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/tarnConfigVersion.cmake
  DESTINATION ${config_dir})

# The prefix is found from the file's own place, so that the tree can be
# installed with --prefix or DESTDIR and moved.
file(RELATIVE_PATH pc_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/tarn.pc.in ${CMAKE_CURRENT_BINARY_DIR}/tarn.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tarn.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(FILES ${PROJECT_SOURCE_DIR}/doc/tarn.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
if(NOT WIN32)
  install(CODE "execute_process(COMMAND \${CMAKE_COMMAND} -E create_symlink tarn.1
    \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_MANDIR}/man1/tarn-windres.1\")")
endif()
