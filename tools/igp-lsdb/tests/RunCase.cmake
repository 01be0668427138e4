# Runs igp-lsdb twice, under two hash seeds, and compares what each run wrote with the same
# expected files: the tool sorts its output, so the library's random seed must not show in it.
#   -DTOOL=path -DARGS=a|b|c -DWORKDIR=dir -DEXPECT_RC=n
#   -DEXPECT_STDOUT=file            expected standard output
#   -DEXPECT_STDERR=file            expected standard error; without it, stderr must be empty
#   -DANY_STDERR=1                  stderr is not compared (messages of the command-line parser)
#   -DSCHEMA_CHECK=exe -DSCHEMA=file -DJSON=doc|lines   validate the standard output
#   -DSEED=value                    the first run's IGPCOMMON_HASH_SEED instead of unset (random)
#   -DACTUAL=dir                    where the actual outputs are kept for inspection
# The second run always fixes a seed of its own. With IGP_LSDB_BLESS=1 in the environment the
# first run's outputs are written to the expected files, and the second run is compared with them
# (review the result with git diff before committing it).

string(REPLACE "|" ";" ARGS "${ARGS}")
if(DEFINED SEED)
    set(first_env "IGPCOMMON_HASH_SEED=${SEED}")
else()
    set(first_env "--unset=IGPCOMMON_HASH_SEED")
endif()
set(runs "first;second")
set(env_first "${first_env}")
set(env_second "IGPCOMMON_HASH_SEED=0x9e3779b9")

function(compare actual expected what bless)
    if(bless AND DEFINED ENV{IGP_LSDB_BLESS})
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

set(failed "")
foreach(run IN LISTS runs)
    set(actual "${ACTUAL}.${run}")
    execute_process(
        COMMAND "${CMAKE_COMMAND}" -E env ${env_${run}} "${TOOL}" ${ARGS}
        WORKING_DIRECTORY "${WORKDIR}"
        OUTPUT_FILE "${actual}.out"
        ERROR_FILE "${actual}.err"
        RESULT_VARIABLE rc)
    set(what "${run} run (${env_${run}}):")

    if(NOT rc STREQUAL "${EXPECT_RC}")
        file(READ "${actual}.err" err)
        string(APPEND failed "${what} exit status ${rc}, expected ${EXPECT_RC}\n${err}\n")
    endif()

    if(DEFINED SCHEMA_CHECK)
        set(mode "")
        if(JSON STREQUAL "lines")
            set(mode "--lines")
        endif()
        execute_process(
            COMMAND "${SCHEMA_CHECK}" ${mode} "${SCHEMA}" "${actual}.out"
            OUTPUT_VARIABLE check_out ERROR_VARIABLE check_err RESULT_VARIABLE check_rc)
        if(NOT check_rc EQUAL 0)
            string(APPEND failed "${what} the output does not validate against ${SCHEMA}:\n${check_out}${check_err}\n")
        endif()
    endif()

    # Only the first run blesses; the second is compared with what it wrote.
    set(bless OFF)
    if(run STREQUAL "first")
        set(bless ON)
    endif()
    compare("${actual}.out" "${EXPECT_STDOUT}" "${what} standard output" ${bless})
    if(DEFINED EXPECT_STDERR)
        compare("${actual}.err" "${EXPECT_STDERR}" "${what} standard error" ${bless})
    elseif(NOT ANY_STDERR)
        file(READ "${actual}.err" err)
        if(NOT err STREQUAL "")
            string(APPEND failed "${what} unexpected standard error:\n${err}\n")
        endif()
    endif()
endforeach()

if(NOT failed STREQUAL "")
    message(FATAL_ERROR "igp-lsdb ${ARGS}\n${failed}")
endif()
