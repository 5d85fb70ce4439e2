# An object file compiled for SSSE3/SSE4.1/AVX/AVX2 must not define external or
# weak code (an inline or template instance the linker could hand to a baseline
# caller) nor a load-time initializer (it would run on every processor). Its one
# way out is constant data: a table of routine pointers.
find_program(NM NAMES nm REQUIRED)
set(bad)
foreach(obj IN LISTS OBJECTS)
  execute_process(COMMAND ${NM} -C --defined-only ${obj} OUTPUT_VARIABLE out RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "nm failed on ${obj}")
  endif()
  string(REGEX MATCHALL "[^\n]+" lines "${out}")
  foreach(line IN LISTS lines)
    if(line MATCHES "^[0-9a-fA-F]* +[TWiVu] " OR line MATCHES "_GLOBAL__sub_I|global constructors")
      list(APPEND bad "${obj}: ${line}")
    endif()
  endforeach()
endforeach()
if(bad)
  string(REPLACE ";" "\n" bad "${bad}")
  message(FATAL_ERROR "wider-ISA object files define code with external linkage or load-time code:\n${bad}")
endif()
list(LENGTH OBJECTS n)
message(STATUS "${n} wider-ISA object files checked")
