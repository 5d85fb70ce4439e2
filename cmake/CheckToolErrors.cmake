# tarnell-host must answer bad arguments, an unloadable module, a module without
# PluginMain, a failed start-up and an unwritable report with one clear message and
# its exit code (2, 3, 4, 5), before doing any work.
function(expect_failure name code pattern)
  execute_process(COMMAND ${TOOL} ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc STREQUAL "${code}")
    message(FATAL_ERROR "${name}: expected exit ${code}, got '${rc}'\n${out}${err}")
  endif()
  if(NOT err MATCHES "${pattern}")
    message(FATAL_ERROR "${name}: expected a message matching '${pattern}', got:\n${err}")
  endif()
  if(NOT out STREQUAL "")
    message(FATAL_ERROR "${name}: expected nothing on stdout (no work done), got:\n${out}")
  endif()
endfunction()

file(WRITE ${WORK}/not-a-module.qrx "this is not a shared library\n")
expect_failure(no-command 2 "no command" )
expect_failure(unknown-command 2 "unknown command 'frobnicate'" frobnicate)
expect_failure(unknown-option 2 "unknown option '--frob'" report --frob)
expect_failure(missing-value 2 "--module needs a value" report --module)
expect_failure(bad-size 2 "--size takes WxH" bench --size 0x10)
expect_failure(bad-seed 2 "--seed takes" verify --seed minus)
expect_failure(bad-suite 2 "--omit-suite takes" report --omit-suite xxxx)
expect_failure(given-twice 2 "option --seed given twice" verify --seed 1 --seed 2)
expect_failure(bad-tier 2 "--tier takes sse2, ssse3, sse41, avx or avx2" verify --tier sse3)
expect_failure(plain-tier 2 "--tier takes sse2" bench --tier plain)
expect_failure(verify-two-tiers 2 "verify --tier takes one level" verify --tier sse2,avx2)
expect_failure(tier-of-list 2 "--tier is an option of verify and bench, not of list" list --tier sse2)
expect_failure(missing-file 3 "cannot load module" report --module ${WORK}/does-not-exist.qrx)
expect_failure(not-a-library 3 "cannot load module" report --module ${WORK}/not-a-module.qrx)
expect_failure(no-export 3 "does not export PluginMain" report --module ${NO_EXPORT_MODULE})
expect_failure(missing-suite 4 "suite 'path' is missing" report --module ${MODULE} --omit-suite path)
expect_failure(old-suite 4 "suite 'memo' is missing or does not meet" verify --module ${MODULE} --suite-revision memo=35)

# One rule for options: one a command does not use is refused, naming the
# commands it belongs to.
expect_failure(report-not-verify 2 "--report is an option of bench, not of verify" verify --report ${WORK}/r.html)
expect_failure(size-not-report 2 "--size is an option of bench, not of report" report --size 8x8)
expect_failure(seed-not-bench 2 "--seed is an option of verify, not of bench" bench --seed 3)
expect_failure(quick-not-bench 2 "--quick is an option of verify, not of bench" bench --quick)
expect_failure(min-time-not-verify 2 "--min-time is an option of bench, not of verify" verify --min-time 1)
expect_failure(progress-not-list 2 "--no-progress is an option of verify and bench, not of list" list --no-progress)
expect_failure(host-option-list 2 "host options apply to list only with --module" list --omit-suite path)

# Every glob of a filter must select a check: a filter that selects nothing, or
# drops one of its globs, would let a CI job pass having verified less.
expect_failure(filter-suite-only 2 "--filter 'blnd' matches no check .*tarnell-host list" verify --quick --filter blnd)
expect_failure(filter-one-of-two 2 "--filter 'nomatch' matches no check" verify --filter "blnd:1, nomatch")
expect_failure(filter-two 2 "--filter 'x1', 'x2' match no check" list --filter "x1,x2")
expect_failure(filter-forwarded 2 "blnd:53 \\(BlendPlaneRoutine53\\) is forwarded" verify --filter blnd:53)
expect_failure(filter-empty 2 "--filter takes one or more globs" bench --filter " , ")
file(REMOVE ${WORK}/e.html)
expect_failure(filter-bench-report 2 "--filter 'nomatch' matches no check" bench --filter nomatch --report ${WORK}/e.html)
if(EXISTS ${WORK}/e.html)
  message(FATAL_ERROR "bench with a filter that selects nothing wrote a report")
endif()

# An unwritable report is found before the run: nothing benched (the whole
# default bench would take minutes), exit 5.
expect_failure(unwritable-report 5 "cannot write the report '.*no-such-directory/report.html': "
               bench --module ${MODULE} --report ${WORK}/no-such-directory/report.html)
expect_failure(report-is-a-directory 5 "cannot write the report" bench --module ${MODULE} --report ${WORK})
