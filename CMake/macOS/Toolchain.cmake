# Cross-compiles for macOS. Scripts/macos makes the wrappers that this names
# and says for which architecture.

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 20)
set(CMAKE_SYSTEM_PROCESSOR ${KEEPWELL_MACOS_ARCH})
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KEEPWELL_MACOS_ARCH KEEPWELL_MACOS_TOOLS
     KEEPWELL_MACOS_SYSTEM)

set(CMAKE_C_COMPILER ${KEEPWELL_MACOS_TOOLS}/cc)
set(CMAKE_CXX_COMPILER ${KEEPWELL_MACOS_TOOLS}/c++)
set(CMAKE_OBJCXX_COMPILER ${KEEPWELL_MACOS_TOOLS}/c++)
set(CMAKE_ASM_COMPILER ${KEEPWELL_MACOS_TOOLS}/cc)
set(CMAKE_AR ${KEEPWELL_MACOS_TOOLS}/ar)
set(CMAKE_RANLIB ${KEEPWELL_MACOS_TOOLS}/ranlib)
set(CMAKE_INSTALL_NAME_TOOL ${CMAKE_COMMAND} -E true)

# -O2 always: without it the compiler adds trapping checks.
set(target "-target ${KEEPWELL_MACOS_ARCH}-macos.11.0 -O2 -g0")
# The compiler sets these for its own C++ library. Without them its headers are those
# of the system's library, and refuse functions that came to the system later.
string(JOIN " " plus ${target} -fblocks -U_LIBCPP_HAS_NO_VENDOR_AVAILABILITY_ANNOTATIONS
  -U_LIBCPP_DISABLE_VISIBILITY_ANNOTATIONS -U_LIBCXXABI_DISABLE_VISIBILITY_ANNOTATIONS)
set(CMAKE_C_FLAGS_INIT "${target}")
set(CMAKE_CXX_FLAGS_INIT "${plus}")
set(CMAKE_OBJCXX_FLAGS_INIT "${plus}")
set(CMAKE_ASM_FLAGS_INIT "${target}")

# The compiler brings its own headers and library stubs; nothing of this host
# may be found by accident.
set(CMAKE_OSX_SYSROOT "" CACHE STRING "" FORCE)
set(CMAKE_OSX_DEPLOYMENT_TARGET "" CACHE STRING "" FORCE)
set(CMAKE_OSX_ARCHITECTURES "" CACHE STRING "" FORCE)
set(CMAKE_FIND_ROOT_PATH ${KEEPWELL_MACOS_TOOLS}/nowhere)
foreach(kind LIBRARY INCLUDE PACKAGE)
  set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()
# But the build's own tools run here.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(ENV{PKG_CONFIG_LIBDIR} ${KEEPWELL_MACOS_TOOLS}/nowhere)
