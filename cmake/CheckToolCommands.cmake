# tarnell-host's commands as a script or an installed tool uses them:
# - every command takes --module PATH (a missing one fails, the real one works);
# - --json gives one valid JSON document on stdout and nothing on stderr;
# - output that is not a terminal carries no progress line (no carriage return,
#   empty stderr), and a terminal gets one (when `script` can provide a terminal).
# Runs with small filters and sizes: it checks the plumbing, not the routines.
set(TOOL ${EMULATOR} ${TOOL_PATH})
set(quick_args_report)
set(quick_args_verify --filter "memo:0,blnd:1" --quick)
set(quick_args_bench --filter "memo:3,blnd:1" --size 32x8 --min-time 0.005)
set(quick_args_list)

function(run out_var err_var)
  execute_process(COMMAND ${TOOL} ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "tarnell-host ${ARGN}: exit '${rc}'\n${out}${err}")
  endif()
  set(${out_var} "${out}" PARENT_SCOPE)
  set(${err_var} "${err}" PARENT_SCOPE)
endfunction()

foreach(command report verify bench list)
  set(args ${command} ${quick_args_${command}})

  # --module names the module: a missing file fails to load, whatever the command.
  execute_process(COMMAND ${TOOL} ${args} --module ${WORK}/no-such-module.qrx
                  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 3 OR NOT err MATCHES "cannot load module '[^']*no-such-module.qrx'")
    message(FATAL_ERROR "${command} --module <missing>: expected exit 3 and 'cannot load module', got '${rc}':\n${err}")
  endif()

  # Piped output: the results only, no progress.
  run(out err ${args} --module ${MODULE})
  if(NOT err STREQUAL "" OR out MATCHES "\r")
    message(FATAL_ERROR "${command}: progress output on a pipe:\nstdout:\n${out}\nstderr:\n${err}")
  endif()

  # --json: one document on stdout, nothing on stderr.
  run(out err ${args} --module ${MODULE} --json)
  if(NOT err STREQUAL "")
    message(FATAL_ERROR "${command} --json wrote to stderr:\n${err}")
  endif()
  string(JSON type ERROR_VARIABLE json_error TYPE "${out}")
  if(json_error)
    message(FATAL_ERROR "${command} --json is not JSON (${json_error}):\n${out}")
  endif()
  set(expected_type OBJECT)
  if(command STREQUAL "list")
    set(expected_type ARRAY)
  endif()
  if(NOT type STREQUAL expected_type)
    message(FATAL_ERROR "${command} --json: expected a JSON ${expected_type}, got ${type}")
  endif()
  set(json_${command} "${out}")
endforeach()

# What the documents hold.
string(JSON startup GET "${json_report}" startup)
string(JSON suites LENGTH "${json_report}" suites)
string(JSON module GET "${json_report}" module)
if(NOT startup STREQUAL "ok" OR NOT suites EQUAL 10 OR NOT module MATCHES "Tarnell.qrx$")
  message(FATAL_ERROR "report --json: start-up '${startup}', ${suites} suites, module '${module}'")
endif()
string(JSON results LENGTH "${json_verify}" results)
string(JSON failed GET "${json_verify}" failed)
string(JSON outcome GET "${json_verify}" results 0 outcome)
if(NOT results EQUAL 2 OR NOT failed EQUAL 0 OR NOT outcome MATCHES "^(passed|not installed)$")
  message(FATAL_ERROR "verify --json: ${results} results, ${failed} failed, first '${outcome}':\n${json_verify}")
endif()
string(JSON results LENGTH "${json_bench}" results)
string(JSON slot GET "${json_bench}" results 0 slot)
if(NOT results EQUAL 2)
  message(FATAL_ERROR "bench --json: ${results} results:\n${json_bench}")
endif()
string(JSON checks LENGTH "${json_list}")
string(JSON replaced GET "${json_list}" 0 replaced)
if(checks LESS 2 OR NOT replaced MATCHES "^(ON|OFF)$")
  message(FATAL_ERROR "list --json --module: ${checks} checks, first replaced '${replaced}'")
endif()

# On a terminal, verify shows a progress line ("verify [k/n] label"), rewritten
# with carriage returns. `script` runs the tool on a pseudo-terminal.
find_program(SCRIPT_PROGRAM script)
if(SCRIPT_PROGRAM AND NOT CMAKE_HOST_WIN32 AND NOT EMULATOR)
  list(JOIN TOOL " " tool_line)
  execute_process(COMMAND ${SCRIPT_PROGRAM} -qec "${tool_line} verify --module ${MODULE} --filter memo:0,blnd:1 --quick"
                          /dev/null
                  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0 OR NOT out MATCHES "\rverify \\[1/2\\] [a-z]+:[0-9]+ " OR NOT out MATCHES "verify: 2 passed")
    message(FATAL_ERROR "verify on a terminal: expected a progress line, got (exit ${rc}):\n${out}${err}")
  endif()
endif()
