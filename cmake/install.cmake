# Installation: the libraries with their SONAMEs, the headers, a pkg-config
# file, a CMake package, the programs with their links and the man page.
#
#   cmake --install <build> [--prefix <dir>]
#
# A consumer then writes either
#   find_package(cl REQUIRED)  ...  target_link_libraries(app PRIVATE cl::cl)
# or
#   cc app.c $(pkg-config --cflags --libs cl)
# and may compile as strict C99 (-std=c99): both routes define _DEFAULT_SOURCE,
# which gives cl_escape.h the POSIX sigjmp_buf. The program built through
# pkg-config finds the libraries at run time through the rpath its Libs carry;
# CMake gives the program it builds its own.
include(CMakePackageConfigHelpers)

set(CL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/cl)

# Installed libraries find each other next to themselves; programs find them
# in the library directory beside their own.
set_target_properties(cl ${QX_TARGETS} PROPERTIES INSTALL_RPATH "$ORIGIN")

install(TARGETS cl ${QX_TARGETS} EXPORT clTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} ${CMAKE_INSTALL_INCLUDEDIR}/qx)
install(FILES ${PROJECT_SOURCE_DIR}/include/cl.h ${PROJECT_SOURCE_DIR}/include/cl_escape.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
file(GLOB cl_platform_headers ${PROJECT_SOURCE_DIR}/platform/*.h)
install(FILES ${cl_platform_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qx)

# CMake package: cl::cl, with the platform libraries as cl::qx_<prefix>.
# Strict C (-std=c99) hides POSIX, and with it the sigjmp_buf of er.h and
# cl_escape.h; _DEFAULT_SOURCE gives back the C library's default set, which a
# gnu99 or C++ consumer has anyway. Installed consumers only: the tree's own
# programs are C++.
target_compile_definitions(cl INTERFACE $<INSTALL_INTERFACE:_DEFAULT_SOURCE>)
install(EXPORT clTargets NAMESPACE cl:: DESTINATION ${CL_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/clConfig.cmake.in
  ${PROJECT_BINARY_DIR}/clConfig.cmake INSTALL_DESTINATION ${CL_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/clConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/clConfig.cmake ${PROJECT_BINARY_DIR}/clConfigVersion.cmake
  DESTINATION ${CL_CMAKE_DIR})

# pkg-config: every platform library is named, since a program that catches
# escapes calls the error library itself. The prefix is found from the file's
# own place, so an install under any --prefix or DESTDIR works. Cflags define
# _DEFAULT_SOURCE as the CMake package does; Libs carry an rpath to the
# library directory, so a program built against a prefix that the dynamic
# linker does not search ($HOME/.local) runs without LD_LIBRARY_PATH.
file(RELATIVE_PATH CL_PC_TO_PREFIX /p/${CMAKE_INSTALL_LIBDIR}/pkgconfig /p)
string(REGEX REPLACE "/$" "" CL_PC_TO_PREFIX "${CL_PC_TO_PREFIX}")
set(CL_PC_LIBS "-lcl")
foreach(t IN LISTS QX_TARGETS)
  string(APPEND CL_PC_LIBS " -l${t}")
endforeach()
configure_file(${PROJECT_SOURCE_DIR}/cmake/cl.pc.in ${PROJECT_BINARY_DIR}/cl.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/cl.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The programs: one file, one link per name; the man page under every name.
if(TARGET qxadm)
  set_target_properties(qxadm PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS qxadm RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES ${PROJECT_SOURCE_DIR}/docs/man/qxadm.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  foreach(name IN LISTS QX_PROGRAM_NAMES)
    install(CODE "
      set(dest \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\")
      file(CREATE_LINK qxadm \"\${dest}/${CMAKE_INSTALL_BINDIR}/${name}\" SYMBOLIC)
      file(CREATE_LINK qxadm.1 \"\${dest}/${CMAKE_INSTALL_MANDIR}/man1/${name}.1\" SYMBOLIC)
      message(STATUS \"Installing: \${dest}/${CMAKE_INSTALL_BINDIR}/${name} -> qxadm\")")
  endforeach()
endif()
