# `cmake --install`: the library with its headers, the program, a CMake
# package (find_package(shadenet), target shadenet::shadenet) and a
# pkg-config file. Headers keep their folders under include/shadenet, so
# that they include each other as they do in the tree.
include(CMakePackageConfigHelpers)

set(SHADENET_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/shadenet)

install(TARGETS shadenet EXPORT shadenetTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY ${CMAKE_SOURCE_DIR}/src/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/shadenet
  FILES_MATCHING PATTERN "*.h")
install(TARGETS shadenet_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

install(EXPORT shadenetTargets NAMESPACE shadenet:: DESTINATION ${SHADENET_CMAKE_DIR})
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/shadenetConfig.cmake.in
  ${CMAKE_BINARY_DIR}/shadenetConfig.cmake INSTALL_DESTINATION ${SHADENET_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/shadenetConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/shadenetConfig.cmake ${CMAKE_BINARY_DIR}/shadenetConfigVersion.cmake
  DESTINATION ${SHADENET_CMAKE_DIR})

file(RELATIVE_PATH SHADENET_PC_TO_INCLUDE /${CMAKE_INSTALL_LIBDIR}/pkgconfig /${CMAKE_INSTALL_INCLUDEDIR})
configure_file(${CMAKE_SOURCE_DIR}/cmake/shadenet.pc.in ${CMAKE_BINARY_DIR}/shadenet.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/shadenet.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
