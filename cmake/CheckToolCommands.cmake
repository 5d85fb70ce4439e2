# tarnell-host's commands as a script or an installed tool uses them:
# - every command takes --module PATH (a missing one fails, the real one works);
# - --json gives one JSON object on stdout and nothing on stderr, in the shape the
#   README documents (absent values null, never "");
# - output that is not a terminal carries no progress line (no carriage return,
#   empty stderr); a terminal gets one, cut to its width, and none where the width
#   is unknown (when `script` can provide a terminal);
# - report and verify state the coverage; bench lists slots by suite and slot,
#   leaves routines of fixed work out of its summary and says where the report went.
# Runs with small filters and sizes: it checks the plumbing, not the routines.
set(TOOL ${EMULATOR} ${TOOL_PATH})
set(quick_args_report)
set(quick_args_verify --filter "memo:0,blnd:1" --quick)
set(quick_args_bench --filter "memo:3, blnd:1,blnd:275" --size 32x8 --min-time 0.005)
set(quick_args_list --filter "BLND:1,memo:*")

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
  set(text_${command} "${out}")

  # --json: one object on stdout, nothing on stderr.
  run(out err ${args} --module ${MODULE} --json)
  if(NOT err STREQUAL "")
    message(FATAL_ERROR "${command} --json wrote to stderr:\n${err}")
  endif()
  string(JSON type ERROR_VARIABLE json_error TYPE "${out}")
  if(json_error OR NOT type STREQUAL "OBJECT")
    message(FATAL_ERROR "${command} --json is not a JSON object (${json_error}):\n${out}")
  endif()
  if(out MATCHES ": \"\"")
    message(FATAL_ERROR "${command} --json has an empty string where an absent value is null:\n${out}")
  endif()
  set(json_${command} "${out}")
endforeach()

# --- the documented shapes: each member's type, then what it holds.
function(expect_types document)
  set(pairs ${ARGN})
  while(pairs)
    list(POP_FRONT pairs path type)
    string(REPLACE "." ";" members "${path}")
    string(JSON actual ERROR_VARIABLE error TYPE "${json_${document}}" ${members})
    if(error OR NOT actual STREQUAL type)
      message(FATAL_ERROR "${document} --json: '${path}' should be ${type}, is '${actual}' ${error}\n${json_${document}}")
    endif()
  endwhile()
endfunction()
function(json_get out document)
  string(REPLACE "." ";" members "${ARGN}")
  string(JSON value GET "${json_${document}}" ${members})
  set(${out} "${value}" PARENT_SCOPE)
endfunction()

set(coverage_types coverage OBJECT coverage.replaced NUMBER coverage.checked NUMBER coverage.forwarded NUMBER
                   coverage.uncovered NUMBER coverage.forwarded_slots ARRAY coverage.forwarded_slots.0.suite STRING
                   coverage.forwarded_slots.0.slot NUMBER coverage.forwarded_slots.0.name STRING
                   coverage.uncovered_slots ARRAY)
set(machine_types processor STRING flags OBJECT flags.SSE2 NUMBER flags.AVX2 NUMBER topology OBJECT
                  topology.physical_cores NUMBER topology.logical_processors NUMBER)
expect_types(report version STRING module STRING vendor STRING vendor_kind NUMBER startup STRING suites ARRAY
             suites.0.suite STRING suites.0.as_expected BOOLEAN suites.0.replaced ARRAY ${machine_types} ${coverage_types})
expect_types(verify version STRING module STRING processor STRING seed NUMBER quick BOOLEAN guard_pages BOOLEAN
             filter STRING results ARRAY results.0.suite STRING results.0.slot NUMBER results.0.name STRING
             results.0.outcome STRING results.0.cases NUMBER results.0.mismatches NUMBER results.0.first_failure NULL
             passed NUMBER failed NUMBER skipped NUMBER ${coverage_types})
expect_types(bench version STRING module STRING ${machine_types} width NUMBER height NUMBER min_time NUMBER
             filter STRING date STRING report NULL results ARRAY results.0.suite STRING results.0.slot NUMBER
             results.0.name STRING results.0.host_ns NUMBER results.0.module_ns NUMBER results.0.speedup NUMBER
             results.0.bytes NUMBER results.0.module_gbps NUMBER results.0.memcpy_ns NUMBER
             results.0.memcpy_share NUMBER results.0.fixed_work BOOLEAN skipped ARRAY summary OBJECT
             summary.benched NUMBER summary.counted NUMBER summary.median_speedup NUMBER summary.lowest OBJECT
             summary.lowest.suite STRING summary.lowest.slot NUMBER summary.lowest.name STRING
             summary.lowest.speedup NUMBER summary.lowest_memcpy_share OBJECT
             summary.lowest_memcpy_share.memcpy_share NUMBER summary.left_out ARRAY)
