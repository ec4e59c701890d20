# The public headers of libkeepwell, as <keepwell/Name.h> in the folder made_headers.
# They include no other header of the tree, so that they compile on their own.
set(public_headers Client/Client.h Client/ClientError.h Client/Export.h Client/Replies.h
    Client/Request.h Foundation/Base/ErrorValue.h)
set(made_headers ${CMAKE_BINARY_DIR}/include/keepwell)
file(REMOVE_RECURSE ${made_headers}) # removes headers under former names
foreach(header ${public_headers})
  set(source ${CMAKE_SOURCE_DIR}/Sources/${header})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
  file(READ ${source} text)
  foreach(other ${public_headers})
    cmake_path(GET other FILENAME name)
    string(REPLACE "#include \"${other}\"" "#include <keepwell/${name}>" text "${text}")
  endforeach()
  if(text MATCHES "#include \"[^\n]*")
    message(FATAL_ERROR "${header} is public and must not have ${CMAKE_MATCH_0}")
  endif()
  cmake_path(GET header FILENAME name)
  file(CONFIGURE OUTPUT ${made_headers}/${name} CONTENT "${text}" @ONLY)
endforeach()
