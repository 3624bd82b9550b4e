# The library's manual pages (docs/man/man3, written in mdoc): installed to
# <mandir>/man3, every page also under each further name its NAME section
# lists (a symbolic link), so that `man -M <prefix>/share/man NAME` finds
# every documented function and macro. Installed in the component "man",
# which a plain `cmake --install` includes:
#   cmake --install <build> --component man --prefix <dir>
# installs the pages alone.

set(CL_MAN3_DIR ${PROJECT_SOURCE_DIR}/docs/man/man3)
file(GLOB cl_man3_pages CONFIGURE_DEPENDS ${CL_MAN3_DIR}/*.3)

# The names a page's NAME section gives with .Nm, in order.
function(cl_man_page_names page out)
  file(STRINGS ${page} lines REGEX "^\\.(Sh|Nm)([ \t]|$)")
  set(names "")
  set(in_name FALSE)
  foreach(line IN LISTS lines)
    if(line MATCHES "^\\.Sh[ \t]+NAME[ \t]*$")
      set(in_name TRUE)
    elseif(line MATCHES "^\\.Sh")
      set(in_name FALSE)
    elseif(in_name AND line MATCHES "^\\.Nm[ \t]+(.*)$")
      string(REGEX REPLACE "[ \t]+" ";" words "${CMAKE_MATCH_1}")
      foreach(word IN LISTS words)
        if(word MATCHES "^[A-Za-z_][A-Za-z0-9_]*$")
          list(APPEND names ${word})
        endif()
      endforeach()
    endif()
  endforeach()
  set(${out} ${names} PARENT_SCOPE)
endfunction()

install(FILES ${cl_man3_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT man)
foreach(page IN LISTS cl_man3_pages)
  get_filename_component(stem ${page} NAME_WE)
  cl_man_page_names(${page} names)
  foreach(name IN LISTS names)
    if(NOT name STREQUAL stem)
      install(CODE "
        set(dir \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_MANDIR}/man3\")
        message(STATUS \"Installing: \${dir}/${name}.3 -> ${stem}.3\")
        file(CREATE_LINK ${stem}.3 \"\${dir}/${name}.3\" SYMBOLIC)"
        COMPONENT man)
    endif()
  endforeach()
endforeach()

# The pages' checks: every exported function has its page, every page names
# real symbols, is clean under mandoc's lint and has the shared sections;
# the examples compile as strict C99; an install puts every name where man
# finds it. The platform libraries are those whose functions have pages.
if(CL_BUILD_TESTS)
  find_program(CL_MANDOC mandoc)
  find_program(CL_MAN man)
  if(CMAKE_NM)
    set(CL_NM ${CMAKE_NM})
  else()
    find_program(CL_NM nm)
  endif()
  set(cl_man_env MANDOC=${CL_MANDOC} MAN=${CL_MAN} NM=${CL_NM} MANPAGER=cat PAGER=cat MANWIDTH=80)
  if(CL_MANDOC AND CL_NM)
    add_test(NAME man_pages
      COMMAND ${PROJECT_SOURCE_DIR}/tests/man/check_pages.sh
        ${CL_MAN3_DIR} $<TARGET_FILE:cl> ${PROJECT_SOURCE_DIR}/include/cl_escape.h
        $<TARGET_FILE:qx_er> $<TARGET_FILE:qx_ccs> $<TARGET_FILE:qx_os>)
    set_tests_properties(man_pages PROPERTIES LABELS man TIMEOUT 300 ENVIRONMENT "${cl_man_env}")
  else()
    message(WARNING "mandoc or nm not found: the test man_pages is left out")
  endif()
  add_test(NAME man_examples
    COMMAND ${PROJECT_SOURCE_DIR}/tests/man/check_examples.sh
      ${CL_MAN3_DIR} ${CMAKE_C_COMPILER} ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/platform)
  set_tests_properties(man_examples PROPERTIES LABELS man TIMEOUT 300 ENVIRONMENT "${cl_man_env}")
  if(CL_MAN)
    add_test(NAME man_install
      COMMAND ${PROJECT_SOURCE_DIR}/tests/man/check_install.sh
        ${CL_MAN3_DIR} ${PROJECT_BINARY_DIR} ${CMAKE_INSTALL_MANDIR})
    set_tests_properties(man_install PROPERTIES LABELS man TIMEOUT 300 ENVIRONMENT "${cl_man_env}")
  else()
    message(WARNING "man not found: the test man_install is left out")
  endif()
endif()
