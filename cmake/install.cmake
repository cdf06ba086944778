# Install rules. Three components:
#   library  libdofra_depth.so, its header, the pkg-config and CMake package files
#   tool     the dofra command-line tool (a Linux host program)
#   host     Linux-host stand-ins for the platform's liblog and libui, in folders of
#            their own (lib/dofra_depth/host, include/dofra_depth/host) so that they never
#            shadow the real ones; a device install takes `--component library` only.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(DOFRA_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/dofra_depth)
set(DOFRA_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(DOFRA_HOST_LIBDIR ${CMAKE_INSTALL_LIBDIR}/dofra_depth/host)
set(DOFRA_HOST_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/dofra_depth/host)

install(TARGETS dofra_depth EXPORT dofra_depth-targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES include/dofra_depth.h include/dofra_quality.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT library)
install(EXPORT dofra_depth-targets NAMESPACE dofra_depth:: DESTINATION ${DOFRA_CMAKE_DIR}
        COMPONENT library)

set_target_properties(log PROPERTIES EXPORT_NAME host_log)
set_target_properties(ui PROPERTIES EXPORT_NAME host_ui)
install(TARGETS log ui EXPORT dofra_depth-host-targets
        LIBRARY DESTINATION ${DOFRA_HOST_LIBDIR} COMPONENT host
        INCLUDES DESTINATION ${DOFRA_HOST_INCLUDEDIR})
install(DIRECTORY platform/host/include/ DESTINATION ${DOFRA_HOST_INCLUDEDIR} COMPONENT host)
install(EXPORT dofra_depth-host-targets NAMESPACE dofra_depth:: DESTINATION ${DOFRA_CMAKE_DIR}
        COMPONENT host)

if(TARGET dofra)
  # The tool finds the library and the stand-ins beside it in the prefix.
  set_target_properties(dofra PROPERTIES INSTALL_RPATH
                        "$ORIGIN/../${CMAKE_INSTALL_LIBDIR};$ORIGIN/../${DOFRA_HOST_LIBDIR}")
  install(TARGETS dofra RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
endif()

configure_package_config_file(cmake/dofra_depth-config.cmake.in
                              ${CMAKE_CURRENT_BINARY_DIR}/dofra_depth-config.cmake
                              INSTALL_DESTINATION ${DOFRA_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/dofra_depth-config-version.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/dofra_depth-config.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/dofra_depth-config-version.cmake
        DESTINATION ${DOFRA_CMAKE_DIR} COMPONENT library)

# The .pc files locate the prefix from their own folder, so that
# `cmake --install --prefix` may put the tree anywhere.
file(RELATIVE_PATH DOFRA_PC_TO_PREFIX /prefix/${DOFRA_PKGCONFIG_DIR} /prefix)
string(REGEX REPLACE "/$" "" DOFRA_PC_TO_PREFIX "${DOFRA_PC_TO_PREFIX}")
foreach(pc dofra_depth dofra_depth-host)
  configure_file(cmake/${pc}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/${pc}.pc @ONLY)
endforeach()
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/dofra_depth.pc DESTINATION ${DOFRA_PKGCONFIG_DIR}
        COMPONENT library)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/dofra_depth-host.pc DESTINATION ${DOFRA_PKGCONFIG_DIR}
        COMPONENT host)
