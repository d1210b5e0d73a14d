# Fails `make docs` when Doxygen found an undocumented public class or
# function (member or free), or any documentation error; fields of plain
# records and enumerators may go without a comment of their own.
file(STRINGS ${WARNINGS} lines)
set(failures "")
foreach(line IN LISTS lines)
  if(line MATCHES "is not documented" AND NOT line MATCHES "Compound " AND NOT line MATCHES "\\(function\\)")
    continue()
  endif()
  string(APPEND failures "${line}\n")
endforeach()
if(failures)
  message(FATAL_ERROR "the API reference is incomplete:\n${failures}")
endif()
