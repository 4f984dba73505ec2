# Run by `cmake --install`, behind the files that are only copied: see install.cmake, which sets `source` and the rest.

cmake_policy(VERSION 3.25)
cmake_path(ABSOLUTE_PATH sbindir BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} NORMALIZE)
cmake_path(ABSOLUTE_PATH libdir BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} NORMALIZE)
cmake_path(ABSOLUTE_PATH includedir BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} NORMALIZE)

# TEMPLATE with @names@ filled in, into a folder below the prefix.
function(install_filled template folder)
  cmake_path(GET template STEM LAST_ONLY name)
  configure_file(${source}/share/${template} ${scratch}/${name} @ONLY)
  file(INSTALL ${scratch}/${name} DESTINATION ${CMAKE_INSTALL_PREFIX}/${folder})
endfunction()
install_filled(netsiftd.service.in lib/systemd/system)
cmake_path(RELATIVE_PATH libdir BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} OUTPUT_VARIABLE below_prefix)
install_filled(netsift.pc.in ${below_prefix}/pkgconfig)

set(etc /opt/Velmora/etc/netsift)
foreach(folder ${etc} /opt/Velmora/var/run /opt/Velmora/var/spool /var/Velmora/var/log)
  file(MAKE_DIRECTORY $ENV{DESTDIR}${folder})
endforeach()

# A file that the administrator may have changed: put where there is none. Where there is one that differs it stays, and
# with KEEP_BOTH ours is put beside it as NAME.new.
function(install_kept file)
  cmake_path(GET file FILENAME name)
  set(target $ENV{DESTDIR}${etc}/${name})
  if(NOT EXISTS ${target} AND NOT IS_SYMLINK ${target})
    file(INSTALL ${file} DESTINATION ${etc})
    return()
  endif()
  execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${file} ${target} RESULT_VARIABLE differs ERROR_QUIET)
  if(NOT differs)
    message(STATUS "Up-to-date: ${target}")
  elseif("KEEP_BOTH" IN_LIST ARGN)
    message(STATUS "Kept: ${target} (what is shipped now is beside it as ${name}.new)")
    file(INSTALL ${file} DESTINATION ${etc} RENAME ${name}.new)
  else()
    message(STATUS "Kept: ${target}")
  endif()
endfunction()

file(GLOB pages ${source}/share/template* ${source}/share/errortemplate* ${source}/share/popupblocker*)
foreach(file ${source}/share/netsiftd.toml ${pages})
  install_kept(${file} KEEP_BOTH)
endforeach()
file(GLOB lists ${source}/share/lists/*)
foreach(file ${lists}) # samples: of a list that is in use no newer one is wanted
  install_kept(${file})
endforeach()