expect_types(list version STRING module STRING filter STRING checks ARRAY checks.0.suite STRING checks.0.slot NUMBER
             checks.0.name STRING checks.0.signature STRING checks.0.replaced BOOLEAN forwarded ARRAY)

json_get(startup report startup)
string(JSON suites LENGTH "${json_report}" suites)
json_get(module report module)
if(NOT startup STREQUAL "ok" OR NOT suites EQUAL 10 OR NOT module MATCHES "Tarnell.qrx$")
  message(FATAL_ERROR "report --json: start-up '${startup}', ${suites} suites, module '${module}'")
endif()
foreach(document report verify)
  json_get(replaced ${document} coverage.replaced)
  json_get(checked ${document} coverage.checked)
  json_get(forwarded ${document} coverage.forwarded)
  json_get(uncovered ${document} coverage.uncovered)
  math(EXPR sum "${checked} + ${forwarded}")
  if(NOT uncovered EQUAL 0 OR NOT sum EQUAL replaced OR replaced EQUAL 0)
    message(FATAL_ERROR "${document} --json coverage: ${replaced} replaced, ${checked} checked, ${forwarded} forwarded, "
                        "${uncovered} neither")
  endif()
endforeach()
string(JSON results LENGTH "${json_verify}" results)
json_get(failed verify failed)
json_get(outcome verify results.0.outcome)
# Two checks on this processor's bodies, then narrower bodies of them this processor
# does not run (how many depends on the processor).
if(results LESS 2 OR NOT failed EQUAL 0 OR NOT outcome MATCHES "^(passed|not installed)$")
  message(FATAL_ERROR "verify --json: ${results} results, ${failed} failed, first '${outcome}':\n${json_verify}")
endif()
# bench: by suite and slot (blnd before memo); the record-forwarding slot 275 is
# marked and left out of the summary.
string(JSON results LENGTH "${json_bench}" results)
json_get(first bench results.0.slot)
json_get(last bench results.2.suite)
json_get(fixed bench results.1.fixed_work)
json_get(counted bench summary.counted)
json_get(left_out bench summary.left_out.0.slot)
json_get(lowest bench summary.lowest.slot)
if(NOT results EQUAL 3 OR NOT first EQUAL 1 OR NOT last STREQUAL "memo" OR NOT fixed STREQUAL "ON"
   OR NOT counted EQUAL 2 OR NOT left_out EQUAL 275 OR lowest EQUAL 275)
  message(FATAL_ERROR "bench --json: order, fixed work or summary wrong:\n${json_bench}")
endif()
json_get(filter bench filter)
if(NOT filter STREQUAL "memo:3, blnd:1,blnd:275")
  message(FATAL_ERROR "bench --json: filter '${filter}'")
endif()
# list: the filter works (case-insensitive key), the module is named, and without
# --module the module and "replaced" are null.
string(JSON checks LENGTH "${json_list}" checks)
json_get(first list checks.0.name)
if(checks LESS 3 OR NOT first STREQUAL "ScaleByConstant8")
  message(FATAL_ERROR "list --json --filter: ${checks} checks, first '${first}'")
endif()
run(out err list --json)
string(JSON module_type TYPE "${out}" module)
string(JSON replaced_type TYPE "${out}" checks 0 replaced)
string(JSON forwarded LENGTH "${out}" forwarded)
if(NOT module_type STREQUAL "NULL" OR NOT replaced_type STREQUAL "NULL" OR forwarded LESS 1)
  message(FATAL_ERROR "list --json without --module: module ${module_type}, replaced ${replaced_type}, "
                      "${forwarded} forwarded")
endif()

# --- the text: coverage stated, bench in suite order with fixed work left out.
foreach(command report verify)
  if(NOT text_${command} MATCHES "coverage +[0-9]+ slots replaced: [0-9]+ checked by verify, [0-9]+ forwarded")
    message(FATAL_ERROR "${command} does not state its coverage:\n${text_${command}}")
  endif()
endforeach()
if(NOT text_report MATCHES "forwarded +blnd:53 BlendPlaneRoutine53," OR NOT text_report MATCHES "topology +[0-9]+ physical")
  message(FATAL_ERROR "report does not list the forwarded slots:\n${text_report}")
