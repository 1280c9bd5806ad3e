# What `cmake --install` puts under the prefix, and nothing else of the build: the shared library
# (versioned file, soname link, development link), the public headers, a CMake package with the
# target mediasession::mediasession, a pkg-config file, and the `mediasession` program.
# Components: "runtime" (library and program) and "development" (the rest).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(MS_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/mediasession)

install(TARGETS mediasession EXPORT mediasessionTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY mediasession/include/mediasession DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT development FILES_MATCHING PATTERN "*.h")
install(EXPORT mediasessionTargets NAMESPACE mediasession:: DESTINATION ${MS_PACKAGE_DIR}
  COMPONENT development)
configure_package_config_file(cmake/mediasessionConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/mediasessionConfig.cmake INSTALL_DESTINATION ${MS_PACKAGE_DIR})
# One soname per major version, so a program built against 0.x asks for no newer major.
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/mediasessionConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/mediasessionConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/mediasessionConfigVersion.cmake
  DESTINATION ${MS_PACKAGE_DIR} COMPONENT development)

# The .pc file finds the prefix from where it lies, so `cmake --install --prefix ELSEWHERE` (staging,
# packaging) gives one that points there and not at the configured prefix.
foreach(dir LIBDIR INCLUDEDIR BINDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${dir}}")
    message(FATAL_ERROR "CMAKE_INSTALL_${dir} must be relative to the prefix, not ${CMAKE_INSTALL_${dir}}")
  endif()
endforeach()
file(RELATIVE_PATH PC_PREFIX_FROM_PCDIR /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" PC_PREFIX_FROM_PCDIR "${PC_PREFIX_FROM_PCDIR}")
configure_file(cmake/mediasession.pc.in ${CMAKE_CURRENT_BINARY_DIR}/mediasession.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/mediasession.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)

# The program finds the library beside it, wherever the prefix ends up.
file(RELATIVE_PATH MS_BIN_TO_LIB /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${CMAKE_INSTALL_LIBDIR})
set_target_properties(mediasession_tool PROPERTIES INSTALL_RPATH "$ORIGIN/${MS_BIN_TO_LIB}")
install(TARGETS mediasession_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
