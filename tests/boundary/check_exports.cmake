# Compares the dynamic symbols a library defines with the functions of the
# export table.
execute_process(COMMAND nm -D --defined-only --format=posix ${LIBRARY}
  OUTPUT_VARIABLE listing RESULT_VARIABLE failed)
if(failed)
  message(FATAL_ERROR "nm could not read ${LIBRARY}")
endif()
string(REPLACE "\n" ";" lines "${listing}")
set(actual)
foreach(line IN LISTS lines)
  string(REGEX MATCH "^[^ ]+" symbol "${line}")
  # The version node itself is listed as an absolute symbol.
  if(symbol AND NOT symbol STREQUAL "SCOPEMOUNT_0")
    string(REGEX REPLACE "@.*$" "" symbol "${symbol}")
    list(APPEND actual ${symbol})
  endif()
endforeach()
# The ordinal host's table rows, X(ordinal, result, function, ...): the
# shared library exports the names.
file(READ ${EXPECTED} host)
string(REGEX MATCHALL "X\\([0-9]+, [^,]+, Scope[A-Za-z0-9]+" expected "${host}")
list(TRANSFORM expected REPLACE "^.*, " "")
list(SORT actual)
list(SORT expected)
set(missing ${expected})
list(REMOVE_ITEM missing ${actual})
set(extra ${actual})
list(REMOVE_ITEM extra ${expected})
if(missing OR extra)
  message(FATAL_ERROR "exported symbols differ\n  missing: ${missing}\n  extra: ${extra}")
endif()
list(LENGTH actual count)
message(STATUS "${count} exported functions, as expected")
