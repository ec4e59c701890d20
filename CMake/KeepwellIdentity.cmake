# The names of the agent and its files, read from the one header that fixes
# them, so that installed files can never differ from compiled ones.

# kw_identity(<variable> <constant>): the text of a constant of Identity.h.
function(kw_identity variable constant)
  set(header ${PROJECT_SOURCE_DIR}/Sources/Protocol/Identity.h)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})
  file(READ ${header} text)
  if(NOT text MATCHES "string_view ${constant} =[ \n]*\"([^\"]*)\"")
    message(FATAL_ERROR "Identity.h does not define ${constant}")
  endif()
  set(${variable} "${CMAKE_MATCH_1}" PARENT_SCOPE)
endfunction()

foreach(constant
    kAgentServiceName kAgentSocketPath kAgentBundleName kAgentBundleVersion
    kMenuBarBundleIdentifier kApplicationBundleIdentifier)
  kw_identity(${constant} ${constant})
endforeach()

if(NOT kAgentBundleVersion STREQUAL PROJECT_VERSION)
  message(FATAL_ERROR "The project's version is not that of Identity.h")
endif()
