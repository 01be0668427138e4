# Runs igp-lsdb once and compares what it wrote with the expected files.
#   -DTOOL=path -DARGS=a|b|c -DWORKDIR=dir -DEXPECT_RC=n
#   -DEXPECT_STDOUT=file            expected standard output
#   -DEXPECT_STDERR=file            expected standard error; without it, stderr must be empty
#   -DANY_STDERR=1                  stderr is not compared (messages of the command-line parser)
#   -DSCHEMA_CHECK=exe -DSCHEMA=file -DJSON=doc|lines   validate the standard output
#   -DSEED=value                    run with IGPCOMMON_HASH_SEED=value instead of unset
#   -DACTUAL=dir                    where the actual outputs are kept for inspection
# With IGP_LSDB_BLESS=1 in the environment the outputs are written to the expected files instead
# of compared with them (review the result with git diff before committing it).

string(REPLACE "|" ";" ARGS "${ARGS}")
if(DEFINED SEED)
    set(env_args "IGPCOMMON_HASH_SEED=${SEED}")
else()
    set(env_args "--unset=IGPCOMMON_HASH_SEED")
endif()
execute_process(
    COMMAND "${CMAKE_COMMAND}" -E env ${env_args} "${TOOL}" ${ARGS}
    WORKING_DIRECTORY "${WORKDIR}"
    OUTPUT_FILE "${ACTUAL}.out"
    ERROR_FILE "${ACTUAL}.err"
    RESULT_VARIABLE rc)

set(failed "")
if(NOT rc STREQUAL "${EXPECT_RC}")
    file(READ "${ACTUAL}.err" err)
    string(APPEND failed "exit status ${rc}, expected ${EXPECT_RC}\n${err}\n")
endif()

if(DEFINED SCHEMA_CHECK)
    set(mode "")
    if(JSON STREQUAL "lines")
        set(mode "--lines")
    endif()
    execute_process(
        COMMAND "${SCHEMA_CHECK}" ${mode} "${SCHEMA}" "${ACTUAL}.out"
        OUTPUT_VARIABLE check_out ERROR_VARIABLE check_err RESULT_VARIABLE check_rc)
    if(NOT check_rc EQUAL 0)
        string(APPEND failed "the output does not validate against ${SCHEMA}:\n${check_out}${check_err}\n")
    endif()
endif()

function(compare actual expected what)
    if(DEFINED ENV{IGP_LSDB_BLESS})
        file(COPY_FILE "${actual}" "${expected}")
        return()
    endif()
    execute_process(COMMAND "${CMAKE_COMMAND}" -E compare_files "${actual}" "${expected}" RESULT_VARIABLE differ)
    if(differ)
        execute_process(COMMAND diff -u "${expected}" "${actual}" OUTPUT_VARIABLE d)
        string(SUBSTRING "${d}" 0 6000 d)
        set(failed "${failed}${what} differs from ${expected}:\n${d}\n" PARENT_SCOPE)
    endif()
endfunction()

compare("${ACTUAL}.out" "${EXPECT_STDOUT}" "standard output")
if(DEFINED EXPECT_STDERR)
    compare("${ACTUAL}.err" "${EXPECT_STDERR}" "standard error")
elseif(NOT ANY_STDERR)
    file(READ "${ACTUAL}.err" err)
    if(NOT err STREQUAL "")
        string(APPEND failed "unexpected standard error:\n${err}\n")
    endif()
endif()

if(NOT failed STREQUAL "")
    message(FATAL_ERROR "igp-lsdb ${ARGS}\n${failed}")
endif()
