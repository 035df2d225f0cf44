# The client library as others use it: one shared library with all that its headers offer, found by CMake as
# StilloraClient and by pkg-config as stillora-client. The project's own programs link the static libraries.
include(CMakePackageConfigHelpers)

add_library(client_shared SHARED $<TARGET_OBJECTS:client>)
# For what the client is made of.
target_link_libraries(client_shared PRIVATE client project_options)
# Of the other parts, whose visibility is as ever, the linker hides everything.
configure_file(${CMAKE_CURRENT_LIST_DIR}/SharedLibrary.map.in ${CMAKE_CURRENT_BINARY_DIR}/SharedLibrary.map @ONLY)
target_link_options(client_shared PRIVATE LINKER:--version-script=${CMAKE_CURRENT_BINARY_DIR}/SharedLibrary.map)
set_target_properties(client_shared PROPERTIES LINK_DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/SharedLibrary.map)
target_compile_features(client_shared INTERFACE cxx_std_20)
target_include_directories(client_shared INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
# Until version 1 every minor version may change what programs were built with.
set_target_properties(client_shared PROPERTIES
    OUTPUT_NAME stillora-client
    EXPORT_NAME client
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})

set(CLIENT_CMAKE_FOLDER ${CMAKE_INSTALL_LIBDIR}/cmake/StilloraClient)
configure_package_config_file(${PROJECT_SOURCE_DIR}/packaging/StilloraClientConfig.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/StilloraClientConfig.cmake
    INSTALL_DESTINATION ${CLIENT_CMAKE_FOLDER} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/StilloraClientConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
# By its own place, so that it fits wherever it is installed.
file(RELATIVE_PATH PREFIX_FROM_PKGCONFIG ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/packaging/stillora-client.pc.in ${CMAKE_CURRENT_BINARY_DIR}/stillora-client.pc @ONLY)

install(TARGETS client_shared EXPORT StilloraClientTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT client NAMELINK_COMPONENT client-dev)
install(EXPORT StilloraClientTargets NAMESPACE Stillora:: DESTINATION ${CLIENT_CMAKE_FOLDER} COMPONENT client-dev)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/StilloraClientConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/StilloraClientConfigVersion.cmake
    DESTINATION ${CLIENT_CMAKE_FOLDER} COMPONENT client-dev)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/stillora-client.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT client-dev)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/stillora DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT client-dev)
