# What `make install` and `make package` put in place: the three libraries,
# their headers, a CMake package (framehub::framehub), framehub.pc and the
# tools. Every path is relative to the prefix, so `cmake --install --prefix`
# and DESTDIR can move the tree anywhere after configuring.
include(CMakePackageConfigHelpers)

set(FRAMEHUB_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/framehub)

# Siblings are found beside each other wherever the prefix lands.
set_target_properties(framehub lumo kelmoerror PROPERTIES INSTALL_RPATH "$ORIGIN")
file(RELATIVE_PATH FRAMEHUB_BIN_TO_LIB
  ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR} ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR})

install(TARGETS framehub lumo kelmoerror EXPORT framehubTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/framehub platform/lumo/include/lumo platform/kelmoerror/include/kelmoerror
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

if(TARGET framehub-demo)
  set_target_properties(framehub-demo PROPERTIES INSTALL_RPATH "$ORIGIN/${FRAMEHUB_BIN_TO_LIB}")
  install(TARGETS framehub-demo RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

install(EXPORT framehubTargets NAMESPACE framehub:: DESTINATION ${FRAMEHUB_CMAKE_DIR})
configure_package_config_file(cmake/framehubConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/framehubConfig.cmake
  INSTALL_DESTINATION ${FRAMEHUB_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/framehubConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/framehubConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/framehubConfigVersion.cmake
    cmake/FramehubOpenCV.cmake
    cmake/FindFramehubOpenCV.cmake
  DESTINATION ${FRAMEHUB_CMAKE_DIR})

# pkg-config: the prefix is found from the file's own place.
file(RELATIVE_PATH FRAMEHUB_PC_TO_PREFIX
  ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" FRAMEHUB_PC_TO_PREFIX "${FRAMEHUB_PC_TO_PREFIX}")
if(FRAMEHUB_OPENCV_INCLUDE_DIR)
  set(FRAMEHUB_PC_OPENCV_CFLAGS "-I${FRAMEHUB_OPENCV_INCLUDE_DIR}")
else()
  get_target_property(opencvIncludes opencv_core INTERFACE_INCLUDE_DIRECTORIES)
  list(GET opencvIncludes 0 opencvInclude)
  set(FRAMEHUB_PC_OPENCV_CFLAGS "-I${opencvInclude}")
endif()
configure_file(cmake/framehub.pc.in ${CMAKE_CURRENT_BINARY_DIR}/framehub.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/framehub.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# `make package`: one Debian package with everything above.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME libframehub)
set(CPACK_PACKAGE_VENDOR "libframehub")
set(CPACK_PACKAGE_CONTACT "libframehub maintainers <maintainers@libframehub.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Shares cameras between the vision modules of one process")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# dpkg-shlibdeps finds our own libraries among the package's files.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR} ${CMAKE_BINARY_DIR}/platform)
# The headers and the CMake package need the development files of the
# dependencies; the shared objects' needs come from dpkg-shlibdeps.
set(FRAMEHUB_DEB_DEPENDS
  "libboost-thread-dev (>= 1.74)" "libboost-system-dev (>= 1.74)" libopencv-core-dev libopencv-imgproc-dev)
if(FRAMEHUB_DEB_PYTHON_DEPENDS)
  list(APPEND FRAMEHUB_DEB_DEPENDS ${FRAMEHUB_DEB_PYTHON_DEPENDS})
endif()
string(REPLACE ";" ", " CPACK_DEBIAN_PACKAGE_DEPENDS "${FRAMEHUB_DEB_DEPENDS}")
include(CPack)