endif()
if(NOT text_bench MATCHES "\nblnd:1 [^\n]*\nblnd:275 [^\n]*fixed work\nmemo:3 "
   OR NOT text_bench MATCHES "bench: left out of the median and the lowest: blnd:275 FloatCompositeRecord275")
  message(FATAL_ERROR "bench: slots out of order or fixed work not said:\n${text_bench}")
endif()
set(page ${WORK}/commands-report.html)
run(out err bench --module ${MODULE} --filter memo:3 --size 16x4 --min-time 0.001 --report ${page})
if(NOT out MATCHES "bench: report written to [^\n]*commands-report.html\n" OR NOT EXISTS ${page})
  message(FATAL_ERROR "bench --report does not say where the report went:\n${out}")
endif()
run(out err help)
if(NOT out MATCHES "^usage: tarnell-host <command>")
  message(FATAL_ERROR "help does not print the usage:\n${out}")
endif()

# On a terminal, verify shows a progress line ("verify [k/n] label"), rewritten
# with carriage returns and cut to the terminal's width; where the width is not
# known, none. `script` runs the tool on a pseudo-terminal.
find_program(SCRIPT_PROGRAM script)
find_program(STTY_PROGRAM stty)
if(SCRIPT_PROGRAM AND STTY_PROGRAM AND NOT CMAKE_HOST_WIN32 AND NOT EMULATOR)
  list(JOIN TOOL " " tool_line)
  set(verify_line "${tool_line} verify --module ${MODULE} --filter memo:0,blnd:1,blnd:47 --quick")
  execute_process(COMMAND ${SCRIPT_PROGRAM} -qec "stty cols 30; ${verify_line}" /dev/null
                  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0 OR NOT out MATCHES "\rverify \\[1/[3-9]\\] blnd:1" OR NOT out MATCHES "verify: [3-9] passed")
    message(FATAL_ERROR "verify on a terminal: expected a progress line, got (exit ${rc}):\n${out}${err}")
  endif()
  # Every stretch the terminal shows between carriage returns and newlines stays
  # within 29 columns, except the result lines.
  string(REPLACE "\r" "\n" pieces "${out}")
  string(REGEX MATCHALL "verify \\[[^\n]*" progress_lines "${pieces}")
  foreach(line IN LISTS progress_lines)
    string(LENGTH "${line}" length)
    if(length GREATER 29)
      message(FATAL_ERROR "progress line wider than a 30-column terminal (${length}): '${line}'")
    endif()
  endforeach()
  execute_process(COMMAND ${SCRIPT_PROGRAM} -qec "stty cols 0; ${verify_line}" /dev/null
                  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0 OR out MATCHES "verify \\[" OR NOT out MATCHES "verify: [3-9] passed")
    message(FATAL_ERROR "verify on a terminal of unknown width: expected no progress line, got (exit ${rc}):\n${out}${err}")
  endif()
endif()

# Tiers: verify --tier sse2 runs every selected check on the bodies of that level
# (every x86-64 processor has it); bench --tier sse2 times them. report and list
# say which level's body each slot runs.
run(out err verify --module ${MODULE} --json --tier sse2 --filter "blnd:1,memo:0" --quick)
string(JSON tier GET "${out}" tier)
string(JSON results LENGTH "${out}" results)
string(JSON first_tier GET "${out}" results 0 tier)
if(NOT tier STREQUAL "sse2" OR NOT results EQUAL 2 OR NOT first_tier STREQUAL "sse2")
  message(FATAL_ERROR "verify --tier sse2: tier '${tier}', ${results} results, first at '${first_tier}':\n${out}")
endif()
run(out err bench --module ${MODULE} --tier sse2 --filter memo:3 --size 16x4 --min-time 0.001)
if(NOT out MATCHES "memo:3 fillBytes")
  message(FATAL_ERROR "bench --tier sse2 did not time memo:3:\n${out}")
endif()
run(out err report --module ${MODULE} --json)
string(JSON body GET "${out}" suites 0 bodies 0 body)
if(NOT body MATCHES "^(sse2|ssse3|sse41|avx|avx2|forwarded)$")
  message(FATAL_ERROR "report --json: the first slot's body is '${body}':\n${out}")
endif()
run(out err list --json --filter filt:12)
string(JSON body GET "${out}" checks 0 body)
if(NOT body STREQUAL "sse2")
  message(FATAL_ERROR "list --json: filt:12 runs '${body}', not the baseline:\n${out}")
endif()
