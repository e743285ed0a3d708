# What is installed besides programs, libraries and headers.

# The package: find_package(tvservice-adapter), target tvservice-adapter::client for applications,
# tvservice-adapter::service for services and, with the component testing, tvservice-adapter::testing for applications'
# tests.
include(CMakePackageConfigHelpers)
configure_package_config_file(cmake/tvservice-adapter-config.cmake.in tvservice-adapter-config.cmake
  INSTALL_DESTINATION ${TVSA_INSTALL_PACKAGE})
write_basic_package_version_file(tvservice-adapter-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tvservice-adapter-config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/tvservice-adapter-config-version.cmake DESTINATION ${TVSA_INSTALL_PACKAGE} COMPONENT development)
install(EXPORT tvservice-adapter NAMESPACE tvservice-adapter:: DESTINATION ${TVSA_INSTALL_PACKAGE}
  FILE tvservice-adapter-targets.cmake COMPONENT development)
install(EXPORT tvservice-adapter-testing NAMESPACE tvservice-adapter:: DESTINATION ${TVSA_INSTALL_PACKAGE}
  COMPONENT testing)

# The same for other build systems: pkg-config tvservice-adapter, tvservice-adapter-service, tvservice-adapter-testing.
file(RELATIVE_PATH TVSA_PREFIX "/${TVSA_INSTALL_PKGCONFIG}" "/")
string(REGEX REPLACE "/$" "" TVSA_PREFIX "${TVSA_PREFIX}")
set(TVSA_BOOST_FLAGS "")
if(NOT Boost_INCLUDE_DIRS IN_LIST CMAKE_CXX_IMPLICIT_INCLUDE_DIRECTORIES)
  set(TVSA_BOOST_FLAGS " -isystem ${Boost_INCLUDE_DIRS}")
endif()
function(tvsa_install_pkgconfig name description libraries component)
  configure_file(cmake/tvservice-adapter.pc.in ${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc DESTINATION ${TVSA_INSTALL_PKGCONFIG} COMPONENT ${component})
endfunction()
tvsa_install_pkgconfig(tvservice-adapter "${PROJECT_DESCRIPTION}" "-L\${moduledir} -lapp-tvservice-adapter" development)
tvsa_install_pkgconfig(tvservice-adapter-service "Kit for services of a TV receiver"
  "-L\${libdir} -ltvservice-service" development)
tvsa_install_pkgconfig(tvservice-adapter-testing "Receiver for unit tests of applications, instead of tvservice-adapter"
  "-L\${libdir} -ltvservice-adapter-testing" testing)

# The documents, copied at install time: a changed document needs no build.
set(documents ${CMAKE_CURRENT_BINARY_DIR}/documents)
install(CODE "execute_process(COMMAND \"${CMAKE_COMMAND}\" \"-DFROM=${CMAKE_CURRENT_SOURCE_DIR}\"
  \"-DTO=${documents}\" \"-DHEADERS=${TVSA_INSTALL_HEADERS}\" \"-DDOCUMENTS=${TVSA_INSTALL_DOCUMENTS}\"
  -P \"${CMAKE_CURRENT_SOURCE_DIR}/cmake/documents.cmake\" COMMAND_ERROR_IS_FATAL ANY)" COMPONENT documents)
install(DIRECTORY ${documents}/ DESTINATION ${TVSA_INSTALL_DOCUMENTS} COMPONENT documents)
