# What `cmake --install` leaves: programs, libraries, headers, and two ways to find them, CMake's
# package and pkg-config. All paths in these are relative to the file that holds them, so that an
# installed tree can be moved.
include(CMakePackageConfigHelpers)

# The plug-ins are in no export: brokers load them, nobody links them.
install(TARGETS videoinput videostream LIBRARY)
install(TARGETS oxframework videoinput_module oxvideodeviceproxy EXPORT videoinput-targets
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(OX_BUILD_APPS)
  install(TARGETS oxbroker oxvideo RUNTIME)
endif()

file(GLOB framework_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/framework/*.h)
install(FILES ${framework_headers}
              ${PROJECT_BINARY_DIR}/framework/include/oxframework/version.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/oxframework)
foreach(folder liboxvalue/oxvalue vision/videoinput/include/oxvision
               vision/videostream/include/oxvision clients/cpp/include/oxclient)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${folder} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
          FILES_MATCHING PATTERN *.h)
endforeach()

# Before version 1, each minor version may change the interface.
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/videoinput)
install(EXPORT videoinput-targets NAMESPACE videoinput:: DESTINATION ${package_dir})
configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/videoinput-config.cmake.in videoinput-config.cmake
  INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(videoinput-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/videoinput-config.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/videoinput-config-version.cmake
        DESTINATION ${package_dir})

# ox_pkg_config(name DESCRIPTION text LIBS flag... REQUIRES package...)
file(RELATIVE_PATH prefix_from_lib ${CMAKE_INSTALL_FULL_LIBDIR} ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH include_from_lib ${CMAKE_INSTALL_FULL_LIBDIR} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
function(ox_pkg_config name)
  cmake_parse_arguments(ARG "" "DESCRIPTION" "LIBS;REQUIRES" ${ARGN})
  list(JOIN ARG_LIBS " " libs)
  list(JOIN ARG_REQUIRES " " requires)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/pkg-config.pc.in ${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc DESTINATION
          ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()

ox_pkg_config(videoinput-framework LIBS -loxframework -pthread
              DESCRIPTION "Values, images, modules, broker and wire of a camera service")
ox_pkg_config(videoinput-module REQUIRES videoinput-framework
              DESCRIPTION "Interface of the camera service for modules in the broker's process")
ox_pkg_config(videoinput-client LIBS -loxvideodeviceproxy REQUIRES videoinput-framework
              DESCRIPTION "Typed proxy of the camera service")
