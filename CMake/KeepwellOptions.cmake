# The options at configure time, and the settings for compiling every target.

option(KEEPWELL_BUILD_TESTS "Build the unit, system and fuzz tests" ON)
option(KEEPWELL_BUILD_BENCHMARKS "Build the benchmarks" OFF)
option(KEEPWELL_LIBFUZZER "Link the fuzz targets with libFuzzer (clang only)" OFF)
# A release build with another compiler should not fail at a new warning.
if(EXISTS ${PROJECT_SOURCE_DIR}/.git)
  set(is_developer ON)
else()
  set(is_developer OFF)
endif()
option(KEEPWELL_WARNINGS_ARE_ERRORS "Fail at warnings; on by default in a git checkout"
       ${is_developer})
set(KEEPWELL_SANITIZE "" CACHE STRING "Value for -fsanitize, empty for none")
option(KEEPWELL_COVERAGE "Count the runs of each line; see Scripts/coverage (GCC only)" OFF)
set(KEEPWELL_TEAM_ID "KEEPWELL00" CACHE STRING
    "The maker's ten-character team identifier, part of the client requirement")

string(LENGTH "${KEEPWELL_TEAM_ID}" team_id_length)
if(NOT team_id_length EQUAL 10)
  message(FATAL_ERROR "KEEPWELL_TEAM_ID must have ten characters: ${KEEPWELL_TEAM_ID}")
endif()

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CROSSCOMPILING)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()

# Inherited by every target of ours; third-party headers come in as SYSTEM.
add_library(kw_options INTERFACE)
target_compile_options(kw_options INTERFACE
  -Wall -Wextra -Wpedantic $<$<BOOL:${KEEPWELL_WARNINGS_ARE_ERRORS}>:-Werror> -Wshadow -Wconversion -Wsign-conversion
  -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Wformat=2
  -Wimplicit-fallthrough -fstack-protector-strong)
if(KEEPWELL_LIBFUZZER)
  # What libFuzzer steers by: which branches of the code under test were taken.
  target_compile_options(kw_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(KEEPWELL_SANITIZE)
  target_compile_options(kw_options INTERFACE
    -fsanitize=${KEEPWELL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g1)
  target_link_options(kw_options INTERFACE -fsanitize=${KEEPWELL_SANITIZE})
  # Instrumented code misleads this check of GCC's; ordinary builds keep it.
  target_compile_options(kw_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
elseif(CMAKE_BUILD_TYPE STREQUAL "Release")
  target_compile_definitions(kw_options INTERFACE _FORTIFY_SOURCE=2)
endif()
if(KEEPWELL_COVERAGE)
  # The counts have a folder of their own, which any user of a test may write to.
  target_compile_options(kw_options INTERFACE
    --coverage -fprofile-update=atomic -fprofile-dir=${CMAKE_BINARY_DIR}/counts)
  add_library(kw_counts STATIC ${PROJECT_SOURCE_DIR}/Tests/Support/WriteCounts.c)
  target_link_libraries(kw_options INTERFACE kw_counts)
  target_link_options(kw_options INTERFACE --coverage LINKER:--wrap=_exit)
endif()
