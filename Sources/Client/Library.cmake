# libkeepwell for other programs: shared and static, its headers, and files by
# which CMake and pkg-config find it. It has two components: "library" to run
# programs, "development" to build them.

# Besides the client's own objects the library holds the error values and the
# protocol's bus layer.
file(GLOB bus_sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/Protocol/Linux/*.cpp)
set(library_sources $<TARGET_OBJECTS:kw_client> ${bus_sources}
    ${CMAKE_CURRENT_SOURCE_DIR}/Foundation/Base/ErrorValue.cpp)
set(exports ${CMAKE_CURRENT_SOURCE_DIR}/Client/libkeepwell.map)

add_library(libkeepwell SHARED ${library_sources})
set_target_properties(libkeepwell PROPERTIES
  VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
  EXPORT_NAME shared LINK_DEPENDS ${exports})
target_link_options(libkeepwell PRIVATE LINKER:--version-script=${exports})
if(NOT KEEPWELL_SANITIZE) # the program brings the sanitizer's calls
  target_link_options(libkeepwell PRIVATE LINKER:--no-undefined)
endif()
add_library(libkeepwell_static STATIC ${library_sources})
set_target_properties(libkeepwell_static PROPERTIES EXPORT_NAME static)
foreach(library libkeepwell libkeepwell_static)
  set_target_properties(${library} PROPERTIES OUTPUT_NAME keepwell)
  target_include_directories(${library}
    PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}
    INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_compile_features(${library} INTERFACE cxx_std_20)
  target_link_libraries(${library} PRIVATE
    $<BUILD_INTERFACE:kw_options> PkgConfig::SYSTEMD Threads::Threads)
endforeach()

include(${CMAKE_CURRENT_SOURCE_DIR}/Client/PublicHeaders.cmake)
include(CMakePackageConfigHelpers)
set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/Keepwell)
configure_package_config_file(${CMAKE_CURRENT_SOURCE_DIR}/Client/KeepwellConfig.cmake.in
  ${CMAKE_BINARY_DIR}/KeepwellConfig.cmake INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/KeepwellConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
# Relative to the file itself, so that the whole folder can be moved.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_LIBDIR BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}
  OUTPUT_VARIABLE KEEPWELL_LIBDIR)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
  OUTPUT_VARIABLE KEEPWELL_PREFIX_FROM_PC)
configure_file(${CMAKE_CURRENT_SOURCE_DIR}/Client/keepwell.pc.in
  ${CMAKE_BINARY_DIR}/keepwell.pc @ONLY)

install(TARGETS libkeepwell EXPORT KeepwellSharedTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library
  NAMELINK_COMPONENT development)
install(TARGETS libkeepwell_static EXPORT KeepwellStaticTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
foreach(kind Shared Static)
  install(EXPORT Keepwell${kind}Targets NAMESPACE Keepwell:: DESTINATION ${package_folder}
          COMPONENT development)
endforeach()
install(FILES ${CMAKE_BINARY_DIR}/KeepwellConfig.cmake
  ${CMAKE_BINARY_DIR}/KeepwellConfigVersion.cmake
  DESTINATION ${package_folder} COMPONENT development)
install(FILES ${CMAKE_BINARY_DIR}/keepwell.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
install(DIRECTORY ${made_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
