# The memory sanitizer takes what code without it has written for never written. GoogleTest is
# compiled along; Debian has no C++ library for the sanitizer. So the templates of libstdc++ are
# compiled along too, in place of the instances that its shared library brings, and what they write
# counts as written: the rest of them, locales above all, stays in the shared library.
# That rest and cJSON also write what they allocate, so memory from the heap counts as written (the
# options in the test preset); what is looked at is the stack, where the buffers of src/ are.
execute_process(
  COMMAND ${CMAKE_CXX_COMPILER} -x c++ -include bits/c++config.h -E /dev/null
  COMMAND sed -n "s,^# 1 \"\\(/.*/bits/c++config.h\\)\".*,\\1,p"
  OUTPUT_VARIABLE config OUTPUT_STRIP_TRAILING_WHITESPACE)
file(READ "${config}" text)
string(REPLACE "# define _GLIBCXX_EXTERN_TEMPLATE 1\n" "# define _GLIBCXX_EXTERN_TEMPLATE 0\n"
  changed "${text}")
if(changed STREQUAL text)
  message(FATAL_ERROR "${config} does not switch the templates of libstdc++ as expected")
endif()
file(WRITE ${CMAKE_BINARY_DIR}/libstdc++/bits/c++config.h "${changed}")
file(WRITE ${CMAKE_BINARY_DIR}/libstdc++/ignored "[memory]\nsrc:*/include/c[+][+]/*\n")
add_compile_options(
  -isystem ${CMAKE_BINARY_DIR}/libstdc++
  -fsanitize-ignorelist=${CMAKE_BINARY_DIR}/libstdc++/ignored
  -fsanitize-memory-track-origins)
