# What `cmake --install` puts where. Program, library, headers, unit and docs go below the prefix; configuration, lists,
# templates and what the running system writes lie at paths that the library knows, whatever the prefix. DESTDIR is put
# before both.
include(GNUInstallDirs)

install(TARGETS netsift netsiftd netsiftctl
        RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
# The programs find their library by the way from one folder to the other, wherever they are put.
file(RELATIVE_PATH to_library ${CMAKE_INSTALL_FULL_SBINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(netsiftd netsiftctl PROPERTIES INSTALL_RPATH "$ORIGIN/${to_library}")

# netsift.h and what it includes, in the folders that they include each other by. The list is made when the build is
# configured, so each of them is a reason to configure anew.
set(headers netsift.h)
set(unread netsift.h)
while(unread)
  list(POP_FRONT unread header)
  file(STRINGS ${CMAKE_SOURCE_DIR}/${header} lines REGEX "^#include \"")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "^#include \"(.*)\".*" "\\1" included "${line}")
    if(NOT included IN_LIST headers)
      list(APPEND headers ${included})
      list(APPEND unread ${included})
    endif()
  endforeach()
endwhile()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${headers})
foreach(header IN LISTS headers)
  cmake_path(GET header PARENT_PATH folder)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/netsift/${folder})
endforeach()

install(FILES README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR})
foreach(kind sysusers tmpfiles) # where systemd looks, with the unit, if the prefix is /usr or /usr/local
  install(FILES share/netsift.${kind}.conf DESTINATION lib/${kind}.d RENAME netsift.conf)
endforeach()

# What names the prefix is written when it is known: `--prefix` may differ from the one configured.
install(CODE "
  set(source \"${CMAKE_SOURCE_DIR}\")
  set(scratch \"${CMAKE_BINARY_DIR}/install\")
  set(version \"${PROJECT_VERSION}\")
  set(sbindir \"${CMAKE_INSTALL_SBINDIR}\")
  set(libdir \"${CMAKE_INSTALL_LIBDIR}\")
  set(includedir \"${CMAKE_INSTALL_INCLUDEDIR}\")")
install(SCRIPT cmake/installFiles.cmake)
