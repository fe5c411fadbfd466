# What `cmake --install` puts in place: both libraries with their headers,
# CMake package files (find_package(QdxSdk), find_package(Kestrel)) and
# pkg-config files, the two programs, the plug-in module, shell completion.
include(CMakePackageConfigHelpers)

set(QDX_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake)

install(TARGETS qdxsdk EXPORT QdxSdkTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/Platform/QdxSdk/include/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT QdxSdkTargets NAMESPACE QdxSdk:: DESTINATION ${QDX_CMAKE_DIR}/QdxSdk)

install(TARGETS kestrelcore EXPORT KestrelTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/Platform/Kestrel/include/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS kestrel_imageio LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/kestrel)
install(EXPORT KestrelTargets NAMESPACE Kestrel:: DESTINATION ${QDX_CMAKE_DIR}/Kestrel)

install(TARGETS kestrel_app qdx RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS ksQdxFileIO LIBRARY DESTINATION ${KESTREL_INSTALL_PLUGIN_DIR})
install(TARGETS ksGltfFileIO LIBRARY DESTINATION ${KESTREL_INSTALL_PLUGIN_DIR})

foreach(package QdxSdk Kestrel)
  configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/install/${package}Config.cmake.in
    ${PROJECT_BINARY_DIR}/install/${package}Config.cmake
    INSTALL_DESTINATION ${QDX_CMAKE_DIR}/${package})
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/install/${package}ConfigVersion.cmake
    VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/install/${package}Config.cmake
    ${PROJECT_BINARY_DIR}/install/${package}ConfigVersion.cmake
    DESTINATION ${QDX_CMAKE_DIR}/${package})
endforeach()

# pkg-config files name the install prefix relative to their own folder so
# that an installed tree can be moved.
file(RELATIVE_PATH QDX_PC_PREFIX_REL /root/${CMAKE_INSTALL_LIBDIR}/pkgconfig /root)
string(REGEX REPLACE "/$" "" QDX_PC_PREFIX_REL "${QDX_PC_PREFIX_REL}")
foreach(pc qdxsdk kestrel)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/install/${pc}.pc.in
    ${PROJECT_BINARY_DIR}/install/${pc}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/install/${pc}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

install(FILES ${PROJECT_SOURCE_DIR}/completions/kestrel ${PROJECT_SOURCE_DIR}/completions/qdx
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
