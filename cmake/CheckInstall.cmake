# cmake --install into a scratch prefix, then the installed tarnell-host, with no
# --module, finds the installed module (not the build tree's) and reports it; the
# same with --module naming it, and a short verify.
set(prefix ${WORK}/install-check)
file(REMOVE_RECURSE ${prefix})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix}
                RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "cmake --install failed (${rc}):\n${out}${err}")
endif()

set(tool ${prefix}/${BINDIR}/${TOOL_NAME})
set(module ${prefix}/${MODULEDIR}/${MODULE_NAME})
foreach(file ${tool} ${module} ${prefix}/${DOCDIR}/README.md ${prefix}/${DOCDIR}/architecture.md
             ${prefix}/${DOCDIR}/contracts.md)
  if(NOT EXISTS ${file})
    message(FATAL_ERROR "not installed: ${file}")
  endif()
endforeach()
file(GLOB_RECURSE installed RELATIVE ${prefix} ${prefix}/*)
list(LENGTH installed count)
if(NOT count EQUAL 5)
  message(FATAL_ERROR "expected exactly the tool, the module and three documents, got:\n${installed}")
endif()

function(run_installed)
  execute_process(COMMAND ${EMULATOR} ${tool} ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "installed tarnell-host ${ARGN}: exit '${rc}'\n${out}${err}")
  endif()
  set(out "${out}" PARENT_SCOPE)
endfunction()

# The module path as the tool prints it: forward or back slashes, any drive.
string(REPLACE "/" "[/\\\\]" module_dirs "${MODULEDIR}/${MODULE_NAME}")
run_installed(report)
if(NOT out MATCHES "module     [^\n]*install-check[/\\\\]${module_dirs}\n" OR NOT out MATCHES "start-up   ok")
  message(FATAL_ERROR "the installed tool did not find the installed module by itself:\n${out}")
endif()
run_installed(report --module ${module})
if(NOT out MATCHES "start-up   ok")
  message(FATAL_ERROR "report --module <installed module>:\n${out}")
endif()
run_installed(verify --module ${module} --filter memo:0 --quick)
if(NOT out MATCHES "verify: [1-9][0-9]* passed, 0 failed")
  message(FATAL_ERROR "verify of the installed module:\n${out}")
endif()
file(REMOVE_RECURSE ${prefix})
