# Installs the header, the shared library, a CMake package
# (find_package(information_api) -> information_api::information_api) and a
# pkg-config file: the shared library as the component "runtime", the rest as
# "development" (the packages libinformation-api1 and libinformation-api-dev).
# On Debian the library goes to the multiarch folder under any prefix (its
# linker looks there under /usr/local too), so that the packages, made for
# /usr, come from the same build as a source install.
if(EXISTS /etc/debian_version AND CMAKE_LIBRARY_ARCHITECTURE AND NOT DEFINED CMAKE_INSTALL_LIBDIR)
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH
    "Object code libraries (LIBDIR)")
endif()
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(information_api_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/information_api)

install(TARGETS information_api EXPORT information_apiTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/information_api
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(EXPORT information_apiTargets
  NAMESPACE information_api::
  DESTINATION ${information_api_cmake_dir} COMPONENT development)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/information_apiConfig.cmake.in
  ${PROJECT_BINARY_DIR}/information_apiConfig.cmake
  INSTALL_DESTINATION ${information_api_cmake_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/information_apiConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/information_apiConfig.cmake
  ${PROJECT_BINARY_DIR}/information_apiConfigVersion.cmake
  DESTINATION ${information_api_cmake_dir} COMPONENT development)

# The .pc file finds its prefix relative to itself, so the package can be
# installed under any --prefix.
file(RELATIVE_PATH information_api_pc_to_prefix
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${PROJECT_SOURCE_DIR}/cmake/information_api.pc.in
  ${PROJECT_BINARY_DIR}/information_api.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/information_api.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
