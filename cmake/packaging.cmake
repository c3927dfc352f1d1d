# Debian packages of the build, made by CPack (scripts/package.sh):
#   libinformation-api1     the shared library                  component runtime
#   libinformation-api-dev  header, CMake package, pkg-config   component development
#   information-tools       information_uploader                component tools
#   information-collector   information_collector, its systemd  component collector
#                           unit and /etc/information-collector/collector.conf
# The files under packaging/ are theirs. Dependencies on Debian's libraries
# come from dpkg-shlibdeps; on one another, from the components' own.
set(packaging_dir ${PROJECT_SOURCE_DIR}/packaging)
set(INFORMATION_API_PACKAGE_MAINTAINER "information_api maintainers <maintainers@example.com>"
  CACHE STRING "Maintainer named in the Debian packages")
set(INFORMATION_COLLECTOR_UNIT_DIR /lib/systemd/system CACHE PATH
  "Folder of the collector's systemd unit in its package")

set(package_components runtime development)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libinformation-api1)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libinformation-api-dev)
if(INFORMATION_API_BUILD_TOOLS)
  list(APPEND package_components tools collector)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME information-tools)
  set(CPACK_DEBIAN_COLLECTOR_PACKAGE_NAME information-collector)
  install(TARGETS information_uploader RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  install(TARGETS information_collector RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    COMPONENT collector)
  # Files outside the prefix are the package's alone: a plain cmake --install
  # never writes into /etc or /lib.
  install(FILES ${packaging_dir}/information-collector/information-collector.service
    DESTINATION ${INFORMATION_COLLECTOR_UNIT_DIR} COMPONENT collector EXCLUDE_FROM_ALL)
  install(FILES ${packaging_dir}/information-collector/collector.conf
    DESTINATION /etc/information-collector COMPONENT collector EXCLUDE_FROM_ALL)
  install(FILES ${PROJECT_SOURCE_DIR}/tools/collector/README.md
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/information-collector
    COMPONENT collector EXCLUDE_FROM_ALL)
endif()

# Every package's copyright and changelog, as Debian keeps them.
set(changelog_gz ${PROJECT_BINARY_DIR}/packaging/changelog.gz)
add_custom_command(OUTPUT ${changelog_gz}
  COMMAND sh -c "gzip -9nc \"$0\" >\"$1\"" ${packaging_dir}/changelog ${changelog_gz}
  DEPENDS ${packaging_dir}/changelog VERBATIM)
add_custom_target(package_changelog ALL DEPENDS ${changelog_gz})
foreach(component IN LISTS package_components)
  string(TOUPPER ${component} upper)
  install(FILES ${packaging_dir}/copyright ${changelog_gz}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME}
    COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME information-api)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "the information_api developers")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${INFORMATION_API_PACKAGE_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL ${package_components})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# dpkg-shlibdeps finds the library the tools link in the build; the
# dependency on its package comes from the components.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${packaging_dir}/libinformation-api1/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "usage records, uploads and downloads for a scanner host
A shared library that a desktop 3D-scanner application loads to record how
it is used and on what machine, to upload those records and files to an
information web service, to ask the service for a descriptor of the current
software, and to download an application installer.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS qtbase5-dev)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "usage records and uploads for a scanner host - development files
The header of libinformation-api1, with a CMake package
(find_package(information_api)) and a pkg-config file (information_api).")

set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "command-line host of libinformation-api1
information_uploader drives the library as a host does: it uploads a host's
records and files, asks for software descriptors and downloads installers.")

set(CPACK_DEBIAN_COLLECTOR_PACKAGE_SECTION net)
# The dashboard's charts are drawn by Debian's Chart.js, served from disk.
set(CPACK_DEBIAN_COLLECTOR_PACKAGE_DEPENDS "adduser, libjs-chart.js")
set(CPACK_DEBIAN_COLLECTOR_PACKAGE_SUGGESTS "postgresql, sqlite3")
set(CPACK_DEBIAN_COLLECTOR_PACKAGE_CONTROL_EXTRA
  ${packaging_dir}/information-collector/conffiles
  ${packaging_dir}/information-collector/postinst
  ${packaging_dir}/information-collector/prerm
  ${packaging_dir}/information-collector/postrm)
set(CPACK_COMPONENT_COLLECTOR_DESCRIPTION "service that receives scanner hosts' usage records and files
information_collector accepts the records and files that hosts upload into
SQLite or PostgreSQL, serves software descriptors and installers, and shows
what it received on a dashboard. It runs as the systemd service
information-collector, under a system user of its own, configured in
/etc/information-collector/collector.conf, its data in
/var/lib/information-collector.")

include(CPack)
