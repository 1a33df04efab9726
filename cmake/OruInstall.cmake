# What `cmake --install` puts down, and the Debian package built from it: the library,
# the headers under include/orucore/, the CMake package (orucore::orucore) and orucore.pc.
include(CMakePackageConfigHelpers)

set(ORU_SUMMARY "Finding, locating and following objects in camera images on the device's own processor")
set(ORU_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/orucore)

install(TARGETS orucore EXPORT orucoreTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
file(GLOB ORU_PUBLIC_HEADERS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/*.h)
install(FILES ${ORU_PUBLIC_HEADERS} ${PROJECT_BINARY_DIR}/include/orucore_version.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/orucore)

install(EXPORT orucoreTargets NAMESPACE orucore:: DESTINATION ${ORU_CMAKE_DIR})
configure_package_config_file(cmake/orucoreConfig.cmake.in ${PROJECT_BINARY_DIR}/orucoreConfig.cmake
  INSTALL_DESTINATION ${ORU_CMAKE_DIR})
# The soname changes with the major version, and so may the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/orucoreConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/orucoreConfig.cmake ${PROJECT_BINARY_DIR}/orucoreConfigVersion.cmake
  DESTINATION ${ORU_CMAKE_DIR})

# orucore.pc names the prefix the files were installed under, which is only known at
# install time (`cmake --install --prefix`, or /usr inside the Debian package): the
# template is filled in twice, everything but the prefix now, the prefix at install.
if(ORU_BUILD_SHARED)
  set(ORU_PC_LIBS "")
  set(ORU_PC_LIBS_PRIVATE "-lstdc++ -lm")
else()
  set(ORU_PC_LIBS "-lstdc++ -lm")
  set(ORU_PC_LIBS_PRIVATE "")
endif()
set(ORU_PC_PREFIX "@ORU_PC_PREFIX@")
configure_file(cmake/orucore.pc.in ${PROJECT_BINARY_DIR}/pkgconfig/orucore.pc.in @ONLY)
install(CODE "
  set(ORU_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
  configure_file(\"${PROJECT_BINARY_DIR}/pkgconfig/orucore.pc.in\" \"${PROJECT_BINARY_DIR}/pkgconfig/orucore.pc\" @ONLY)
  file(INSTALL \"${PROJECT_BINARY_DIR}/pkgconfig/orucore.pc\"
    DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig\")
")

# `cpack -G DEB` in a build folder: one package with the library, headers, CMake and
# pkg-config files, for the architecture the build targets (arm64 from the cross build).
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME liborucore)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${ORU_SUMMARY})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "liborucore developers <liborucore@localhost>")
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6, libgcc-s1, libstdc++6")
if(ORU_BUILD_SHARED)
  # The shlibs file and the ldconfig trigger for the shared library.
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
endif()
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64)$")
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE amd64)
endif()
set(CPACK_OUTPUT_FILE_PREFIX ${PROJECT_BINARY_DIR}/packages)
include(CPack)
